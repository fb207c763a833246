// Makes each call that a scenario reaches fail once, each in a process of its own:
//
//   failing_calls [--all] [SCENARIO]
//
// Without --all at most some of the calls of each kind are tried, evenly spread, so that it takes seconds and
// not minutes. Ends with 1 when a process crashed, hung, leaked, told another error than that of the failing
// call, or could not go on afterwards.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "ExitCodes.h"
#include "support/TraceConfig.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* SCENARIOS[] = {"classes",  "bag",      "trace",   "thread", "beginning",
                                     "messages", "export",   "archive", "names",  "file",
                                     "paths",    "registry", "font",    "bitmap"};
constexpr const char* MODES[] = {"new", "start", "cold", "warm"};
constexpr const char* CALLS[] = {"open",   "mmap",           "write",  "ftruncate",
                                 "dlopen", "pthread_create", "malloc", "readdir"};
constexpr unsigned MOST_TRIES = 12;  // of one call in one scenario, without --all

struct Case {
  std::string scenario, mode, call;
  std::string GetName() const { return scenario + " " + mode + " " + call; }
};

struct Outcome {
  int code = 0;  // exit code, or 128 + the signal
  std::string output;
};

std::string Beside(const char* name) {
  return fs::read_symlink("/proc/self/exe").parent_path() / name;
}

std::string MachineBeside(const char* name) {
  return std::string(getenv("ORM_MACHINE")) + "/" + name;
}

// The machine on which a process begins: lines go to a file, and a failed assertion is only traced.
void MakeTemplate() {
  const pid_t process = fork();
  if (process == 0) {
    setenv("ORM_MACHINE", MachineBeside("template").c_str(), 1);
    test::SetRegistryText(test::TRACE_KEY, " option_target", "C:\\Windows\\Temp\\scenarios.log");
    test::SetRegistryText(test::TRACE_KEY, " option_autoassert", "i");
    test::SetRegistryText(test::TRACE_KEY + "\\scenarios", "scenario", "e");
    _exit(0);
  }
  waitpid(process, nullptr, 0);
}

// A machine of its own for a process, empty or like the template.
std::string NewMachine(bool isEmpty) {
  const std::string folder = MachineBeside("machine");
  fs::remove_all(folder);
  if (isEmpty) {
    fs::create_directory(folder);
  } else {
    fs::copy(MachineBeside("template"), folder,
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  }
  return folder;
}

[[noreturn]] void RunChild(const Case& c, unsigned at, int output) {
  dup2(output, 1);
  dup2(output, 2);
  const std::string number = std::to_string(at);
  setenv("ORM_MACHINE", NewMachine(c.mode == "new").c_str(), 1);
  if (c.mode == "new" || c.mode == "start") {
    setenv("ORM_FAIL_CALL", c.call.c_str(), 1);
    setenv("ORM_FAIL_AT", number.c_str(), 1);
  }
  setenv("LD_PRELOAD", ORM_INTERPOSER, 1);
  const std::string program = Beside("scenarios");
  execl(program.c_str(), "scenarios", c.scenario.c_str(), c.mode.c_str(), c.call.c_str(), number.c_str(),
        static_cast<char*>(nullptr));
  _exit(127);
}

Outcome Run(const Case& c, unsigned at) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
  const pid_t process = fork();
  if (process == 0) RunChild(c, at, ends[1]);
  close(ends[1]);
  Outcome outcome;
  char buffer[4096];
  for (ssize_t n; (n = read(ends[0], buffer, sizeof buffer)) > 0;) {
    outcome.output.append(buffer, static_cast<size_t>(n));
  }
  close(ends[0]);
  int status = 0;
  waitpid(process, &status, 0);
  outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return outcome;
}

const char* NameOf(int code) {
  switch (code) {
    case WRONG_ERROR:
      return "another error than that of the call";
    case NOT_USABLE:
      return "not usable afterwards";
    case LEAKED:
      return "leaks";
    case NOT_STEADY:
      return "never steady";
    case 128 + SIGALRM:
      return "hangs";
    default:
      return code > 128 ? "crashes" : "strange";
  }
}

bool IsGood(const Case& c, int code) {
  if (code == DONE || code == REFUSED || code == NO_MEMORY) return true;
  if (c.call != "malloc") return false;
  // Before main nobody can be told: the process ends with a message, the layer's or the C++ runtime's, and on
  // an empty machine, where nobody has said yet what is to become of failed assertions, by one of those. Of
  // libraries that were loaded once the loader keeps some blocks.
  const bool isStart = c.mode == "new" || c.mode == "start";
  if (isStart)
    return code == NO_MEMORY_BELOW || code == CANNOT_START || (c.mode == "new" && code == 128 + SIGTRAP);
  return c.scenario == "classes" && code == LEAKED;
}

class Sweep {
 public:
  explicit Sweep(bool all) : mAll(all) {}

  void Run(const Case& c) {
    const Outcome whole = ::Run(c, 0);
    if (whole.code != DONE) return Report(c, 0, whole);
    const unsigned calls = static_cast<unsigned>(std::strtoul(whole.output.c_str(), nullptr, 10));
    const unsigned tries = mAll || calls < MOST_TRIES ? calls : MOST_TRIES;
    std::map<int, unsigned> outcomes;
    for (unsigned i = 0; i < tries; ++i) {
      const unsigned at = 1 + static_cast<unsigned>(std::uint64_t{i} * calls / tries);
      const Outcome outcome = ::Run(c, at);
      ++outcomes[outcome.code];
      ++mCount;
      if (!IsGood(c, outcome.code)) Report(c, at, outcome);
    }
    if (calls == 0) return;
    std::printf("%-30s %5u calls, %4u tried: %u succeeded, %u refused, %u without memory, %u ended by it\n",
                c.GetName().c_str(), calls, tries, outcomes[DONE], outcomes[REFUSED], outcomes[NO_MEMORY],
                outcomes[NO_MEMORY_BELOW] + outcomes[CANNOT_START] + outcomes[128 + SIGTRAP]);
    if (outcomes[LEAKED]) std::printf("    %u leave something\n", outcomes[LEAKED]);
  }
  unsigned GetCount() const { return mCount; }
  unsigned GetFaults() const { return mFaults; }

 private:
  void Report(const Case& c, unsigned at, const Outcome& outcome) {
    ++mFaults;
    std::printf("FAULT %s %u: %s (%d) %s\n", c.GetName().c_str(), at, NameOf(outcome.code), outcome.code,
                outcome.output.substr(0, 400).c_str());
  }

  const bool mAll;
  unsigned mCount = 0, mFaults = 0;
};

}  // namespace

int main(int count, char** arguments) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  bool all = false;
  std::string only;
  for (int i = 1; i < count; ++i) {
    if (std::string(arguments[i]) == "--all") {
      all = true;
    } else {
      only = arguments[i];
    }
  }
  MakeTemplate();
  Sweep sweep(all);
  for (const char* scenario : SCENARIOS) {
    for (const char* mode : MODES) {
      for (const char* call : CALLS) {
        // Starting is the same for all of them.
        const bool isStart = mode == MODES[0] || mode == MODES[1];
        if (isStart && scenario != SCENARIOS[0]) continue;
        if (only.empty() || only == scenario) sweep.Run({scenario, mode, call});
      }
    }
  }
  std::printf("%u failing calls, %u faults\n", sweep.GetCount(), sweep.GetFaults());
  return sweep.GetFaults() == 0 ? 0 : 1;
}
