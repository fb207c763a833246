// Archives: values as a stream of bytes in a Binary, and back.
//
//   Binary stream;
//   WriteArchive writer(stream);
//   writer << uint32_t{1} << String("abc");
//   // 00 13 48 5B  01 00 00 00  04 00 00 00 E4 04 00 00 61 62 63 00   (in code page 1252)
//
//   ReadArchive reader(stream);
//   uint32_t number;
//   String text;
//   reader >> number >> text;
//
// A stream begins with four bytes: the format (low 4 bits) with 0x10 set when its numbers are big-endian,
// then 0x13 0x48 0x5B. The values follow without padding: numbers in 1, 2, 4 or 8 bytes, a flag in one byte,
// a string in its serialized form, a buffer as a 32-bit count and its bytes. The header is written with the
// first value. This library writes little-endian and reads both.
//
// Writing throws nothing but std::bad_alloc, and a value that found no room has left no byte in the stream.
// Misuse is an assertion: without a stream nothing is written, and what is written in an unknown format no
// reader takes. Reading treats the stream as untrusted and throws an Error of one layer:
//   0xE7240001 "End of data reached during archive operation."  the value needs more bytes than are left
//   0xE7240002 "The data are not valid archive data."           no header, or a string that cannot be decoded
// A number that cannot be read is 0. An archive is for one thread at a time.
#pragma once

#include <ormutil/BaseString.h>
#include <ormutil/Binary.h>
#include <ormutil/CopyBytes.h>
#include <ormutil/Export.h>

#include <concepts>
#include <cstring>

namespace orm {

enum ArchiveFormatType : int {
  ARCHIVE_FORMAT_UNKNOWN = -1,  // the header has not been checked, or is not one
  ARCHIVE_FORMAT_DEFAULT = 0,
};

// Values that an archive holds as one number: integers of 1, 2, 4 or 8 bytes and flags. Types whose size
// depends on the target are the caller's risk.
template <class T>
concept ArchiveNumber = std::integral<T> &&
    (sizeof(T) == 1 || sizeof(T) == 2 || sizeof(T) == 4 || sizeof(T) == 8);

// Encodes values into a Binary, which the caller keeps alive and may read at any time.
class WriteArchive {
 public:
  WriteArchive() = default;
  explicit WriteArchive(Binary& stream, ArchiveFormatType format = ARCHIVE_FORMAT_DEFAULT) {
    SetStream(stream, format);
  }

  // Starts writing into `stream`, whose content is dropped; also when it throws for want of room to reserve.
  ORMUTIL_API void SetStream(Binary& stream, ArchiveFormatType format = ARCHIVE_FORMAT_DEFAULT);
  // Makes room for `size` more bytes, without changing the stream's size.
  ORMUTIL_API void Reserve(unsigned size);

  template <ArchiveNumber T>
  WriteArchive& operator<<(T value) {
    WriteData(reinterpret_cast<const unsigned char*>(&value), sizeof value);
    return *this;
  }
  WriteArchive& operator<<(const String& text) {
    WriteString(text);
    return *this;
  }
  WriteArchive& operator<<(const Binary& data) {
    WriteBinary(data);
    return *this;
  }
  // Without this a text would be written as the flag that its pointer converts to.
  WriteArchive& operator<<(const char* text) { return *this << String(text); }

 protected:
  // Appends raw bytes; none of them writes nothing, not even the header. `data` may lie in the stream.
  void WriteData(const unsigned char* data, unsigned size) {
    if (unsigned char* target = Claim(size)) {
      CopyBytes(target, data, size);
    } else {
      AppendSlowly(data, size);
    }
  }
  ORMUTIL_API void WriteString(const String& text);
  // Appends the count, 32 bits, and the bytes.
  ORMUTIL_API void WriteBinary(const Binary& data);

