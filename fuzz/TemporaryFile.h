// A file of the machine folder, for readers that take a path.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

#include "Require.h"

namespace fuzz {

class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& name) {
    const char* folder = std::getenv("ORM_MACHINE");
    Require(folder != nullptr);  // tests/support/fresh-machine makes one
    mPath = std::string(folder) + '/' + name;
  }
  // One that has its place.
  static TemporaryFile At(const std::string& path) { return TemporaryFile(path, {}); }

  [[nodiscard]] const std::string& GetPath() const { return mPath; }

  // Makes it a file with that content and nothing else.
  void Write(std::string_view content) const {
    const int file = open(mPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    Require(file >= 0 && write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
    close(file);
  }

 private:
  struct IsPath {};
  TemporaryFile(std::string path, IsPath) : mPath(std::move(path)) {}

  std::string mPath;
};

}  // namespace fuzz
