// Listing classes, watching them, and errors.
#include <chrono>
#include <cstdio>
#include <map>
#include <thread>

#include "Commands.h"

namespace {

using orm::GetClassMgr;
using orm::String;

// Library path by class id; empty for classes that come from this process itself.
std::map<String, String> GetClasses() {
  std::vector<String> ids;
  GetClassMgr()->EnumClasses(ids);
  std::map<String, String> classes;
  for (const String& id : ids) classes[id] = GetClassMgr()->GetClassInfo(id)->GetLibraryPath();
  return classes;
}

void PrintClass(const String& id, const String& library) {
  std::printf("%s\n", id.GetBegin());
  std::printf("  made by  %s\n", library.IsEmpty() ? "this process" : library.GetBegin());
  std::vector<String> faces;
  GetClassMgr()->GetClassInfo(id)->EnumFaces(faces);
  for (const String& face : faces) std::printf("  face     %s\n", face.GetBegin());
}

// Prints what is different; returns whether anything is.
bool PrintChanges(const std::map<String, String>& before, const std::map<String, String>& now) {
  for (const auto& [id, library] : now) {
    const auto former = before.find(id);
    if (former == before.end()) {
      std::printf("new      %s  %s\n", id.GetBegin(), library.GetBegin());
    } else if (!(former->second == library)) {
      std::printf("moved    %s  %s\n", id.GetBegin(), library.GetBegin());
    }
  }
  for (const auto& [id, library] : before) {
    if (!now.contains(id)) std::printf("removed  %s  %s\n", id.GetBegin(), library.GetBegin());
  }
  return before != now;
}

void ShowError(const char* classId, const char* faceId) {
  std::printf("\nasked for class %s with face %s\n", classId, faceId);
  try {
    GetClassMgr()->CreateInstance(classId, faceId);
    std::printf("  it was made\n");
  } catch (const orm::Error& error) {
    std::printf("  as the user reads it: %s\n", error.Format().GetBegin());
    for (unsigned i = 0; i < error.GetLayerCount(); ++i) {
      std::printf("  layer %u: %08x %s\n", i, error.GetCode(i), error.GetMessage(i).GetBegin());
    }
  }
}

}  // namespace

int ListClasses(const std::string& folder) {
  const RegisteredFolder registered(folder);
  for (const auto& [id, library] : GetClasses()) PrintClass(id, library);
  std::printf("component libraries in memory: %s\n", DescribeLoadedLibraries().c_str());
  return 0;
}

int WatchClasses(const std::string& folder, unsigned changes, unsigned seconds) {
  const RegisteredFolder registered(folder);
  std::map<String, String> classes = GetClasses();
  DWORD stamp = GetClassMgr()->GetRegistrationStamp();
  std::printf("watching %zu classes\n", classes.size());
  std::fflush(stdout);

  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (changes > 0 && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    // The manager looks at the folder within this call, when the last look is 3 seconds old.
    if (GetClassMgr()->GetRegistrationStamp() == stamp) continue;
    stamp = GetClassMgr()->GetRegistrationStamp();
    const std::map<String, String> now = GetClasses();
    if (!PrintChanges(classes, now))
      std::printf("renewed  a library was replaced, its classes are the same\n");
    std::fflush(stdout);
    classes = now;
    --changes;
  }
  if (changes > 0) std::printf("%u more changes were expected\n", changes);
  return changes == 0 ? 0 : 1;
}

int ShowErrors(const std::string& folder) {
  const RegisteredFolder registered(folder);
  ShowError("CID_Unknown", "IID_BaseFace");
  ShowError("CID_FileDigest", "IID_Teapot");
  std::printf("\nregistered a folder that is not there\n");
  try {
    const RegisteredFolder missing(folder + "/missing");
  } catch (const orm::Error& error) {
    std::printf("  as the user reads it: %s\n", error.Format().GetBegin());
    for (unsigned i = 0; i < error.GetLayerCount(); ++i) {
      std::printf("  layer %u: %08x %s\n", i, error.GetCode(i), error.GetMessage(i).GetBegin());
    }
  }
  return 0;
}
