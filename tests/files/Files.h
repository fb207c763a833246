// What the tests of files have in common: a folder of their own, shorthands, child processes.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include "support/Forked.h"
#include "win32.h"
#include "win32/kernel.h"

namespace filestest {

class Files : public testing::Test {
 protected:
  void SetUp() override {
    disk = std::string(getenv("ORM_MACHINE")) + "/work";
    ASSERT_EQ(mkdir(disk.c_str(), 0755), 0);
    folder = "Z:" + disk;
    for (char& c : folder) c = c == '/' ? '\\' : c;
    folder += '\\';
  }
  // A name in the folder as the interfaces and as the disk have it.
  [[nodiscard]] std::string Name(const std::string& name) const { return folder + name; }
  [[nodiscard]] std::string Disk(const std::string& name) const { return disk + '/' + name; }
  void Put(const std::string& name, const std::string& content = "x") const {
    std::ofstream(Disk(name)) << content;
  }
  [[nodiscard]] std::string Get(const std::string& name) const {
    std::stringstream content;
    content << std::ifstream(Disk(name)).rdbuf();
    return content.str();
  }
  [[nodiscard]] bool Exists(const std::string& name) const { return access(Disk(name).c_str(), F_OK) == 0; }

  std::string disk, folder;
};

// A handle that closes itself, or the error that kept it from being one.
class Opened {
 public:
  Opened(const std::string& name, DWORD access, DWORD share, DWORD disposition, DWORD flags = 0,
         SECURITY_ATTRIBUTES* attributes = nullptr)
      : handle(CreateFileA(name.c_str(), access, share, attributes, disposition, flags, nullptr)),
        error(GetLastError()) {}
  ~Opened() { Close(); }
  Opened(const Opened&) = delete;
  Opened& operator=(const Opened&) = delete;
  void Close() {
    if (handle != INVALID_HANDLE_VALUE) CloseHandle(handle);
    handle = INVALID_HANDLE_VALUE;
  }
  operator HANDLE() const { return handle; }
  [[nodiscard]] bool IsOpen() const { return handle != INVALID_HANDLE_VALUE; }

  HANDLE handle;
  DWORD error;
};

using test::InChild;

}  // namespace filestest
