// What is done under failing calls, one scenario in a process: scenarios NAME MODE CALL AT. The process runs
// it
//
//   new    armed by the environment, the failing call may come before main; the machine is empty
//   start  the same, on a machine that is set up
//   cold   once, as the first thing that it does, with the at-th call failing; then again without a failure
//   warm   until nothing grows any more, then with a failure, then without, and then nothing may be left over
//
// and tells by its exit code what happened. AT 0 makes nothing fail and prints how many calls there are.
#include <dirent.h>
#include <ormutil/ClassManager.h>
#include <ormutil/Error.h>
#include <ormutil/MemoryProperties.h>
#include <ormutil/PersistentProperties.h>
#include <ormutil/Trace.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>
#include <string>

#include "ExitCodes.h"
#include "Interposer.h"
#include "classes/ErrorText.h"
#include "classes/fixtures/Fixture.h"
#include "thread/TestRunnable.h"

namespace {

using orm::FacePtr;
using orm::GetClassMgr;

// An error of the platform layer's own functions, or a wrong result.
struct PlatformError {
  const char* what;
  DWORD code;
};

void Check(bool succeeded, const char* what) {
  if (!succeeded) throw PlatformError{what, GetLastError()};
}

constinit orm::TraceArea area{"scenario"};

void UseClasses() {
  std::string path = "z:" + std::string(ORM_FIXTURES) + "/alpha.dll";
  std::replace(path.begin(), path.end(), '/', '\\');
  struct Registration {
    explicit Registration(const char* name) : cookie(GetClassMgr()->Register(name)) {}
    ~Registration() {
      GetClassMgr()->Unregister(cookie);
      GetClassMgr()->UnloadLibraries(true);
    }
    const DWORD cookie;
  };
  const Registration registration(path.c_str());
  Check(FacePtr<Numbered>("CID_Alpha", "")->GetNumber() == 1, "the object's number");
}

void UseBag() {
  orm::PersistentProperties bag;
  bag.Open("Scenario\\Bag", true);
  const std::string text(5000, 't');
  bag.SetNumber("number", 7);
  bag.SetString("text", text.c_str());
  Check(bag.GetNumber("number") == 7 && bag.GetString("text") == text.c_str(), "the values");
  bag.Delete("number");
}

void WriteLine() {
  orm::TraceWrite(area, orm::TRACE_ERROR, false, "Scenarios.cpp", 1, "a line");
}

void RunThread() {
  bool hasRun = false;
  const auto runnable = test::TestRunnable::Make([&hasRun] { hasRun = true; });
  runnable->CreateThread(true, true);
  runnable->Wait();
  Check(hasRun, "the thread");
}

void ExportBag() {
  orm::MemoryProperties bag, copy;
  for (unsigned i = 0; i < 20; ++i) {
    orm::String name;
    name.Format("name%u", i);
    bag.SetString(name, name);
  }
  copy.Import(bag.Export());
  Check(copy.EnumProperties().size() == 20, "the copy");
}

void UseNames() {
  struct Handle {
    explicit Handle(HANDLE opened) : value(opened) { Check(opened != nullptr, "a named object"); }
    ~Handle() { CloseHandle(value); }
    const HANDLE value;
  };
  const Handle mutex(CreateMutexA(nullptr, FALSE, "scenario/mutex"));
  Check(WaitForSingleObject(mutex.value, INFINITE) == WAIT_OBJECT_0, "the wait");
  ReleaseMutex(mutex.value);
  const Handle section(
      CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 65536, "scenario/section"));
  void* view = MapViewOfFile(section.value, FILE_MAP_ALL_ACCESS, 0, 0, 0);
  Check(view != nullptr, "the view");
  std::memset(view, 1, 65536);
  UnmapViewOfFile(view);
}

