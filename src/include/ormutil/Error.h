// The one exception type: a stack of layers, each a code and a message.
//
//   try {
//     OpenStore(name);                            // throws MakeSystemError(GetLastError(), ..., true)
//   } catch (Error& error) {
//     error.AddLayer(ERROR_LAYER_BELOW, String::FormatInserts("Cannot read store '%1'.", name), false);
//     throw;
//   }
//
// Code that catches an error adds what it was trying to do and throws it on. Format() gives the text for the
// user: the last layer's message, the marked layer's below it, and the suggestion.
//
// An error is one pointer to a counted record, null when there is no error; copies share the record and copy
// it before they change it, so throwing by value is cheap. Copies may be used by different threads; one error
// is for one thread at a time. Nothing here throws, except reading from an archive and Import, and
// std::bad_alloc.
//
// Codes are the platform's error numbers, unchanged, or the library's own, 0xE7FFNNNN: error severity and the
// customer bit of the platform's result-code layout (0xE), a facility of 12 bits and a number of 16 bits.
// Facilities: 0x721 general, 0x722 properties, 0x723 components, 0x724 archives, 0x72D threads, 0x737 error
// import, 0x740 values, 0x743 time.
#pragma once

#include <ormutil/Archive.h>
#include <ormutil/AtomicCounter.h>
#include <ormutil/BaseString.h>
#include <ormutil/Binary.h>
#include <ormutil/Export.h>

#include <utility>
#include <vector>

namespace orm {

// Passed to AddLayer, it stands for the code of the layer below.
inline constexpr DWORD ERROR_LAYER_BELOW = 0xE7210000;
// The general failure of an operation.
inline constexpr DWORD ERROR_GENERAL = 0xE7210001;
// A last layer with this code and no message formats as nothing.
inline constexpr DWORD ERROR_SILENT = 0xE7210002;
inline constexpr DWORD ERROR_ARCHIVE_END = 0xE7240001;
inline constexpr DWORD ERROR_ARCHIVE_INVALID = 0xE7240002;
inline constexpr DWORD ERROR_IMPORT_VERSION = 0xE7370001;

class Error;

// An archived error: a flag byte, 0 for no layers and then nothing follows; else the version (2), the data,
// the suggestion, the marked layer (-1 for none), the number of layers, and for each, oldest first, its code
// and message.
ORMUTIL_API WriteArchive& operator<<(WriteArchive& archive, const Error& error);
// Throws 0xE7370001 for another version and the archive's errors (0xE7240002 also for a marked layer that is
// not there), each below a marked layer "Failed to deserialize error description from external data." and
// with a suggestion. The target has no layers then.
ORMUTIL_API ReadArchive& operator>>(ReadArchive& archive, Error& error);

// Layer indexes count from the last layer added, which is 0.
class ORMUTIL_API Error {
 public:
  Error() noexcept = default;
  // An error with one layer.
  explicit Error(DWORD code, const String& message, bool mark = false) : Error() {
    AddLayer(code, message, mark);
  }
  Error(const Error& other) noexcept : mpData(other.mpData) {
    if (mpData) ++mpData->counter;
  }
  Error(Error&& other) noexcept : mpData(std::exchange(other.mpData, nullptr)) {}
  ~Error() { Release(mpData); }

  Error& operator=(const Error& other) noexcept {
    Error(other).Swap(*this);
    return *this;
  }
  Error& operator=(Error&& other) noexcept {
    Error(std::move(other)).Swap(*this);
    return *this;
  }
  void Swap(Error& other) noexcept { std::swap(mpData, other.mpData); }

  // Adds a layer on top; with `mark` it becomes the layer that Format shows below the last one.
  void AddLayer(DWORD code, const String& message, bool mark = false);
  // Removes all layers and the suggestion.
  void Clear();
  // Makes this the error of a failed platform call: a layer with the error number and the system's message
  // for it, and, unless `context` is empty, the context above it.
  void MakeSystemError(DWORD code, const String& context, bool mark);

  bool IsEmpty() const { return GetLayerCount() == 0; }
  unsigned GetLayerCount() const { return mpData ? static_cast<unsigned>(mpData->mLayers.size()) : 0; }
  // 0 when there is no such layer.
  DWORD GetCode(unsigned index = 0) const { return TranslateIndex(index) ? mpData->mLayers[index].code : 0; }
  // Empty when there is no such layer.
  String GetMessage(unsigned index = 0) const {
    return TranslateIndex(index) ? mpData->mLayers[index].message : String();
  }
  // True when any layer has the code.
  bool HasCode(DWORD code) const;

  // Replaces the advice for the user. The flag is kept for callers of old and has no effect.
  void SetSuggestion(const String& text, bool flag = false);
  String GetSuggestion() const { return mpData ? mpData->mSuggestion : String(); }
  // The marked layer's place counted from the oldest layer, or -1.
  int GetMarkedLayer() const { return mpData ? mpData->mMarkedLayer : -1; }
  // Bytes that travel with the error and mean nothing to this library.
  Binary GetData() const { return mpData ? mpData->mBinary : Binary(); }
  void SetData(const Binary& data);

  // The text for display.
  String Format() const;

  // The error as a whole archive, empty without layers, and the error read from one. Import throws what
  // reading throws; an empty buffer is an error without layers.
  Binary Export() const;
  static Error Import(const Binary& data);

 private:
  friend ORMUTIL_API WriteArchive& operator<<(WriteArchive& archive, const Error& error);
  friend ORMUTIL_API ReadArchive& operator>>(ReadArchive& archive, Error& error);

  static constexpr DWORD kVersion = 2;

  struct Layer {
    DWORD code;
    String message;
  };
  struct Record {
    AtomicCounter counter{1};
    DWORD mVersion = kVersion;
    Binary mBinary;
    std::vector<Layer> mLayers;  // oldest first
    String mSuggestion;
    int mMarkedLayer = -1;
  };

  static void Release(Record* pRecord) noexcept {
    if (pRecord && --pRecord->counter == 0) Destroy(pRecord);
  }
  static void Destroy(Record* pRecord) noexcept;
  // Makes the record this error's own: a copy of the shared one or, without `keepContents`, a fresh one.
  void MakeWritable(bool keepContents);
  // Turns an index from the top into a place in the list; false when there is no such layer.
  bool TranslateIndex(unsigned& index) const {
    const unsigned count = GetLayerCount();
    if (index >= count) return false;
    index = count - 1 - index;
    return true;
  }
  void ReadRecord(ReadArchive& archive);

  Record* mpData = nullptr;
};

// The error of a failed platform call as a new object; see Error::MakeSystemError. Read the error number
// before you build the context: building it may change the thread's last error.
[[nodiscard]] ORMUTIL_API Error MakeSystemError(DWORD code, const String& context, bool mark);

}  // namespace orm
