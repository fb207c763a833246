// Runs one disabled case of this test program in a child process, where the environment can be another one.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace nls_test {

// The exit status of the case `name` run with the variable set; -1 when it did not end by itself. Settings
// that a process reads once, such as its zone, need this.
inline int RunCase(const std::string& name, const char* variable, const std::string& value) {
  const std::string filter = "--gtest_filter=" + name;
  const pid_t child = fork();
  if (child == 0) {
    setenv(variable, value.c_str(), 1);
    execl("/proc/self/exe", "test", filter.c_str(), "--gtest_also_run_disabled_tests", "--gtest_brief=1",
          static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

}  // namespace nls_test
