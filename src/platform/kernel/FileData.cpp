// Reading and writing open files: content, position, size, times.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "kernel/File.h"
#include "kernel/FileDisk.h"
#include "win32/files.h"

namespace orm::platform {
namespace {

BOOL Fail(DWORD error) {
  SetLastErrorCode(error);
  return FALSE;
}

BOOL Result(int result) {
  return result == 0 ? TRUE : Fail(ErrorFromErrno(errno));
}

// Calls `transfer(done)` until all bytes are through, nothing moves any more, or it fails.
template <class Transfer>
bool TransferAll(DWORD size, DWORD* done, Transfer&& transfer) {
  *done = 0;
  while (*done < size) {
    const ssize_t moved = transfer(*done);
    if (moved < 0 && errno == EINTR) continue;
    if (moved < 0) return false;
    if (moved == 0) break;
    *done += static_cast<DWORD>(moved);
  }
  return true;
}

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

BOOL ReadFile(HANDLE file, void* buffer, DWORD size, DWORD* read, void* overlapped) noexcept {
  DWORD done = 0;
  if (read != nullptr) *read = 0;
  const HandlePin pin(file);
  const File* object = PinnedAs<File>(pin);
  if (object == nullptr) return FALSE;
  if (overlapped != nullptr || (buffer == nullptr && size != 0)) return Fail(ERROR_INVALID_PARAMETER);
  if (!object->CanRead()) return Fail(ERROR_ACCESS_DENIED);
  const bool isWhole = TransferAll(size, &done, [&](DWORD from) {
    return ::read(object->FileDescriptor(), static_cast<BYTE*>(buffer) + from, size - from);
  });
  if (read != nullptr) *read = done;
  return isWhole ? TRUE : Fail(ErrorFromErrno(errno));
}

BOOL WriteFile(HANDLE file, const void* buffer, DWORD size, DWORD* written, void* overlapped) noexcept {
  DWORD done = 0;
  if (written != nullptr) *written = 0;
  const HandlePin pin(file);
  const File* object = PinnedAs<File>(pin);
  if (object == nullptr) return FALSE;
  if (overlapped != nullptr || (buffer == nullptr && size != 0)) return Fail(ERROR_INVALID_PARAMETER);
  if (!object->CanWrite()) return Fail(ERROR_ACCESS_DENIED);
  const bool isWhole = TransferAll(size, &done, [&](DWORD from) {
    return ::write(object->FileDescriptor(), static_cast<const BYTE*>(buffer) + from, size - from);
  });
  if (written != nullptr) *written = done;
  if (!isWhole) return Fail(ErrorFromErrno(errno));
  return done == size ? TRUE : Fail(ERROR_DISK_FULL);
}

DWORD SetFilePointer(HANDLE file, LONG distance, LONG* distanceHigh, DWORD method) noexcept {
  const HandlePin pin(file);
  const File* object = PinnedAs<File>(pin);
  if (object == nullptr) return INVALID_SET_FILE_POINTER;
  if (method > FILE_END) {
    SetLastErrorCode(ERROR_INVALID_PARAMETER);
    return INVALID_SET_FILE_POINTER;
  }
  static constexpr int origins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
  const std::int64_t offset =
      distanceHigh == nullptr
          ? distance
          : static_cast<std::int64_t>(static_cast<std::uint64_t>(static_cast<std::uint32_t>(*distanceHigh))
                                          << 32 |
                                      static_cast<std::uint32_t>(distance));
  const off_t position = lseek(object->FileDescriptor(), offset, origins[method]);
  if (position < 0) {
    SetLastErrorCode(errno == EINVAL ? ERROR_NEGATIVE_SEEK : ErrorFromErrno(errno));
    return INVALID_SET_FILE_POINTER;
  }
  if (distanceHigh != nullptr) *distanceHigh = static_cast<LONG>(position >> 32);
  const auto low = static_cast<DWORD>(position);
  if (low == INVALID_SET_FILE_POINTER) SetLastErrorCode(ERROR_SUCCESS);
  return low;
}

BOOL SetEndOfFile(HANDLE file) noexcept {
  const HandlePin pin(file);
  const File* object = PinnedAs<File>(pin);
  if (object == nullptr) return FALSE;
  if (!object->CanWrite()) return Fail(ERROR_ACCESS_DENIED);
  const off_t position = lseek(object->FileDescriptor(), 0, SEEK_CUR);
  return position < 0 ? Result(-1) : Result(ftruncate(object->FileDescriptor(), position));
}

BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size) noexcept {
  const HandlePin pin(file);
  const File* object = PinnedAs<File>(pin);
  if (object == nullptr) return FALSE;
  struct stat status {};
  if (size == nullptr) return Fail(ERROR_INVALID_PARAMETER);
  if (fstat(object->FileDescriptor(), &status) != 0) return Result(-1);
  size->QuadPart = status.st_size;
  return TRUE;
}

DWORD GetFileSize(HANDLE file, DWORD* sizeHigh) noexcept {
  LARGE_INTEGER size{};
  if (!GetFileSizeEx(file, &size)) return INVALID_FILE_SIZE;
  if (sizeHigh != nullptr) *sizeHigh = static_cast<DWORD>(size.u.HighPart);
  if (size.u.LowPart == INVALID_FILE_SIZE) SetLastErrorCode(ERROR_SUCCESS);
  return size.u.LowPart;
}

BOOL FlushFileBuffers(HANDLE file) noexcept {
  const HandlePin pin(file);
  const File* object = PinnedAs<File>(pin);
  if (object == nullptr) return FALSE;
  if (!object->CanWrite()) return Fail(ERROR_ACCESS_DENIED);
  // With the size, but without times that nobody needs to read the data again.
  return Result(fdatasync(object->FileDescriptor()));
}

BOOL GetFileTime(HANDLE file, FILETIME* creation, FILETIME* access, FILETIME* write) noexcept {
  const HandlePin pin(file);
  const File* object = PinnedAs<File>(pin);
  if (object == nullptr) return FALSE;
  struct stat status {};
  if (fstat(object->FileDescriptor(), &status) != 0) return Result(-1);
  WIN32_FILE_ATTRIBUTE_DATA data{};
  FillAttributes(status, &data);
  if (creation != nullptr) *creation = data.ftCreationTime;
  if (access != nullptr) *access = data.ftLastAccessTime;
  if (write != nullptr) *write = data.ftLastWriteTime;
  return TRUE;
}

BOOL SetFileTime(HANDLE file, const FILETIME*, const FILETIME* access, const FILETIME* write) noexcept {
  const HandlePin pin(file);
  const File* object = PinnedAs<File>(pin);
  if (object == nullptr) return FALSE;
  const timespec untouched{0, UTIME_OMIT};
  const timespec times[] = {access != nullptr ? TimeOf(*access) : untouched,
                            write != nullptr ? TimeOf(*write) : untouched};
  return Result(futimens(object->FileDescriptor(), times));
}
