// Runs one scenario under failing calls, in a process of its own: scenarios NAME MODE CALL AT. The process
// runs it
//
//   new    armed by the environment, the failing call may come before main; the machine is empty
//   start  the same, on a machine that is set up
//   cold   once, as the first thing that it does, with the at-th call failing; then again without a failure
//   warm   until nothing grows any more, then with a failure, then without, and then nothing may be left over
//
// and tells by its exit code what happened. AT 0 makes nothing fail and prints how many calls there are.
#include <dirent.h>
#include <ormutil/Error.h>
#include <sched.h>
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
#include "Scenarios.h"
#include "classes/ErrorText.h"

namespace {

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
      // A library's own std::bad_alloc, a library that the loader has no memory for, and a wait on an event
      // of whose lack an assertion has told.
      {"malloc", {ERROR_NOT_ENOUGH_MEMORY, orm::ERROR_GENERAL, ERROR_BAD_EXE_FORMAT, ERROR_INVALID_HANDLE}},
  };
  for (const auto& row : table) {
    if (call == row.call) return std::find(row.codes.begin(), row.codes.end(), code) != row.codes.end();
  }
  return false;
}

// A thread that has ended is waited for: it gives back its last blocks after whoever waits for it has been
// told.
void AwaitThreads() {
  const auto isOne = [] {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("Threads:")) return std::atoi(line.c_str() + 8) == 1;
    }
    return true;
  };
  while (!isOne()) sched_yield();
}

// Runs it and tells what came of it; WRONG_ERROR when the error does not fit the call.
ExitCode Try(const Scenario& scenario, const std::string& call) {
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
  } catch (const Undone& undone) {
    InterposerArm("none", 0);
    if (!call.empty()) return REFUSED;
    std::fprintf(stderr, "%s: not done\n", undone.what);
  }
  return WRONG_ERROR;
}

// The same when nothing fails.
ExitCode Attempt(const Scenario& scenario) {
  const ExitCode result = Try(scenario, "");
  AwaitThreads();
  return result;
}

struct Holdings {
  long blocks = 0, descriptors = 0, mappings = 0, handles = 0, drawingObjects = 0;

  bool IsAtMost(const Holdings& other) const {
    return blocks <= other.blocks && descriptors <= other.descriptors && mappings <= other.mappings &&
           handles <= other.handles && drawingObjects <= other.drawingObjects;
  }
};

Holdings Measure() {
  Holdings holdings;
  holdings.blocks = InterposerBlocks();
  DIR* folder = opendir("/proc/self/fd");
  while (readdir(folder) != nullptr) ++holdings.descriptors;
  closedir(folder);
  DWORD handles = 0;
  GetProcessHandleCount(GetCurrentProcess(), &handles);
  holdings.handles = handles;
  holdings.drawingObjects = GetGuiResources(nullptr, GR_GDIOBJECTS);
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) holdings.mappings += line.find('/') != std::string::npos;
  return holdings;
}

int RunCold(const Scenario& scenario, const std::string& call, unsigned at, unsigned& rCount) {
  InterposerArm(call.c_str(), at);
  const ExitCode result = Try(scenario, call);
  rCount = InterposerCount();
  InterposerArm("none", 0);
  AwaitThreads();
  if (result == WRONG_ERROR) return result;
  return Attempt(scenario) == DONE ? result : NOT_USABLE;
}

int RunWarm(const Scenario& scenario, const std::string& call, unsigned at, unsigned& rCount) {
  InterposerArm("none", 0);
  Holdings steady;
  unsigned unchanged = 0;
  std::string blocks;
  blocks.reserve(200);
  for (int round = 0; round < 16 && unchanged < 3; ++round) {
    if (Attempt(scenario) != DONE) return NOT_STEADY;
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
  std::fprintf(stderr,
               "blocks %ld to %ld, descriptors %ld to %ld, mappings %ld to %ld, handles %ld to %ld, "
               "drawing objects %ld to %ld\n",
               steady.blocks, now.blocks, steady.descriptors, now.descriptors, steady.mappings, now.mappings,
               steady.handles, now.handles, steady.drawingObjects, now.drawingObjects);
  return LEAKED;
}

int RunStarted(const Scenario& scenario, unsigned& rCount) {
  rCount = InterposerCount();
  InterposerArm("none", 0);
  return Attempt(scenario) == DONE ? DONE : NOT_USABLE;
}

}  // namespace

int main(int count, char** arguments) {
  alarm(60);  // whoever waits as long waits for ever
  if (count != 5 || InterposerArm == nullptr) return WRONG_ARGUMENTS;
  const std::string mode = arguments[2], call = arguments[3];
  const auto at = static_cast<unsigned>(std::atoi(arguments[4]));
  for (const Scenario& scenario : GetScenarios()) {
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
