// The files behind named objects. Everything that creates, opens, closes or removes one happens under a lock
// on the folder, which no one holds for longer than that.
//
// A lock belongs to what an open call has made, which a child made by fork shares with its parent: if it had
// nothing else, whoever of the two closed first would take the name away from under the other. So each
// holding is opened and locked a second time before a fork, and the child keeps the second one.
#include "kernel/NamedFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <mutex>
#include <set>
#include <utility>

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
  // Given back and not only closed: a child that another thread is just starting has a copy of the
  // descriptor.
  ~FolderLock() {
    if (mDescriptor < 0) return;
    flock(mDescriptor, LOCK_UN);
    close(mDescriptor);
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

// A name as UTF-8. One with bytes that mean nothing in the code page stays as it is, behind a byte that UTF-8
// does not have: converted, several names would become one.
std::string Utf8FromObjectName(std::string_view name) {
  std::string text = Utf8FromAnsi(name);
  return AnsiFromUtf8(text) == name ? text : '\xFF' + std::string(name);
}

// Whether the path leads to the file that is open: somebody may have removed it, and the name made again.
bool LeadsTo(const std::string& path, int descriptor) noexcept {
  struct stat named, opened;
  return lstat(path.c_str(), &named) == 0 && fstat(descriptor, &opened) == 0 &&
         named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

bool Lock(int descriptor, int operation) noexcept {
  int result;
  while ((result = flock(descriptor, operation)) != 0 && errno == EINTR) {
  }
  return result == 0;
}

// Another holding of the same file; -1 when there is none to be had.
int HoldAgain(int descriptor) noexcept {
  char link[32];
  snprintf(link, sizeof(link), "/proc/self/fd/%d", descriptor);
  const int result = open(link, O_RDWR | O_CLOEXEC);
  if (result < 0 || Lock(result, LOCK_SH | LOCK_NB)) return result;
  close(result);
  return -1;
}

// The holdings of this process. The lock is taken before that of the folder, and around a fork.
struct Holdings {
  std::mutex lock;
  std::set<NamedFile*> files;
};

Holdings& AllHoldings() {
  static Holdings& holdings = *new Holdings;
  return holdings;
}

}  // namespace

// What a holding is opened or closed under; notes on its end whether it is one.
class NamedFile::Operation {
 public:
  // Noted at the beginning, where a lack of memory has a caller to be told. Nothing is needed for one that is
  // noted already.
  explicit Operation(NamedFile& file)
      : mFile(file), mHoldings(AllHoldings()), mLock(mHoldings.lock), mFolderLock(file.mPath.folder) {
    mHoldings.files.insert(&mFile);
  }
  ~Operation() {
    if (mFile.mDescriptor < 0) mHoldings.files.erase(&mFile);
  }
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;
  explicit operator bool() const noexcept { return static_cast<bool>(mFolderLock); }

 private:
  NamedFile& mFile;
  Holdings& mHoldings;
  const std::lock_guard<std::mutex> mLock;
  const FolderLock mFolderLock;
};

NamedPath FindNamedPath(std::string_view name) {
  NamedPath path{MachinePath("named"), {}, ERROR_PATH_NOT_FOUND};
  if (path.folder.empty()) return path;
  path.error = ErrorFromErrno(EnsureFolder(path.folder, MachineMode(kFolderMode)));
  if (path.error != ERROR_SUCCESS) return path;
  path.file = path.folder + '/' + EncodeName(Utf8FromObjectName(PlainObjectName(name)));
  return path;
}

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

NamedFile::Result NamedFile::Create(const NamedPath& path, NamedKind kind,
                                    const SECURITY_ATTRIBUTES* security, NamedInitialiser& initialiser) {
  if (path.error != ERROR_SUCCESS) return {path.error};
  mPath = path;
  const Operation operation(*this);
  if (!operation) return {ErrorFromErrno(errno)};
  // Not O_CREAT on a file that is there: in a sticky folder the system may refuse that for another user's.
  mDescriptor = open(mPath.file.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
  if (mDescriptor < 0 && errno == ENOENT) {
    mDescriptor = open(mPath.file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
  }
  if (mDescriptor < 0) return {ErrorFromErrno(errno)};
  if (!Lock(mDescriptor, LOCK_EX | LOCK_NB)) {
    Lock(mDescriptor, LOCK_SH);
    const DWORD error = CheckKind(kind);
    return {error, error == ERROR_SUCCESS};
  }
  // Nobody holds it: whatever the file holds is of an object that has gone.
  const mode_t mode = IsOpenToAll(security) ? MachineMode(0666) : 0600;
  const NamedHeader header{NamedHeader::kMagic, kind, 0};
  DWORD error;
  if (ftruncate(mDescriptor, 0) != 0 || (fchmod(mDescriptor, mode) != 0 && errno != EPERM) ||
      pwrite(mDescriptor, &header, sizeof(header), 0) != static_cast<ssize_t>(sizeof(header))) {
    error = ErrorFromErrno(errno);
  } else {
    error = initialiser.Initialise(mDescriptor);
  }
  if (error != ERROR_SUCCESS) {
    Remove();
  } else {
    Lock(mDescriptor, LOCK_SH);
  }
  return {error};
}

DWORD NamedFile::Open(const NamedPath& path, NamedKind kind) {
  if (path.error != ERROR_SUCCESS) return path.error;
  mPath = path;
  const Operation operation(*this);
  if (!operation) return ErrorFromErrno(errno);
  mDescriptor = open(mPath.file.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
  if (mDescriptor < 0) return errno == ENOENT ? ERROR_FILE_NOT_FOUND : ErrorFromErrno(errno);
  if (Lock(mDescriptor, LOCK_EX | LOCK_NB)) {
    Remove();
    return ERROR_FILE_NOT_FOUND;
  }
  Lock(mDescriptor, LOCK_SH);
  return CheckKind(kind);
}

// Removes the file of an object that nobody else holds. Only the owner of a file may do that; another user
// leaves it, which is no harm, since an unlocked file is no object.
void NamedFile::Remove() noexcept {
  if (LeadsTo(mPath.file, mDescriptor)) unlink(mPath.file.c_str());
  LetGo();
}

void NamedFile::LetGo() noexcept {
  close(mDescriptor);
  mDescriptor = -1;
}

void NamedFile::Close() noexcept {
  if (mDescriptor < 0) return;
  const Operation operation(*this);
  if (operation && Lock(mDescriptor, LOCK_EX | LOCK_NB)) {
    Remove();
  } else {
    LetGo();
  }
}

void NamedFile::BeforeFork() noexcept {
  Holdings& holdings = AllHoldings();
  holdings.lock.lock();
  for (NamedFile* file : holdings.files) file->mChildsDescriptor = HoldAgain(file->mDescriptor);
}

void NamedFile::AfterForkInParent() noexcept {
  Holdings& holdings = AllHoldings();
  for (NamedFile* file : holdings.files) {
    if (file->mChildsDescriptor >= 0) close(file->mChildsDescriptor);
    file->mChildsDescriptor = -1;
  }
  holdings.lock.unlock();
}

void NamedFile::AfterForkInChild() noexcept {
  Holdings& holdings = AllHoldings();
  for (NamedFile* file : holdings.files) {
    close(file->mDescriptor);
    file->mDescriptor = std::exchange(file->mChildsDescriptor, -1);
  }
  std::erase_if(holdings.files, [](const NamedFile* file) { return file->mDescriptor < 0; });
  holdings.lock.unlock();
}

}  // namespace orm::platform
