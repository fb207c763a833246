// The message box.
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "support/Child.h"
#include "win32/user.h"

namespace {

// Runs the helper on a terminal of its own and types the answers.
int AskOnTerminal(const char* typed, std::string& shown) {
  int terminal;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    const std::string helper = test::Sibling("kernel_helper");
    execl(helper.c_str(), helper.c_str(), "ask", "x", nullptr);
    _exit(127);
  }
  EXPECT_EQ(static_cast<ssize_t>(strlen(typed)), write(terminal, typed, strlen(typed)));
  char buffer[512];
  for (ssize_t got; (got = read(terminal, buffer, sizeof(buffer))) > 0;)
    shown.append(buffer, static_cast<size_t>(got));
  int status = 0;
  waitpid(child, &status, 0);
  close(terminal);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(MessageBox, AsksOnTheTerminal) {
  const struct {
    const char* typed;
    int answer;
  } cases[] = {{"a\n", IDABORT}, {"what?\nr\n", IDRETRY}, {"\n", IDIGNORE}, {"\x04", 0}};
  for (const auto& one : cases) {
    std::string shown;
    EXPECT_EQ(one.answer, AskOnTerminal(one.typed, shown));
    EXPECT_NE(std::string::npos, shown.find("Caption"));
    EXPECT_NE(std::string::npos, shown.find("Text?[2J?\r\n")) << "the text drives the terminal";
  }
}

// Also in children that are made while another thread has its turn.
TEST(MessageBox, FailsWithoutATerminal) {
  const auto ask = [] { return MessageBoxA(nullptr, "text", "caption", MB_ABORTRETRYIGNORE); };
  test::Child child = test::Child::Forked([&] {
    setsid();
    std::atomic<bool> ends{false};
    std::thread other([&] {
      while (!ends) ask();
    });
    const bool succeeded = test::ForkSome(100, [&] {
      if (ask() != 0) _exit(1);
    });
    ends = true;
    other.join();
    return succeeded ? ask() : 1;
  });
  EXPECT_EQ(0, child.Finish().status);
}

}  // namespace
