// What every operation on files needs.
#include "kernel/FileDisk.h"

#include <fcntl.h>

#include <algorithm>
#include <limits>

#include "kernel/Object.h"

namespace orm::platform {
namespace {

constexpr std::int64_t secondsTo1970 = 11644473600;
constexpr std::int64_t ticksPerSecond = 10000000;
constexpr std::int64_t firstTick = 1;  // 0 is no time to those who ask
constexpr std::int64_t lastSecond =
    std::numeric_limits<std::int64_t>::max() / ticksPerSecond - 1 - secondsTo1970;

}  // namespace

std::string TranslateOrFail(const char* name) {
  DWORD error = ERROR_SUCCESS;
  std::string path = TranslatePath(name == nullptr ? "" : name, &error);
  if (path.empty()) SetLastErrorCode(error);
  return path;
}

std::string ResolveOrFail(const std::string& path) {
  std::string found = ResolveCase(path);
  if (found.empty()) SetLastErrorCode(ErrorFromErrno(errno));
  return found;
}

void FailWith(int error, const std::string& path) {
  DWORD code = ErrorFromErrno(error);
  if (error == ENOENT) {
    const std::string parent = path.substr(0, std::max<std::size_t>(path.rfind('/'), 1));
    struct stat status {};
    const std::string folder = ResolveCase(parent);
    if (folder.empty()) {
      code = ErrorFromErrno(errno);
    } else if (stat(folder.c_str(), &status) != 0) {
      code = ERROR_PATH_NOT_FOUND;
    }
  }
  SetLastErrorCode(code);
}

FILETIME FileTimeOf(const timespec& time) {
  const std::int64_t seconds =
      std::clamp(std::int64_t{time.tv_sec}, -secondsTo1970, lastSecond) + secondsTo1970;
  const std::int64_t ticks = std::max(seconds * ticksPerSecond + time.tv_nsec / 100, firstTick);
  return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

timespec TimeOf(const FILETIME& time) {
  const auto ticks = static_cast<std::int64_t>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
  return {ticks / ticksPerSecond - secondsTo1970, ticks % ticksPerSecond * 100};
}

int StatusOf(int folder, const char* name, struct stat* status) {
  return fstatat(folder, name, status, 0) == 0 ? 0 : fstatat(folder, name, status, AT_SYMLINK_NOFOLLOW);
}

DWORD AttributesOf(const struct stat& status) {
  if (S_ISLNK(status.st_mode)) return FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_REPARSE_POINT;
  if (S_ISDIR(status.st_mode)) return FILE_ATTRIBUTE_DIRECTORY;
  const bool isReadOnly = (status.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
  return FILE_ATTRIBUTE_ARCHIVE | (isReadOnly ? FILE_ATTRIBUTE_READONLY : 0);
}

}  // namespace orm::platform
