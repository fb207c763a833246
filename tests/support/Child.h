// Child processes of tests: a program run to its end, with its output, and one that is talked to while it
// runs.
#pragma once

#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "support/Forked.h"

namespace test {

struct ChildResult {
  int status = -1;  // exit code, or 128 + the signal
  std::string output;
};

// A running child whose standard input and output are pipes. Killed and reaped at the latest by the
// destructor.
class Child {
 public:
  explicit Child(const std::vector<std::string>& command) {
    Start([&command] {
      std::vector<char*> arguments;
      for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
      arguments.push_back(nullptr);
      execv(arguments[0], arguments.data());
      return 127;
    });
  }
  // A copy of this process that runs `body` and ends with what it returns.
  static Child Forked(const std::function<int()>& body) { return Child(&body); }
  ~Child() {
    if (mPid > 0) {
      kill(mPid, SIGKILL);
      Finish();
    }
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t GetPid() const { return mPid; }

  // One line of its output without the line ending; empty at the end of the output.
  std::string ReadLine() {
    std::string line;
    char c;
    while (read(mOut, &c, 1) == 1 && c != '\n') line += c;
    return line;
  }
  void WriteLine(const std::string& line) {
    const std::string text = line + "\n";
    if (write(mIn, text.data(), text.size()) < 0) CloseInput();
  }
  void CloseInput() {
    if (mIn >= 0) close(mIn);
    mIn = -1;
  }
  void Kill() { kill(mPid, SIGKILL); }

  // Reads what is left of the output and waits for the end.
  ChildResult Finish() {
    CloseInput();
    ChildResult result;
    char buffer[4096];
    for (ssize_t n; (n = read(mOut, buffer, sizeof buffer)) > 0;)
      result.output.append(buffer, static_cast<size_t>(n));
    close(mOut);
    int status = 0;
    waitpid(mPid, &status, 0);
    mPid = -1;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
  }

 private:
  explicit Child(const std::function<int()>* body) { Start(*body); }

  template <class Body>
  void Start(const Body& body) {
    int in[2], out[2];
    if (pipe(in) != 0 || pipe(out) != 0) return;
    mPid = fork();
    if (mPid == 0) {
      dup2(in[0], 0);
      dup2(out[1], 1);
      for (const int fd : {in[0], in[1], out[0], out[1]}) close(fd);
      EndForked(body());
    }
    close(in[0]);
    close(out[1]);
    mIn = in[1];
    mOut = out[0];
  }

  pid_t mPid = -1;
  int mIn = -1;
  int mOut = -1;
};

inline ChildResult RunProgram(const std::vector<std::string>& command) {
  return Child(command).Finish();
}

// The path of this program; under valgrind the link itself would start valgrind.
inline std::string Self() {
  char path[4096];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  return std::string(path, static_cast<size_t>(length < 0 ? 0 : length));
}

// The path of a program that lies beside this one.
inline std::string Sibling(const std::string& name) {
  const std::string self = Self();
  return self.substr(0, self.rfind('/') + 1) + name;
}

// The exit code of a disabled case of this program, run in a process of its own in which the environment has
// that setting, NAME=VALUE, too.
inline int RunCase(const std::string& name, const std::string& setting = {}) {
  std::vector<std::string> command{"/usr/bin/env", Self(), "--gtest_filter=" + name,
                                   "--gtest_also_run_disabled_tests", "--gtest_brief=1"};
  if (!setting.empty()) command.insert(command.begin() + 1, setting);
  return RunProgram(command).status;
}

// Whether this process is root's, who can become another user, and that user may run what was built here:
// below a home folder that is closed to others he may not.
inline bool OthersMayRunPrograms() {
  if (geteuid() != 0) return false;
  const std::string folder = Sibling("");
  return InChildAs(65534, [&] { return access(folder.c_str(), R_OK | X_OK); }) == 0;
}

}  // namespace test
