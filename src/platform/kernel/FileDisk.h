// Small things that every operation on files needs: trying a name in another case, error numbers, times and
// attributes.
#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "kernel/Errno.h"
#include "kernel/Paths.h"
#include "win32/files.h"

namespace orm::platform {

// Calls `operation(path)`, which returns a negative number and sets errno on failure, and once more with the
// spelling on the disk when the name is absent as given. *path is what was used last.
template <class Operation>
int WithCase(std::string* path, Operation&& operation) {
  const int result = operation(*path);
  if (result >= 0 || errno != ENOENT) return result;
  std::string found = ResolveCase(*path);
  if (found.empty()) return result;
  if (found == *path) {
    errno = ENOENT;
    return result;
  }
  *path = std::move(found);
  return operation(*path);
}

// The path on disk as the caller spelled it; empty with the last error set when there is none.
std::string TranslateOrFail(const char* name);
// The path as the disk spells it; empty with the last error set when that cannot be known.
std::string ResolveOrFail(const std::string& path);

// Sets the last error for a failed operation on `path`: what is missing may be the file or its folder.
void FailWith(int error, const std::string& path);

FILETIME FileTimeOf(const timespec& time);
timespec TimeOf(const FILETIME& time);
// The status of what a name in a folder leads to; of the link itself when that leads nowhere. As fstatat.
int StatusOf(int folder, const char* name, struct stat* status);
DWORD AttributesOf(const struct stat& status);

// Fills the fields that WIN32_FIND_DATAA and WIN32_FILE_ATTRIBUTE_DATA share.
template <class Data>
void FillAttributes(const struct stat& status, Data* data) {
  // A disk need not keep the time of creation: the earlier of the others is the best that is known.
  const bool isOlder = status.st_ctim.tv_sec < status.st_mtim.tv_sec;
  data->dwFileAttributes = AttributesOf(status);
  data->ftCreationTime = FileTimeOf(isOlder ? status.st_ctim : status.st_mtim);
  data->ftLastAccessTime = FileTimeOf(status.st_atim);
  data->ftLastWriteTime = FileTimeOf(status.st_mtim);
  const bool hasSize = !S_ISDIR(status.st_mode) && !S_ISLNK(status.st_mode);
  const auto size = hasSize ? static_cast<std::uint64_t>(status.st_size) : 0u;
  data->nFileSizeHigh = static_cast<DWORD>(size >> 32);
  data->nFileSizeLow = static_cast<DWORD>(size);
}

}  // namespace orm::platform
