// The files behind named objects. Everything that creates, opens, closes or removes one happens under a lock
// on the folder, which no one holds for longer than that.
#include "kernel/NamedFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "kernel/CodePage.h"
#include "kernel/Errno.h"
#include "kernel/Machine.h"
#include "win32/errors.h"

namespace orm::platform {

namespace {

constexpr size_t kLongestFileName = 200;
constexpr mode_t kFolderMode = 01777;

// The folder lock: a lock on the folder's own descriptor.
class FolderLock {
 public:
  explicit FolderLock(const std::string& folder) noexcept
      : mDescriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (mDescriptor < 0) return;
    while (flock(mDescriptor, LOCK_EX) != 0 && errno == EINTR) {
    }
  }
  ~FolderLock() {
    if (mDescriptor >= 0) close(mDescriptor);
  }
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;
  explicit operator bool() const noexcept { return mDescriptor >= 0; }

 private:
  const int mDescriptor;
};

bool IsPlain(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' ||
         c == '.';
}

uint64_t Fnv1a(std::string_view text, uint64_t hash) noexcept {
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
  return hash;
}

// Letters, digits and a few marks stand for themselves, all else as %XX (RFC 3986); what gets longer than a
// file name may be ends in two hashes of the whole.
std::string EncodeName(std::string_view name) {
  std::string result = "n-";
  for (const char c : name) {
    if (IsPlain(c)) {
      result += c;
    } else {
      char escaped[4];
      snprintf(escaped, sizeof(escaped), "%%%02X", static_cast<unsigned char>(c));
      result += escaped;
    }
  }
  if (result.size() <= kLongestFileName) return result;
  char hashes[40];
  snprintf(hashes, sizeof(hashes), "~%016llx%016llx",
           static_cast<unsigned long long>(Fnv1a(name, 0xCBF29CE484222325)),
           static_cast<unsigned long long>(Fnv1a(name, 0x9AE16A3B2F90404F)));
  return result.substr(0, kLongestFileName - 40) + hashes;
}

// Empty, with the error, when there is no place for named objects.
std::string NamedFolder(DWORD& error) {
  std::string folder = MachinePath("named");
  if (folder.empty()) {
    error = ERROR_PATH_NOT_FOUND;
    return {};
  }
  if (const int code = EnsureFolder(folder, MachineMode(kFolderMode)); code != 0) {
    error = ErrorFromErrno(code);
    return {};
  }
  return folder;
}

bool Lock(int descriptor, int operation) noexcept {
  int result;
  while ((result = flock(descriptor, operation)) != 0 && errno == EINTR) {
  }
  return result == 0;
}

}  // namespace

bool IsOpenToAll(const SECURITY_ATTRIBUTES* security) noexcept {
  if (security == nullptr || security->lpSecurityDescriptor == nullptr) return false;
  const auto* const descriptor = static_cast<const SECURITY_DESCRIPTOR*>(security->lpSecurityDescriptor);
  return (descriptor->Control & SE_DACL_PRESENT) != 0 && descriptor->Dacl == nullptr;
}

std::string_view PlainObjectName(std::string_view name) noexcept {
  for (const std::string_view prefix : {std::string_view("Global\\"), std::string_view("Local\\")}) {
    if (name.starts_with(prefix)) return name.substr(prefix.size());
  }
  return name;
}

DWORD NamedFile::CheckKind(NamedKind kind) const noexcept {
  NamedHeader header{};
  const ssize_t got = pread(mDescriptor, &header, sizeof(header), 0);
  if (got != static_cast<ssize_t>(sizeof(header)) || header.magic != NamedHeader::kMagic)
    return ERROR_INVALID_DATA;
  return header.kind == kind ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

NamedFile::Result NamedFile::Create(std::string_view name, NamedKind kind,
                                    const SECURITY_ATTRIBUTES* security, NamedInitialiser& initialiser) {
  DWORD error = ERROR_SUCCESS;
  const std::string folder = NamedFolder(error);
  if (folder.empty()) return {error};
  mPath = folder + '/' + EncodeName(Utf8FromAnsi(PlainObjectName(name)));
  const FolderLock folderLock(folder);
  if (!folderLock) return {ErrorFromErrno(errno)};
  // Not O_CREAT on a file that is there: in a sticky folder the system may refuse that for another user's.
  mDescriptor = open(mPath.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
  if (mDescriptor < 0 && errno == ENOENT) {
    mDescriptor = open(mPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
  }
  if (mDescriptor < 0) return {ErrorFromErrno(errno)};
  if (!Lock(mDescriptor, LOCK_EX | LOCK_NB)) {
    Lock(mDescriptor, LOCK_SH);
    error = CheckKind(kind);
    return {error, error == ERROR_SUCCESS};
  }
  // Nobody holds it: whatever the file holds is of an object that has gone.
  const mode_t mode = IsOpenToAll(security) ? MachineMode(0666) : 0600;
  const NamedHeader header{NamedHeader::kMagic, kind, 0};
  if (ftruncate(mDescriptor, 0) != 0 || (fchmod(mDescriptor, mode) != 0 && errno != EPERM) ||
      pwrite(mDescriptor, &header, sizeof(header), 0) != static_cast<ssize_t>(sizeof(header))) {
    error = ErrorFromErrno(errno);
  } else {
    error = initialiser.Initialise(mDescriptor);
  }
  if (error != ERROR_SUCCESS) unlink(mPath.c_str());
  Lock(mDescriptor, LOCK_SH);
  return {error};
}

DWORD NamedFile::Open(std::string_view name, NamedKind kind) {
  DWORD error = ERROR_SUCCESS;
  const std::string folder = NamedFolder(error);
  if (folder.empty()) return error;
  mPath = folder + '/' + EncodeName(Utf8FromAnsi(PlainObjectName(name)));
  const FolderLock folderLock(folder);
  if (!folderLock) return ErrorFromErrno(errno);
  mDescriptor = open(mPath.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
  if (mDescriptor < 0) return errno == ENOENT ? ERROR_FILE_NOT_FOUND : ErrorFromErrno(errno);
  if (Lock(mDescriptor, LOCK_EX | LOCK_NB)) {
    unlink(mPath.c_str());
    return ERROR_FILE_NOT_FOUND;
  }
  Lock(mDescriptor, LOCK_SH);
  return CheckKind(kind);
}

void NamedFile::Close() noexcept {
  if (mDescriptor < 0) return;
  const FolderLock folderLock(mPath.substr(0, mPath.rfind('/')));
  // Only the owner of a file may remove it from the folder; another user's last holder leaves it, which is no
  // harm, since an unlocked file is no object.
  if (folderLock && Lock(mDescriptor, LOCK_EX | LOCK_NB)) unlink(mPath.c_str());
  close(mDescriptor);
  mDescriptor = -1;
}

}  // namespace orm::platform
