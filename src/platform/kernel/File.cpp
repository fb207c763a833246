// Opening, reading and writing files.
#include "kernel/File.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include "kernel/Errno.h"
#include "kernel/Paths.h"
#include "kernel/ShareMode.h"
#include "win32.h"

namespace orm::platform {

namespace {

constexpr int64_t UNIX_EPOCH = 116444736000000000;  // 1970-01-01 in 100 ns units since 1601-01-01

struct OpenRequest {
  std::string path;
  bool reads, writes, appends;
  DWORD disposition;
  DWORD flags;
  bool openToAll;
};

bool IsOpenToAll(const SECURITY_ATTRIBUTES* attributes) {
  if (attributes == nullptr || attributes->lpSecurityDescriptor == nullptr) return false;
  const auto* descriptor = static_cast<const SECURITY_DESCRIPTOR*>(attributes->lpSecurityDescriptor);
  return (descriptor->Control & SE_DACL_PRESENT) != 0 && descriptor->Dacl == nullptr;
}

int OpenFlags(const OpenRequest& request) {
  // A file that is written needs to be readable as well, for the locks of its share mode.
  int flags = O_CLOEXEC | O_NOCTTY | (request.writes ? O_RDWR : O_RDONLY);
  if (request.appends) flags |= O_APPEND;
  if ((request.flags & FILE_FLAG_WRITE_THROUGH) != 0) flags |= O_DSYNC;
  return flags;
}

int TryOpen(const OpenRequest& request, int extraFlags) {
  int flags = OpenFlags(request) | extraFlags;
  const int descriptor = open(request.path.c_str(), flags, 0666);
  if (descriptor >= 0 || errno != EACCES || !request.writes || request.reads) return descriptor;
  // Writable but not readable: without share mode then.
  flags = (flags & ~O_ACCMODE) | O_WRONLY;
  return open(request.path.c_str(), flags, 0666);
}

// The descriptor, or -1 with errno; *existed tells whether the file was there.
int OpenByDisposition(const OpenRequest& request, bool* existed) {
  *existed = true;
  const bool mayCreate = request.disposition != OPEN_EXISTING && request.disposition != TRUNCATE_EXISTING;
  for (;;) {
    if (request.disposition != CREATE_NEW) {
      const int descriptor = TryOpen(request, 0);
      if (descriptor >= 0 || errno != ENOENT || !mayCreate) return descriptor;
    }
    *existed = false;
    const int descriptor = TryOpen(request, O_CREAT | O_EXCL);
    if (descriptor >= 0 && request.openToAll) (void)fchmod(descriptor, 0666);
    if (descriptor >= 0 || errno != EEXIST || request.disposition == CREATE_NEW) return descriptor;
    *existed = true;  // somebody made it meanwhile
  }
}

void Advise(int descriptor, DWORD flags) {
  if ((flags & FILE_FLAG_SEQUENTIAL_SCAN) != 0) (void)posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
  if ((flags & FILE_FLAG_RANDOM_ACCESS) != 0) (void)posix_fadvise(descriptor, 0, 0, POSIX_FADV_RANDOM);
}

HANDLE Fail(DWORD error) {
  SetLastError(error);
  return INVALID_HANDLE_VALUE;
}

HANDLE Open(const OpenRequest& request, DWORD share) {
  bool existed = false;
  const int descriptor = OpenByDisposition(request, &existed);
  if (descriptor < 0) return Fail(PathError(errno, request.path));
  const bool deletes = (request.flags & FILE_FLAG_DELETE_ON_CLOSE) != 0;
  auto file =
      MakeRef<FileObject>(descriptor, request.reads, request.writes, deletes ? request.path : std::string());

  struct stat status {};
  if (fstat(descriptor, &status) != 0) return Fail(ErrorFromErrno(errno));
  if (S_ISDIR(status.st_mode) && (request.flags & FILE_FLAG_BACKUP_SEMANTICS) == 0)
    return Fail(ERROR_ACCESS_DENIED);
  if (S_ISREG(status.st_mode) && !ClaimShareMode(descriptor, request.reads, request.writes, share)) {
    return Fail(ERROR_SHARING_VIOLATION);
  }
  const bool truncates = request.disposition == CREATE_ALWAYS || request.disposition == TRUNCATE_EXISTING;
  if (existed && truncates && ftruncate(descriptor, 0) != 0) return Fail(ErrorFromErrno(errno));
  Advise(descriptor, request.flags);

  const HANDLE handle = AllocateHandle(std::move(file));
  if (handle == nullptr) return INVALID_HANDLE_VALUE;
  const bool always = request.disposition == CREATE_ALWAYS || request.disposition == OPEN_ALWAYS;
  SetLastError(existed && always ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
  return handle;
}

BOOL FailFalse(DWORD error) {
  SetLastError(error);
  return FALSE;
}

}  // namespace

FileObject::~FileObject() {
  if (!mDeleteOnClose.empty()) (void)unlink(mDeleteOnClose.c_str());
  close(mDescriptor);
}

DWORD PathError(int error, const std::string& unixPath) {
  if (error == EISDIR) return ERROR_ACCESS_DENIED;
  if (error == ENOTDIR) return ERROR_PATH_NOT_FOUND;
  if (error != ENOENT) return ErrorFromErrno(error);
  const size_t slash = unixPath.rfind('/');
  struct stat status {};
  const bool hasFolder = slash == std::string::npos || slash == 0 ||
                         (stat(unixPath.substr(0, slash).c_str(), &status) == 0 && S_ISDIR(status.st_mode));
  return hasFolder ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
}

FILETIME FileTimeFromDisk(const timespec& time) noexcept {
  const auto ticks = static_cast<uint64_t>(UNIX_EPOCH + int64_t{time.tv_sec} * 10000000 + time.tv_nsec / 100);
  return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

timespec DiskTimeFromFileTime(const FILETIME& time) noexcept {
  const auto ticks =
      static_cast<int64_t>(uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime) - UNIX_EPOCH;
  int64_t seconds = ticks / 10000000;
  int64_t rest = ticks % 10000000;
  if (rest < 0) {
    --seconds;
    rest += 10000000;
  }
  return {seconds, rest * 100};
}

}  // namespace orm::platform

using namespace orm::platform;

extern "C" {

HANDLE CreateFileA(const char* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* attributes,
                   DWORD disposition, DWORD flagsAndAttributes, HANDLE) {
  if (name == nullptr || disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  const bool writesData = (access & (GENERIC_WRITE | GENERIC_ALL | FILE_WRITE_DATA)) != 0;
  const bool appends = !writesData && (access & FILE_APPEND_DATA) != 0;
  const bool reads = (access & (GENERIC_READ | GENERIC_ALL | FILE_READ_DATA)) != 0;
  if (disposition == TRUNCATE_EXISTING && !writesData) return Fail(ERROR_INVALID_PARAMETER);
  DWORD error = ERROR_SUCCESS;
  std::string path = UnixPath(name, &error);
  if (path.empty()) return Fail(error);
  return Open({std::move(path), reads, writesData || appends, appends, disposition, flagsAndAttributes,
               IsOpenToAll(attributes)},
              share);
}

BOOL ReadFile(HANDLE file, void* buffer, DWORD size, DWORD* read, void* overlapped) {
  if (read != nullptr) *read = 0;
  if (overlapped != nullptr || read == nullptr) return FailFalse(ERROR_INVALID_PARAMETER);
  const HandlePin pin(file);
  const auto* object = PinnedAs<FileObject>(pin);
  if (object == nullptr) return FALSE;
  if (!object->CanRead()) return FailFalse(ERROR_ACCESS_DENIED);
  while (*read < size) {
    const ssize_t n = ::read(object->FileDescriptor(), static_cast<BYTE*>(buffer) + *read, size - *read);
    if (n == 0) break;
    if (n > 0) {
      *read += static_cast<DWORD>(n);
    } else if (errno != EINTR) {
      return FailFalse(ErrorFromErrno(errno));
    }
  }
  return TRUE;
}

BOOL WriteFile(HANDLE file, const void* buffer, DWORD size, DWORD* written, void* overlapped) {
  if (written != nullptr) *written = 0;
  if (overlapped != nullptr || written == nullptr) return FailFalse(ERROR_INVALID_PARAMETER);
  const HandlePin pin(file);
  const auto* object = PinnedAs<FileObject>(pin);
  if (object == nullptr) return FALSE;
  if (!object->CanWrite()) return FailFalse(ERROR_ACCESS_DENIED);
  while (*written < size) {
    const ssize_t n =
        write(object->FileDescriptor(), static_cast<const BYTE*>(buffer) + *written, size - *written);
    if (n >= 0) {
      *written += static_cast<DWORD>(n);
    } else if (errno != EINTR) {
      return FailFalse(ErrorFromErrno(errno));
    }
  }
  return TRUE;
}

DWORD SetFilePointer(HANDLE file, LONG distance, LONG* distanceHigh, DWORD method) {
  const HandlePin pin(file);
  const auto* object = PinnedAs<FileObject>(pin);
  if (object == nullptr) return INVALID_SET_FILE_POINTER;
  const int64_t offset = distanceHigh == nullptr
                             ? int64_t{distance}
                             : static_cast<int64_t>(uint64_t{static_cast<DWORD>(*distanceHigh)} << 32 |
                                                    static_cast<DWORD>(distance));
  const int whence = method == FILE_BEGIN ? SEEK_SET : method == FILE_CURRENT ? SEEK_CUR : SEEK_END;
  if (method > FILE_END) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return INVALID_SET_FILE_POINTER;
  }
  const off_t position = lseek(object->FileDescriptor(), offset, whence);
  if (position < 0) {
    SetLastError(errno == EINVAL ? ERROR_NEGATIVE_SEEK : ErrorFromErrno(errno));
    return INVALID_SET_FILE_POINTER;
  }
  if (distanceHigh != nullptr) *distanceHigh = static_cast<LONG>(position >> 32);
  SetLastError(ERROR_SUCCESS);
  return static_cast<DWORD>(position);
}

BOOL SetEndOfFile(HANDLE file) {
  const HandlePin pin(file);
  const auto* object = PinnedAs<FileObject>(pin);
  if (object == nullptr) return FALSE;
  if (!object->CanWrite()) return FailFalse(ERROR_ACCESS_DENIED);
  const off_t position = lseek(object->FileDescriptor(), 0, SEEK_CUR);
  if (position < 0 || ftruncate(object->FileDescriptor(), position) != 0)
    return FailFalse(ErrorFromErrno(errno));
  return TRUE;
}

BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size) {
  const HandlePin pin(file);
  const auto* object = PinnedAs<FileObject>(pin);
  if (object == nullptr) return FALSE;
  struct stat status {};
  if (fstat(object->FileDescriptor(), &status) != 0) return FailFalse(ErrorFromErrno(errno));
  size->QuadPart = status.st_size;
  return TRUE;
}

DWORD GetFileSize(HANDLE file, DWORD* sizeHigh) {
  LARGE_INTEGER size{};
  if (!GetFileSizeEx(file, &size)) return INVALID_FILE_SIZE;
  if (sizeHigh != nullptr) *sizeHigh = static_cast<DWORD>(size.QuadPart >> 32);
  SetLastError(ERROR_SUCCESS);
  return static_cast<DWORD>(size.QuadPart);
}

BOOL FlushFileBuffers(HANDLE file) {
  const HandlePin pin(file);
  const auto* object = PinnedAs<FileObject>(pin);
  if (object == nullptr) return FALSE;
  if (!object->CanWrite()) return FailFalse(ERROR_ACCESS_DENIED);
  return fdatasync(object->FileDescriptor()) == 0 ? TRUE : FailFalse(ErrorFromErrno(errno));
}

BOOL GetFileTime(HANDLE file, FILETIME* creation, FILETIME* access, FILETIME* write) {
  const HandlePin pin(file);
  const auto* object = PinnedAs<FileObject>(pin);
  if (object == nullptr) return FALSE;
  struct stat status {};
  if (fstat(object->FileDescriptor(), &status) != 0) return FailFalse(ErrorFromErrno(errno));
  if (creation != nullptr) *creation = FileTimeFromDisk(status.st_ctim);
  if (access != nullptr) *access = FileTimeFromDisk(status.st_atim);
  if (write != nullptr) *write = FileTimeFromDisk(status.st_mtim);
  return TRUE;
}

BOOL SetFileTime(HANDLE file, const FILETIME*, const FILETIME* access, const FILETIME* write) {
  const HandlePin pin(file);
  const auto* object = PinnedAs<FileObject>(pin);
  if (object == nullptr) return FALSE;
  timespec times[2] = {{0, UTIME_OMIT}, {0, UTIME_OMIT}};
  if (access != nullptr) times[0] = DiskTimeFromFileTime(*access);
  if (write != nullptr) times[1] = DiskTimeFromFileTime(*write);
  return futimens(object->FileDescriptor(), times) == 0 ? TRUE : FailFalse(ErrorFromErrno(errno));
}

}  // extern "C"
