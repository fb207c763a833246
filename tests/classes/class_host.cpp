// A process that uses the class manager as its arguments tell, for tests that need a second one:
//
//   register PATH   prints "registered" or the error     classes    prints the component classes' ids
//   create CLASS    prints the object's number           maps       prints the mapped component libraries
//   keep CLASS      creates an object and never drops it  wait      prints "waiting", goes on at a line of
//   input hold-mutex      takes the cache's mutex and waits     churn PATH  stores into the cache for ever
//   call-each PATH CLASS  every operation of the manager once
#include <fcntl.h>
#include <ormutil/ClassManager.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>

#include "ErrorText.h"
#include "fixtures/Fixture.h"

namespace {

using orm::FacePtr;
using orm::GetClassMgr;

void Print(const std::string& text) {
  std::cout << text << std::endl;
}

void Register(const char* path) {
  const std::string error = Thrown([path] { GetClassMgr()->Register(path); });
  Print(error == "nothing" ? "registered" : error);
}

void PrintClasses() {
  std::vector<orm::String> ids;
  GetClassMgr()->EnumClasses(ids);
  for (const orm::String& id : ids) {
    if (!GetClassMgr()->GetClassInfo(id)->GetLibraryPath().IsEmpty()) Print(id.GetBegin());
  }
}

void PrintMaps() {
  std::set<std::string> names;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.ends_with(".dll")) names.insert("mapped " + line.substr(line.rfind('/') + 1));
  }
  for (const std::string& name : names) Print(name);
}

void Wait() {
  Print("waiting");
  std::string line;
  std::getline(std::cin, line);
}

// The file of a path with the drive that is the whole file system.
std::string ToFile(const std::string& path) {
  std::string file = path.substr(2);
  for (char& c : file) c = c == '\\' ? '/' : c;
  return file;
}

void SetTime(const std::string& file, time_t second) {
  const timespec times[2] = {{second, 0}, {second, 0}};
  utimensat(AT_FDCWD, file.c_str(), times, 0);
}

// Gives the library a new time and registers it, over and over.
[[noreturn]] void Churn(const char* path) {
  for (time_t second = 1'600'000'000;; ++second) {
    SetTime(ToFile(path), second);
    GetClassMgr()->Register(path);
    Print("stored");
  }
}

// The folder holds alpha.dll alone, which offers the class.
void CallEach(const std::string& path, const char* classId) {
  orm::ClassManager* manager = GetClassMgr();
  const DWORD cookie = manager->Register(path.c_str());
  SetTime(ToFile(path) + "/alpha.dll", 1'600'000'000);
  manager->Register(path.c_str());
  manager->CreateInstance(classId, "IID_BaseFace");
  manager->IsClassRegistered(classId);
  std::vector<orm::String> ids;
  manager->EnumClasses(std::vector<orm::String>{"IID_Numbered"}, ids);
  manager->EnumClasses("IID_Numbered", ids);
  manager->EnumClasses(ids);
  manager->GetRegistrationStamp();
  manager->GetClassInfo(classId)->GetClassData();
  manager->UnloadLibraries(false);
  manager->Unregister(cookie);
  manager->Unregister(cookie);
}

// The object outlives main and its library, and a search for leaks finds who holds it.
void Keep(const char* classId) {
  [[maybe_unused]] static Numbered* volatile kept;
  kept = FacePtr<Numbered>(classId, "").Detach();
}

// Runs one command; `argument` is the word after it. Returns how many words it took.
int Run(const std::string& command, const char* argument) {
  if (command == "register") return Register(argument), 2;
  if (command == "create") return Print(std::to_string(FacePtr<Numbered>(argument, "")->GetNumber())), 2;
  if (command == "keep") return Keep(argument), 2;
  if (command == "classes") return PrintClasses(), 1;
  if (command == "maps") return PrintMaps(), 1;
  if (command == "wait") return Wait(), 1;
  if (command == "hold-mutex") {
    HANDLE mutex = CreateMutexA(nullptr, FALSE, "zr41_clsmgr_mtx");
    WaitForSingleObject(mutex, INFINITE);
    return Wait(), 1;
  }
  if (command == "churn") Churn(argument);
  Print("what is " + command + "?");
  return 1;
}

}  // namespace

int main(int count, char** arguments) {
  try {
    if (count == 4 && std::string(arguments[1]) == "call-each")
      return CallEach(arguments[2], arguments[3]), 0;
    for (int i = 1; i < count;) i += Run(arguments[i], i + 1 < count ? arguments[i + 1] : "");
    return 0;
  } catch (const orm::Error& error) {
    Print(Layers(error));
  }
  return 1;
}
