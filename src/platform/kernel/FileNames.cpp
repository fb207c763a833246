// Files and folders by name: attributes, removal, renaming.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "kernel/Errno.h"
#include "kernel/File.h"
#include "kernel/Paths.h"
#include "win32.h"

namespace orm::platform {

namespace {

BOOL Fail(DWORD error) {
  SetLastError(error);
  return FALSE;
}

// Turns the name into a path on disk; false with the last error when it names nothing.
bool Translate(const char* name, std::string* path) {
  if (name == nullptr) return Fail(ERROR_INVALID_PARAMETER) != FALSE;
  DWORD error = ERROR_SUCCESS;
  *path = UnixPath(name, &error);
  return !path->empty() || Fail(error) != FALSE;
}

bool Status(const char* name, struct stat* status) {
  std::string path;
  if (!Translate(name, &path)) return false;
  return stat(path.c_str(), status) == 0 || Fail(PathError(errno, path)) != FALSE;
}

BOOL Finish(int result, const std::string& path) {
  return result == 0 ? TRUE : Fail(PathError(errno, path));
}

}  // namespace

DWORD AttributesFromMode(mode_t mode) noexcept {
  const DWORD readOnly = (mode & 0222) == 0 ? FILE_ATTRIBUTE_READONLY : 0;
  return (S_ISDIR(mode) ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE) | readOnly;
}

}  // namespace orm::platform

using namespace orm::platform;

extern "C" {

DWORD GetFileAttributesA(const char* name) {
  struct stat status {};
  return Status(name, &status) ? AttributesFromMode(status.st_mode) : INVALID_FILE_ATTRIBUTES;
}

BOOL GetFileAttributesExA(const char* name, GET_FILEEX_INFO_LEVELS level, void* data) {
  if (level != GetFileExInfoStandard || data == nullptr) return Fail(ERROR_INVALID_PARAMETER);
  struct stat status {};
  if (!Status(name, &status)) return FALSE;
  const auto size = static_cast<uint64_t>(status.st_size);
  *static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(data) = {
      AttributesFromMode(status.st_mode), FileTimeFromDisk(status.st_ctim), FileTimeFromDisk(status.st_atim),
      FileTimeFromDisk(status.st_mtim),   static_cast<DWORD>(size >> 32),   static_cast<DWORD>(size)};
  return TRUE;
}

BOOL DeleteFileA(const char* name) {
  std::string path;
  return Translate(name, &path) ? Finish(unlink(path.c_str()), path) : FALSE;
}

BOOL MoveFileExA(const char* from, const char* to, DWORD flags) {
  std::string source, target;
  if (!Translate(from, &source) || !Translate(to, &target)) return FALSE;
  const unsigned keep = (flags & MOVEFILE_REPLACE_EXISTING) != 0 ? 0 : RENAME_NOREPLACE;
  if (renameat2(AT_FDCWD, source.c_str(), AT_FDCWD, target.c_str(), keep) == 0) return TRUE;
  return Fail(errno == EEXIST ? ERROR_ALREADY_EXISTS : PathError(errno, source));
}

BOOL CreateDirectoryA(const char* name, SECURITY_ATTRIBUTES* attributes) {
  std::string path;
  if (!Translate(name, &path)) return FALSE;
  if (mkdir(path.c_str(), 0777) != 0)
    return Fail(errno == EEXIST ? ERROR_ALREADY_EXISTS : PathError(errno, path));
  const auto* descriptor = attributes == nullptr
                               ? nullptr
                               : static_cast<const SECURITY_DESCRIPTOR*>(attributes->lpSecurityDescriptor);
  if (descriptor != nullptr && (descriptor->Control & SE_DACL_PRESENT) != 0 && descriptor->Dacl == nullptr) {
    (void)chmod(path.c_str(), 01777);
  }
  return TRUE;
}

BOOL RemoveDirectoryA(const char* name) {
  std::string path;
  if (!Translate(name, &path)) return FALSE;
  if (rmdir(path.c_str()) == 0) return TRUE;
  if (errno == ENOTEMPTY || errno == EEXIST) return Fail(ERROR_DIR_NOT_EMPTY);
  return Fail(errno == ENOTDIR ? ERROR_DIRECTORY : PathError(errno, path));
}

}  // extern "C"
