// The inner half of a library's examination.
#include <ormutil/ClassDescription.h>
#include <ormutil/Error.h>
#include <ormutil/FacePtr.h>

#include <unistd.h>

#include <cstring>
#include <fstream>
#include <set>

#include "ClassProbe.h"
#include "Console.h"
#include "Failure.h"
#include "Text.h"
#include "kernel/FolderReader.h"
#include "kernel/Paths.h"

namespace orm::tool {

namespace {

using Json = nlohmann::ordered_json;

void Report(int descriptor, const Json& json) {
  const std::string line = json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
  (void)!::write(descriptor, line.data(), line.size());
}

std::set<std::string> MappedFiles() {
  std::set<std::string> files;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (const std::size_t at = line.find('/'); at != std::string::npos) files.insert(line.substr(at));
  }
  return files;
}

std::set<std::string> Threads() {
  std::set<std::string> threads;
  platform::FolderReader reader("/proc/self/task");
  while (const dirent* entry = reader.Next()) {
    if (entry->d_name[0] != '.') threads.insert(entry->d_name);
  }
  if (const int error = reader.GetError())
    throw Failure(std::string("cannot list the threads: ") + std::strerror(error));
  return threads;
}

// "1234 (name)"
std::string ThreadName(const std::string& thread) {
  std::string name;
  std::getline(std::ifstream("/proc/self/task/" + thread + "/comm") >> std::ws, name);
  return thread + " (" + name + ")";
}

Json Describe(const ClassDescription& description) {
  Json faces = Json::array();
  for (const FaceDescription& face : description.faces) faces.push_back(ToDisplay(face.faceId.GetBegin()));
  return {{"class", ToDisplay(description.classId.GetBegin())}, {"faces", std::move(faces)}};
}

using EnumFunction = void (*)(std::vector<ClassDescription>& classes);
using CreateFunction = void (*)(const String& classId, FacePtr<BaseFace>& object);
using CanUnloadFunction = bool (*)(bool force);

template <class Function>
Function Find(HMODULE module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

// Makes an object of the class and asks it for each face that the library promises; the faults found.
Json TryClass(CreateFunction create, const ClassDescription& description) {
  Json faults = Json::array();
  FacePtr<BaseFace> object;
  create(description.classId, object);
  if (!object) return {"no object was made"};
  for (const FaceDescription& face : description.faces) {
    if (BaseFace* found = object->QueryFace(face.faceId.GetBegin())) {
      found->Release();
    } else {
      faults.push_back("its object lacks " + ToDisplay(face.faceId.GetBegin()));
    }
  }
  return faults;
}

// What lives only while the library is loaded: descriptions and objects with code of the library.
bool UseLibrary(HMODULE module, bool createObjects, int descriptor) {
  const auto enumerate = Find<EnumFunction>(module, "LibEnumClasses");
  const auto create = Find<CreateFunction>(module, "LibCreateInstance");
  const auto canUnload = Find<CanUnloadFunction>(module, "LibCanUnload");
  Json list = Json::array();
  if (enumerate) {
    Report(descriptor, {{"step", "LibEnumClasses"}});
    std::vector<ClassDescription> classes;
    enumerate(classes);
    for (const ClassDescription& description : classes) {
      Json item = Describe(description);
      if (createObjects && create) {
        Report(descriptor, {{"step", "LibCreateInstance of " + item["class"].get<std::string>()}});
        item["faults"] = TryClass(create, description);
      }
      list.push_back(std::move(item));
    }
  }
  Report(descriptor, {{"classes", std::move(list)}, {"step", "LibCanUnload"}});
  return !canUnload || canUnload(false);
}

}  // namespace

int ProbeInside(const std::string& path, bool createObjects, int descriptor) {
  const std::set<std::string> filesBefore = MappedFiles();
  const std::set<std::string> threadsBefore = Threads();
  Report(descriptor, {{"step", "load"}});
  const HMODULE module =
      LoadLibraryExA(platform::AnsiPath(path).c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
  if (!module) {
    Report(descriptor, {{"error", SystemFailure("the platform does not load it", GetLastError()).what()}});
    return EXIT_FAILED;
  }
  try {
    Report(descriptor, {{"agrees", UseLibrary(module, createObjects, descriptor)}, {"step", "FreeLibrary"}});
  } catch (const Error& error) {
    Report(descriptor, {{"error", ToDisplay(error.Format().GetBegin())}});
    return EXIT_FAILED;
  }
  FreeLibrary(module);
  Json stayed = Json::array();
  bool mapped = false;
  for (const std::string& file : MappedFiles()) {
    if (file == path) {
      mapped = true;
    } else if (!filesBefore.contains(file)) {
      stayed.push_back(file);
    }
  }
  Json threads = Json::array();
  for (const std::string& thread : Threads()) {
    if (!threadsBefore.contains(thread)) threads.push_back(ThreadName(thread));
  }
  Report(descriptor, {{"mapped", mapped}, {"stayed", stayed}, {"threads", threads}, {"step", "done"}});
  std::_Exit(EXIT_OK);  // what the library left behind does not get a say
}

}  // namespace orm::tool
