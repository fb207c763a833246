// Named objects of the machine: each is a file in its named/ folder, under an encoded name, that every holder
// keeps locked for sharing. The system drops the lock of a holder that is killed, so a file that nobody has
// locked is no object any more, whatever is left on disk; the next one to create the name makes it afresh.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "win32/types.h"

namespace orm::platform {

enum class NamedKind : uint32_t { kMutex = 1, kSection = 2 };

// The first bytes of the file. What follows is the kind's own.
struct NamedHeader {
  static constexpr uint64_t kMagic = 0x3164656D616E6D6F;  // "omnamed1"
  uint64_t magic;
  NamedKind kind;
  uint32_t reserved;
};

// Does the first holder's work on the empty file; returns an error number. Runs while nobody else can open
// it.
class NamedInitialiser {
 public:
  virtual DWORD Initialise(int descriptor) = 0;

 protected:
  ~NamedInitialiser() = default;
};

// Where the object of a name has its file.
struct NamedPath {
  std::string folder;  // empty when there is no place for named objects
  std::string file;
  DWORD error = 0;
};

// Asks for the code page and the machine, which have locks of their own: not to be called under one of the
// named objects' locks.
NamedPath FindNamedPath(std::string_view name);

// One holding of a named object: a locked descriptor on its file. A child made by fork has a holding of its
// own from its beginning, or none when the system has no descriptor left for it.
class NamedFile {
 public:
  struct Result {
    DWORD error = 0;
    bool existed = false;
  };

  NamedFile() = default;
  ~NamedFile() { Close(); }
  NamedFile(const NamedFile&) = delete;
  NamedFile& operator=(const NamedFile&) = delete;

  // Opens the object or makes it. ERROR_INVALID_HANDLE when the name belongs to an object of another kind,
  // ERROR_ACCESS_DENIED when it belongs to another user who did not open it to all.
  Result Create(const NamedPath& path, NamedKind kind, const SECURITY_ATTRIBUTES* security,
                NamedInitialiser& initialiser);
  // ERROR_FILE_NOT_FOUND when nobody holds such an object.
  DWORD Open(const NamedPath& path, NamedKind kind);
  // The last holder removes the file.
  void Close() noexcept;

  int Descriptor() const noexcept { return mDescriptor; }

  static void BeforeFork() noexcept;
  static void AfterForkInParent() noexcept;
  static void AfterForkInChild() noexcept;

 private:
  class Operation;

  DWORD CheckKind(NamedKind kind) const noexcept;
  void Remove() noexcept;
  void LetGo() noexcept;

  int mDescriptor = -1;
  int mChildsDescriptor = -1;  // during a fork
  NamedPath mPath;
};

// Whether the attributes carry a null access list, which opens the object to all users.
bool IsOpenToAll(const SECURITY_ATTRIBUTES* security) noexcept;

// The name without its namespace prefix.
std::string_view PlainObjectName(std::string_view name) noexcept;

}  // namespace orm::platform
