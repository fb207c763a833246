// Another process that a test runs, class_host unless it names another program.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

class HostProcess {
 public:
  // `user` 0 is this process's own; another one needs root.
  explicit HostProcess(std::vector<std::string> arguments, uid_t user = 0,
                       const std::string& program = ORM_CLASS_HOST);
  // Kills it when it still runs.
  ~HostProcess();
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  // The next line of its output, empty at the end; waits for it.
  std::string ReadLine();
  // Lets a waiting process go on.
  void Continue();
  void Kill();
  // The rest of its output, line by line; waits for its end.
  std::vector<std::string> Finish();

  // Runs one to its end and gives its output.
  static std::vector<std::string> Run(std::vector<std::string> arguments, uid_t user = 0) {
    return HostProcess(std::move(arguments), user).Finish();
  }

 private:
  pid_t mPid = 0;
  int mInput = -1;
  int mOutput = -1;
};
