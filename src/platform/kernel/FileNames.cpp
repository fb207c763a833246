// Files and folders by name: attributes, deletion, renaming, making folders.
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include "kernel/Descriptor.h"
#include "kernel/FileDisk.h"
#include "kernel/NamedFile.h"
#include "kernel/NoMemory.h"
#include "kernel/Object.h"
#include "win32/files.h"
#include "win32/kernel.h"

namespace orm::platform {
namespace {

// Runs an operation on a name and turns its result into the platform's.
template <class Operation>
BOOL OnName(const char* name, Operation&& operation) {
  std::string path = TranslateOrFail(name);
  if (path.empty()) return FALSE;
  if (WithCase(&path, [&](const std::string& used) { return operation(used.c_str()); }) >= 0) return TRUE;
  FailWith(errno, path);
  return FALSE;
}

void SyncFolder(const std::string& path) {
  const Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder.IsOpen()) fsync(folder.Get());
}

// The name that a rename gives: the target as it is spelled on the disk, unless that is the file itself,
// whose spelling is to change. Empty with the last error set when it cannot be known.
std::string TargetOf(const std::string& from, const std::string& to) {
  std::string found = ResolveOrFail(to);
  if (found != from) return found;
  return found.substr(0, found.rfind('/')) + to.substr(to.rfind('/'));
}

// Takes the name for something empty of the same kind first, which the renaming replaces. Whoever comes
// meanwhile finds the name taken; and a folder that is no longer empty is not replaced.
int RenameOverPlaceholder(const char* from, const char* to) {
  struct stat status {};
  if (lstat(from, &status) != 0) return -1;
  const bool isFolder = S_ISDIR(status.st_mode);
  const Descriptor file(isFolder ? -1 : open(to, O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600));
  if (isFolder ? mkdir(to, 0700) != 0 : !file.IsOpen()) return -1;
  if (rename(from, to) == 0) return 0;
  const int error = errno;
  isFolder ? rmdir(to) : unlink(to);
  errno = error;
  return -1;
}

// Renames to a name that is free. Some disks (of the network, mostly) cannot do that in one step: a file gets
// a second name first, for which nothing is ever replaced. Folders cannot have two, nor have files
// everywhere.
int RenameToFreeName(const char* from, const char* to) {
  if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL) return -1;
  if (link(from, to) == 0) {
    if (unlink(from) == 0) return 0;
    const int error = errno;
    unlink(to);
    errno = error;
    return -1;
  }
  return errno == EEXIST ? -1 : RenameOverPlaceholder(from, to);
}

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

DWORD GetFileAttributesA(const char* name) noexcept {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  return GetFileAttributesExA(name, GetFileExInfoStandard, &data) ? data.dwFileAttributes
                                                                  : INVALID_FILE_ATTRIBUTES;
}

BOOL GetFileAttributesExA(const char* name, GET_FILEEX_INFO_LEVELS level, void* data) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    if (level != GetFileExInfoStandard || data == nullptr) {
      SetLastErrorCode(ERROR_INVALID_PARAMETER);
      return FALSE;
    }
    struct stat status {};
    if (!OnName(name, [&](const char* path) { return StatusOf(AT_FDCWD, path, &status); })) return FALSE;
    FillAttributes(status, static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(data));
    return TRUE;
  });
}

BOOL DeleteFileA(const char* name) noexcept {
  return OrNoMemory(FALSE, [&] { return OnName(name, unlink); });
}

BOOL RemoveDirectoryA(const char* name) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    if (OnName(name, rmdir)) return TRUE;
    const DWORD error = GetLastError();
    const DWORD attributes = GetFileAttributesA(name);
    const bool isNoFolder =
        attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
    SetLastErrorCode(isNoFolder ? ERROR_DIRECTORY : error);
    return FALSE;
  });
}

BOOL CreateDirectoryA(const char* name, SECURITY_ATTRIBUTES* attributes) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    const std::string translated = TranslateOrFail(name);
    if (translated.empty()) return FALSE;
    // A folder whose name differs by case only is the same folder.
    const std::string path = ResolveOrFail(translated);
    if (path.empty()) return FALSE;
    const mode_t mode = IsOpenToAll(attributes) ? 01777 : 0777;
    if (mkdir(path.c_str(), mode) == 0) {
      if (mode == 01777) chmod(path.c_str(), mode);
      return TRUE;
    }
    FailWith(errno, path);
    // What is missing here is the folder in which the new one is to be.
    if (errno == ENOENT) SetLastErrorCode(ERROR_PATH_NOT_FOUND);
    return FALSE;
  });
}

BOOL MoveFileExA(const char* from, const char* to, DWORD flags) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    std::string source = TranslateOrFail(from);
    const std::string target = source.empty() ? source : TranslateOrFail(to);
    if (source.empty() || target.empty()) return FALSE;
    source = ResolveOrFail(source);
    const std::string path = source.empty() ? source : TargetOf(source, target);
    if (path.empty()) return FALSE;
    const std::string folder = path.substr(0, std::max<std::size_t>(path.rfind('/'), 1));
    const bool replaces = (flags & MOVEFILE_REPLACE_EXISTING) != 0;
    if ((replaces ? rename : RenameToFreeName)(source.c_str(), path.c_str()) == 0) {
      if ((flags & MOVEFILE_WRITE_THROUGH) != 0) SyncFolder(folder);
      return TRUE;
    }
    const int error = errno;
    struct stat status {};
    FailWith(error, lstat(source.c_str(), &status) != 0 ? source : path);
    if (error == EXDEV) SetLastErrorCode(ERROR_NOT_SAME_DEVICE);
    // A folder cannot be replaced.
    if (replaces && (error == EEXIST || error == ENOTEMPTY || error == ENOTDIR))
      SetLastErrorCode(ERROR_ACCESS_DENIED);
    return FALSE;
  });
}
