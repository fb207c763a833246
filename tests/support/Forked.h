// Copies of this process that do something and end. Assertions in them would go unseen: what they return
// tells.
#pragma once

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "support/Sanitizers.h"

namespace test {

// Ends a copy. What its parent's threads held is lost in it, which memcheck would call a leak: there the copy
// becomes another program to end.
[[noreturn]] inline void EndForked(int status) {
  if (IsUnderMemcheck())
    execl("/bin/sh", "sh", "-c", ("exit " + std::to_string(status)).c_str(), static_cast<char*>(nullptr));
  _exit(status);
}

// Starts a copy that runs `body` and ends with what it returns.
template <class Body>
pid_t StartForked(const Body& body) {
  const pid_t child = fork();
  if (child == 0) EndForked(body());
  return child;
}

// Waits for the end of a child: its exit code, or 128 + the signal.
inline int WaitFor(pid_t child) {
  int status = 0;
  if (waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

template <class Body>
int InChild(const Body& body) {
  return WaitFor(StartForked(body));
}

// Like InChild, as another user, whom only root can become.
template <class Body>
int InChildAs(uid_t user, const Body& body) {
  return InChild([&] { return setgid(user) == 0 && setuid(user) == 0 ? body() : 99; });
}

// Makes so many copies, one after the other, that do what `body` says; false when one of them does not come
// to its end.
template <class Body>
bool ForkSome(int count, const Body& body) {
  const auto timed = [&body] {
    alarm(30);  // whoever waits as long waits for ever
    body();
    return 0;
  };
  for (int i = 0; i < count; ++i) {
    if (InChild(timed) != 0) return false;
  }
  return true;
}

}  // namespace test
