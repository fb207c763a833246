// The entries of a folder on disk, one after the other. That there are no more of them and that they cannot
// be read are two things here.
#pragma once

#include <dirent.h>

#include <cerrno>
#include <memory>
#include <string>

namespace orm::platform {

class FolderReader {
 public:
  explicit FolderReader(const std::string& path) : mFolder(opendir(path.c_str()), closedir) {
    if (!mFolder) mError = errno;
  }

  // The next entry, valid until the next call; null at the end and when the folder cannot be read, or not to
  // its end, which GetError tells apart.
  const dirent* Next() {
    if (!mFolder) return nullptr;
    errno = 0;  // the end leaves it alone
    const dirent* entry = readdir(mFolder.get());
    if (entry == nullptr) mError = errno;
    return entry;
  }

  [[nodiscard]] bool IsOpen() const { return mFolder != nullptr; }
  // An errno value; 0 while nothing has failed.
  [[nodiscard]] int GetError() const { return mError; }
  [[nodiscard]] int GetDescriptor() const { return dirfd(mFolder.get()); }

 private:
  std::unique_ptr<DIR, int (*)(DIR*)> mFolder;
  int mError = 0;
};

}  // namespace orm::platform
