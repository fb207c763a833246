// A folder of component libraries of its own, and how this process sees them.
#pragma once

#include <ormutil/BaseString.h>

#include <filesystem>
#include <string>
#include <vector>

class TestFolder {
 public:
  TestFolder();
  ~TestFolder();
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;

  // Puts a fixture there under its own name or another, by rename, as package managers do; its time is
  // `seconds` after a day in the past, so that versions differ without waiting.
  void Add(const std::string& fixture, unsigned seconds = 0, const std::string& name = "");
  // Puts a file with that content there.
  void AddFile(const std::string& name, const std::string& content);
  void Remove(const std::string& name);

  // The path as the class manager takes it.
  std::string GetPathText(const std::string& name = "") const;
  orm::String GetPath(const std::string& name = "") const { return GetPathText(name).c_str(); }
  std::filesystem::path GetFile(const std::string& name) const { return mPath / name; }

 private:
  std::filesystem::path mPath;
};

// The class manager's way of writing an absolute Unix path.
std::string ToPath(const std::filesystem::path& path);

// Whether a library of that file name is mapped into this process.
bool IsMapped(const std::string& name);

// Lines of the file in which fixtures note that they are loaded, in this process or another.
std::vector<std::string> GetLoads();
