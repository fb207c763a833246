// The client's commands. Each returns the program's exit code and throws what goes wrong.
#pragma once

#include <ormutil/ClassManager.h>
#include <ormutil/Error.h>

#include <string>
#include <vector>

int ListClasses(const std::string& folder);
int UseClasses(const std::string& folder, const std::vector<std::string>& files, std::string database);
int WatchClasses(const std::string& folder, unsigned changes, unsigned seconds);
int ShowErrors(const std::string& folder);

// A folder registered for the life of this object.
class RegisteredFolder {
 public:
  explicit RegisteredFolder(const std::string& folder);
  ~RegisteredFolder() { orm::GetClassMgr()->Unregister(mCookie); }
  RegisteredFolder(const RegisteredFolder&) = delete;
  RegisteredFolder& operator=(const RegisteredFolder&) = delete;

 private:
  DWORD mCookie;
};

// "none", or the names of the component libraries that this process has in memory.
std::string DescribeLoadedLibraries();
