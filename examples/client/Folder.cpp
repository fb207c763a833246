// Registering a folder, and looking at what the process has loaded.
#include <filesystem>
#include <fstream>
#include <set>

#include "Commands.h"

RegisteredFolder::RegisteredFolder(const std::string& folder) {
  // Drive z: of the machine is the root of the file system.
  const std::string path = "z:" + std::filesystem::absolute(folder).lexically_normal().string();
  mCookie = orm::GetClassMgr()->Register(path.c_str());
}

std::string DescribeLoadedLibraries() {
  std::set<std::string> names;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.ends_with(".dll")) names.insert(line.substr(line.rfind('/') + 1));
  }
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text.empty() ? "none" : text;
}
