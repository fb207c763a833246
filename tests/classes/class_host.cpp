// A process that uses the class manager as its arguments tell, for tests that need a second one:
//
//   register PATH   prints "registered" or the error     classes    prints the component classes' ids
//   create CLASS    prints the object's number           maps       prints the mapped component libraries
//   keep CLASS      creates an object and never drops it  wait      prints "waiting", goes on at a line of
//   input hold-mutex      takes the cache's mutex and waits     churn PATH  stores into the cache for ever
//   call-each PATH CLASS  every operation of the manager once
//   exit-busy PATH        prints "busy" and ends while threads use the manager; PATH offers CID_Alpha
//   exit-listing          prints "listing" and ends while a factory is being listed
//   exit-creating PATH    ends while the library makes an object; PATH offers CID_CallingBack
#include <fcntl.h>
#include <ormutil/ClassManager.h>
#include <ormutil/Thread.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>
#include <set>
#include <thread>

#include "ErrorText.h"
#include "fixtures/Fixture.h"

namespace {

using orm::FacePtr;
using orm::GetClassMgr;

class PlainFactory : public orm::FaceObject<orm::ClassFactory> {
 public:
  void CreateInstance(const orm::String&, FacePtr<orm::BaseFace>& object) override {
    object = FacePtr<orm::BaseFace>::Adopt(new orm::FaceObject<orm::BaseFace>());
  }
  void EnumClasses(std::vector<orm::ClassDescription>& classes) override {
    classes.push_back({"CID_Plain", {}, {}});
  }
};

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

// Keeps the object, and with it its library, to the end of the process, where a search for leaks finds it.
void Keep(const FacePtr<orm::BaseFace>& object) {
  static std::mutex mutex;
  static auto& rKept = *new std::vector<FacePtr<orm::BaseFace>>;
  const std::lock_guard lock(mutex);
  rKept.push_back(object);
}

// One round of everything that a thread may be in when the process ends.
void UseManager(const char* path) {
  orm::ClassManager* manager = GetClassMgr();
  Keep(manager->CreateInstance("CID_Alpha", "IID_BaseFace"));
  std::vector<orm::String> ids;
  manager->EnumClasses(ids);
  manager->GetClassInfo("CID_Alpha")->GetClassData();
  const DWORD cookie = manager->Register(FacePtr<orm::ClassFactory>::Adopt(new PlainFactory()));
  manager->CreateInstance("CID_Plain", "IID_BaseFace");
  manager->Unregister(cookie);
  manager->Unregister(manager->Register(path));
}

// Has a thread, and waits for its end before it goes.
class WorkingFactory final : public PlainFactory {
 public:
  explicit WorkingFactory(const char* path)
      : mThread([this, path] {
          while (!mStop) Thrown([path] { UseManager(path); });
        }) {}

 private:
  ~WorkingFactory() override {
    mStop = true;
    mThread.join();
  }

  std::atomic<bool> mStop{false};
  std::thread mThread;
};

void ExitBusy(const char* path) {
  GetClassMgr()->Register(path);
  GetClassMgr()->Register(FacePtr<orm::ClassFactory>::Adopt(new WorkingFactory(path)));
  static std::atomic<int> rounds{0};
  for (int t = 0; t < 3; ++t) {
    std::thread([path] {
      for (;; ++rounds) Thrown([path] { UseManager(path); });
    }).detach();
  }
  while (rounds < 30) std::this_thread::yield();
  Print("busy");
}

// Never comes back from being listed or from a creation, and uses its thread meanwhile.
class EndlessFactory final : public PlainFactory {
 public:
  explicit EndlessFactory(bool isEndlessToList) : mIsEndlessToList(isEndlessToList) {}

  void CreateInstance(const orm::String&, FacePtr<orm::BaseFace>&) override { Stay(); }
  void EnumClasses(std::vector<orm::ClassDescription>& classes) override {
    if (mIsEndlessToList) Stay();
    classes.push_back({"CID_Alpha", {}, {}});
  }
  static void WaitUntilItStays() { msStays.wait(false); }

 private:
  static inline std::atomic<bool> msStays{false};

  [[noreturn]] static void Stay() {
    msStays = true;
    msStays.notify_one();
    for (;;) orm::Thread::CheckInterrupted();
  }

  const bool mIsEndlessToList;
};

void ExitListing() {
  std::thread([] {
    GetClassMgr()->Register(FacePtr<orm::ClassFactory>::Adopt(new EndlessFactory(true)));
  }).detach();
  EndlessFactory::WaitUntilItStays();
  Print("listing");
}

void ExitCreating(const char* path) {
  GetClassMgr()->Register(path);
  GetClassMgr()->Register(FacePtr<orm::ClassFactory>::Adopt(new EndlessFactory(false)));
  std::thread([] { GetClassMgr()->CreateInstance("CID_CallingBack", "IID_BaseFace"); }).detach();
  EndlessFactory::WaitUntilItStays();
}

// Runs one command; `argument` is the word after it. Returns how many words it took.
int Run(const std::string& command, const char* argument) {
  if (command == "register") return Register(argument), 2;
  if (command == "create") return Print(std::to_string(FacePtr<Numbered>(argument, "")->GetNumber())), 2;
  if (command == "keep") return Keep(FacePtr<Numbered>(argument, "")), 2;
  if (command == "classes") return PrintClasses(), 1;
  if (command == "maps") return PrintMaps(), 1;
  if (command == "wait") return Wait(), 1;
  if (command == "hold-mutex") {
    HANDLE mutex = CreateMutexA(nullptr, FALSE, "zr41_clsmgr_mtx");
    WaitForSingleObject(mutex, INFINITE);
    return Wait(), 1;
  }
  if (command == "exit-busy") return ExitBusy(argument), 2;
  if (command == "exit-listing") return ExitListing(), 1;
  if (command == "exit-creating") return ExitCreating(argument), 2;
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
