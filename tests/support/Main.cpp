// Where every test program starts. An assertion's text goes to a debugger, which nobody runs beside tests, so
// a program that a failed assertion ends says where it stood.
#include <execinfo.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>

namespace {

void ShowTheStack(int) {
  void* frames[64];
  backtrace_symbols_fd(frames, backtrace(frames, 64), STDERR_FILENO);
  raise(SIGTRAP);
}

}  // namespace

int main(int argumentCount, char** arguments) {
  struct sigaction action {};
  action.sa_handler = ShowTheStack;
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
  sigaction(SIGTRAP, &action, nullptr);
  testing::InitGoogleMock(&argumentCount, arguments);
  return RUN_ALL_TESTS();
}