 private:
  // The next `size` bytes of the stream, when its block is there, is not shared and has room; else null.
  unsigned char* Claim(unsigned size) {
    if (!mpData || mPos == 0) return nullptr;
    Binary::Block* block = mpData->mpData;
    if (!block || block->counter >= 2 || mPos > block->mAllocated || size > block->mAllocated - mPos) {
      return nullptr;
    }
    unsigned char* target = block->GetBytes() + mPos;
    mPos += size;
    if (mPos > block->mSize) block->mSize = mPos;
    return target;
  }
  // The same whatever the state of the stream, the header included. `size` is not 0.
  unsigned char* ClaimSlowly(unsigned long long size);
  ORMUTIL_API void AppendSlowly(const unsigned char* data, unsigned size);

  Binary* mpData = nullptr;
  uint32_t mPos = 0;  // bytes written, header included
  ArchiveFormatType mFormat = ARCHIVE_FORMAT_DEFAULT;
};

// Decodes values from a Binary, which the caller keeps alive. Nothing is copied but the values.
class ReadArchive {
 public:
  ReadArchive() = default;
  explicit ReadArchive(const Binary& stream) { SetStream(stream); }

  // Starts reading `stream` at its beginning.
  ORMUTIL_API void SetStream(const Binary& stream);
  // Checks the header on first use. ARCHIVE_FORMAT_UNKNOWN when it is not one; throws nothing.
  ORMUTIL_API ArchiveFormatType GetFormat();
  // True when every byte has been read.
  ORMUTIL_API bool IsEof();
  // The bytes that have not been read; whoever is told a count by the stream can hold it against this.
  unsigned GetRemaining() const {
    const unsigned total = mpData ? mpData->GetSize() : 0;
    return mPos <= total ? total - mPos : 0;
  }

  template <ArchiveNumber T>
  ReadArchive& operator>>(T& value) {
    if constexpr (std::same_as<T, bool>) {
      unsigned char flag = 0;
      value = false;
      ReadDataEx(&flag, 1);
      value = flag != 0;
    } else {
      ReadDataEx(reinterpret_cast<unsigned char*>(&value), sizeof value);
    }
    return *this;
  }
  ReadArchive& operator>>(String& text) {
    ReadString(text);
    return *this;
  }
  ReadArchive& operator>>(Binary& data) {
    ReadBinary(data);
    return *this;
  }

 protected:
  // Checks that `size` more bytes are there; otherwise fills `dest`, when given, with zeros and throws.
  ORMUTIL_API void ReadDataTest(unsigned size, unsigned char* dest);
  // Reads raw bytes, at least one.
  ORMUTIL_API void ReadData(unsigned char* dest, unsigned size);
  // Reads one number of `size` bytes, which is swapped when the stream has the other byte order.
  void ReadDataEx(unsigned char* dest, unsigned size) {
    if (mpData && mPos != 0 && mNativeOrder) {
      const unsigned total = mpData->GetSize();
      if (size != 0 && mPos <= total && size <= total - mPos) {
        std::memcpy(dest, mpData->GetData() + mPos, size);
        mPos += size;
        return;
      }
    }
    ReadNumberSlowly(dest, size);
  }
  // The text is empty when it throws.
  ORMUTIL_API void ReadString(String& text);
  // The buffer is unchanged when it throws.
  ORMUTIL_API void ReadBinary(Binary& data);

 private:
  ORMUTIL_API void ReadNumberSlowly(unsigned char* dest, unsigned size);

  const Binary* mpData = nullptr;
  uint32_t mPos = 0;  // 0 while the header has not been checked
  ArchiveFormatType mFormat = ARCHIVE_FORMAT_UNKNOWN;
  bool mNativeOrder = true;
};

// Both directions in one object: what has been set up last in each direction is used by << and >>.
class Archive : public WriteArchive, public ReadArchive {
 public:
  enum ModeType : int { MODE_READ = 0, MODE_WRITE = 1 };

  Archive() = default;
  Archive(Binary& stream, ModeType mode) { SetStream(stream, mode); }

  // Points the read or the write part at the stream; writing drops what the stream holds.
  ORMUTIL_API void SetStream(Binary& stream, ModeType mode);
};

}  // namespace orm