void UseFile() {
  const char* name = "C:\\Windows\\Temp\\scenario.txt";
  HANDLE file = CreateFileA(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  Check(file != INVALID_HANDLE_VALUE, "the file");
  DWORD written = 0;
  const bool isWhole = WriteFile(file, "text", 4, &written, nullptr);
  const DWORD error = GetLastError();
  CloseHandle(file);
  SetLastError(error);
  Check(isWhole && written == 4, "the write");
  // In another case, so that the folders on the way are listed.
  WIN32_FIND_DATAA found;
  const HANDLE search = FindFirstFileA("C:\\WINDOWS\\TEMP\\SCENARIO.*", &found);
  Check(search != INVALID_HANDLE_VALUE, "the search");
  FindClose(search);
  Check(DeleteFileA("C:\\WINDOWS\\TEMP\\SCENARIO.TXT"), "the deletion");
}

struct Scenario {
  const char* name;
  void (*run)();
} const SCENARIOS[] = {{"classes", UseClasses}, {"bag", UseBag},       {"trace", WriteLine},
                       {"thread", RunThread},   {"export", ExportBag}, {"names", UseNames},
                       {"file", UseFile}};

// Whether the code is one that may come of that call's failure.
bool Fits(const std::string& call, DWORD code) {
  const struct {
    const char* call;
    std::initializer_list<DWORD> codes;
  } table[] = {
      {"open", {ERROR_TOO_MANY_OPEN_FILES}},
      {"mmap", {ERROR_NOT_ENOUGH_MEMORY}},
      {"write", {ERROR_DISK_FULL, ERROR_CANTWRITE}},
      {"ftruncate", {ERROR_DISK_FULL, ERROR_HANDLE_DISK_FULL}},
      {"dlopen", {ERROR_MOD_NOT_FOUND}},
      {"pthread_create", {ERROR_NOT_ENOUGH_MEMORY}},
      {"readdir", {ERROR_GEN_FAILURE}},
      // A library's own std::bad_alloc, and a library that the loader has no memory for.
      {"malloc", {ERROR_NOT_ENOUGH_MEMORY, orm::ERROR_GENERAL, ERROR_BAD_EXE_FORMAT}},
  };
  for (const auto& row : table) {
    if (call == row.call) return std::find(row.codes.begin(), row.codes.end(), code) != row.codes.end();
  }
  return false;
}

// Runs it and tells what came of it; WRONG_ERROR when the error does not fit the call.
ExitCode Attempt(const Scenario& scenario, const std::string& call) {
  try {
    scenario.run();
    return DONE;
  } catch (const orm::Error& error) {
    InterposerArm("none", 0);
    for (unsigned i = 0; i < error.GetLayerCount(); ++i) {
      if (Fits(call, error.GetCode(i))) return REFUSED;
    }
    std::fprintf(stderr, "%s\n", Layers(error).c_str());
  } catch (const std::bad_alloc&) {
    InterposerArm("none", 0);
    if (call == "malloc") return NO_MEMORY;
    std::fprintf(stderr, "std::bad_alloc\n");
  } catch (const PlatformError& error) {
    InterposerArm("none", 0);
    if (Fits(call, error.code)) return REFUSED;
    std::fprintf(stderr, "%s: error %u\n", error.what, error.code);
  }
  return WRONG_ERROR;
}

struct Holdings {
  long blocks = 0, descriptors = 0, mappings = 0;

  bool IsAtMost(const Holdings& other) const {
    return blocks <= other.blocks && descriptors <= other.descriptors && mappings <= other.mappings;
  }
};

Holdings Measure() {
  Holdings holdings;
  holdings.blocks = InterposerBlocks();
  DIR* folder = opendir("/proc/self/fd");
  while (readdir(folder) != nullptr) ++holdings.descriptors;
  closedir(folder);
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) holdings.mappings += line.find('/') != std::string::npos;
  return holdings;
}

int RunCold(const Scenario& scenario, const std::string& call, unsigned at, unsigned& rCount) {
  InterposerArm(call.c_str(), at);
  const ExitCode result = Attempt(scenario, call);
  rCount = InterposerCount();
  InterposerArm("none", 0);
  if (result == WRONG_ERROR) return result;
  return Attempt(scenario, "") == DONE ? result : NOT_USABLE;
}

int RunWarm(const Scenario& scenario, const std::string& call, unsigned at, unsigned& rCount) {
  Holdings steady;
  unsigned unchanged = 0;
  std::string blocks;
  blocks.reserve(200);
  for (int round = 0; round < 16 && unchanged < 3; ++round) {
    if (Attempt(scenario, "") != DONE) return NOT_STEADY;
    const Holdings now = Measure();
    unchanged = now.IsAtMost(steady) ? unchanged + 1 : 0;
    steady = now;
    blocks += std::to_string(now.blocks) + " ";
  }
  if (unchanged < 3) {
    std::fprintf(stderr, "blocks %s\n", blocks.c_str());
    return NOT_STEADY;
  }
  const int result = RunCold(scenario, call, at, rCount);
  if (result >= WRONG_ERROR) return result;
  const Holdings now = Measure();
  if (now.IsAtMost(steady)) return result;
  std::fprintf(stderr, "blocks %ld to %ld, descriptors %ld to %ld, mappings %ld to %ld\n", steady.blocks,
               now.blocks, steady.descriptors, now.descriptors, steady.mappings, now.mappings);
  return LEAKED;
}

int RunStarted(const Scenario& scenario, unsigned& rCount) {
  rCount = InterposerCount();
  InterposerArm("none", 0);
  return Attempt(scenario, "") == DONE ? DONE : NOT_USABLE;
}

}  // namespace

int main(int count, char** arguments) {
  alarm(60);  // whoever waits as long waits for ever
  if (count != 5 || InterposerArm == nullptr) return WRONG_ARGUMENTS;
  const std::string mode = arguments[2], call = arguments[3];
  const auto at = static_cast<unsigned>(std::atoi(arguments[4]));
  for (const Scenario& scenario : SCENARIOS) {
    if (std::strcmp(scenario.name, arguments[1]) != 0) continue;
    int result = WRONG_ARGUMENTS;
    unsigned calls = 0;
    if (mode == "new" || mode == "start") result = RunStarted(scenario, calls);
    if (mode == "cold") result = RunCold(scenario, call, at, calls);
    if (mode == "warm") result = RunWarm(scenario, call, at, calls);
    if (at == 0) std::printf("%u\n", calls);
    return result;
  }
  return WRONG_ARGUMENTS;
}
