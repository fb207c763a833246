// Runs the orm command as a child process on the test's machine.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace orm::test {

struct Outcome {
  int code = -1;
  std::string out;
  std::string err;
};

inline std::string ReadAll(int descriptor) {
  std::string text;
  char buffer[4096];
  for (ssize_t size; (size = ::read(descriptor, buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<std::size_t>(size));
  return text;
}

// A command that runs: its output can be read while it does.
class RunningOrm {
 public:
  explicit RunningOrm(std::vector<std::string> arguments) {
    int out[2], err[2];
    if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) std::abort();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    arguments.insert(arguments.begin(), ORM_COMMAND);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    if (::posix_spawn(&mProcess, ORM_COMMAND, &actions, nullptr, argv.data(), environ) != 0) std::abort();
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ::close(err[1]);
    mOut = out[0];
    mErr = err[0];
  }
  ~RunningOrm() {
    if (mProcess > 0) Finish();
    ::close(mOut);
    ::close(mErr);
  }
  RunningOrm(const RunningOrm&) = delete;
  RunningOrm& operator=(const RunningOrm&) = delete;

  // The next line on the standard error, with which commands that watch say that they are ready.
  std::string ReadErrorLine() const {
    std::string line;
    for (char c; ::read(mErr, &c, 1) == 1 && c != '\n';) line += c;
    return line;
  }
  Outcome Finish() {
    Outcome outcome;
    outcome.out = ReadAll(mOut);
    outcome.err = ReadAll(mErr);
    int status = 0;
    ::waitpid(mProcess, &status, 0);
    mProcess = 0;
    outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    return outcome;
  }

 private:
  pid_t mProcess = 0;
  int mOut = -1, mErr = -1;
};

inline Outcome RunOrm(std::vector<std::string> arguments) {
  return RunningOrm(std::move(arguments)).Finish();
}

// A file in the machine's folder, which is removed with the machine.
inline std::string TestFile(const std::string& name) {
  return std::string(std::getenv("ORM_MACHINE")) + "/" + name;
}

inline std::string ReadFileBytes(const std::string& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

inline std::string WriteFileBytes(const std::string& name, const std::string& bytes) {
  const std::string path = TestFile(name);
  std::ofstream(path, std::ios::binary) << bytes;
  return path;
}

}  // namespace orm::test
