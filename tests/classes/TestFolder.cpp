// Folders of fixtures.
#include "TestFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

namespace fs = std::filesystem;

namespace {

std::string GetLogPath() {
  const char* path = std::getenv("ORM_FIXTURE_LOG");
  return path ? path : "";
}

}  // namespace

TestFolder::TestFolder() {
  // The machine's folder goes with the test, and this one with it.
  const char* machine = std::getenv("ORM_MACHINE");
  static int number = 0;
  mPath = fs::path(machine ? machine : "/tmp") /
          ("components" + std::to_string(getpid()) + "." + std::to_string(++number));
  fs::create_directories(mPath);
  setenv("ORM_FIXTURE_LOG", (mPath.string() + ".log").c_str(), 0);
}

TestFolder::~TestFolder() {
  std::error_code ignored;
  fs::remove_all(mPath, ignored);
}

void TestFolder::Add(const std::string& fixture, unsigned seconds, const std::string& name) {
  const fs::path target = mPath / (name.empty() ? fixture + ".dll" : name);
  const fs::path temporary = target.string() + ".new";
  fs::copy_file(fs::path(ORM_FIXTURES) / (fixture + ".dll"), temporary, fs::copy_options::overwrite_existing);
  const timespec time{1'700'000'000 + static_cast<time_t>(seconds), 0};
  const timespec times[2] = {time, time};
  utimensat(AT_FDCWD, temporary.c_str(), times, 0);
  fs::rename(temporary, target);
}

void TestFolder::AddFile(const std::string& name, const std::string& content) {
  std::ofstream(mPath / name, std::ios::binary) << content;
}

void TestFolder::Remove(const std::string& name) {
  fs::remove(mPath / name);
}

std::string TestFolder::GetPathText(const std::string& name) const {
  return ToPath(name.empty() ? mPath : mPath / name);
}

std::string ToPath(const fs::path& path) {
  std::string text = "z:" + path.string();
  for (char& c : text) c = c == '/' ? '\\' : c;
  return text;
}

bool IsMapped(const std::string& name) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find("/" + name) != std::string::npos) return true;
  }
  return false;
}

std::vector<std::string> GetLoads() {
  std::vector<std::string> loads;
  std::ifstream log(GetLogPath());
  for (std::string line; std::getline(log, line);) loads.push_back(line);
  return loads;
}
