// Failed assertions under each policy.
#include <gtest/gtest.h>
#include <ormutil/Trace.h>
#include <pty.h>

#include <cstring>
#include <regex>

#include "support/Child.h"
#include "support/TraceConfig.h"

using namespace orm;
using namespace test;

namespace {

ChildResult AssertInChild(const std::string& policy, const std::string& format) {
  SetRegistryText(TRACE_KEY, " option_autoassert", policy);
  SetRegistryText(TRACE_KEY, " option_format", format);
  SetRegistryText(TRACE_KEY, " option_target", "C:\\Windows\\Temp\\assert.log");
  return RunProgram({"/usr/bin/setsid", "-w", Sibling("trace_writer"), "assert"});
}

constinit TraceArea area{"area"};

}  // namespace

TEST(Assert, Policies) {
  // Retry says that the caller must break (3 in the child), ignore that it goes on (4), abort ends it with
  // -1. The dialog has nobody to ask in a session without terminal; a failed dialog counts as retry.
  struct {
    const char* policy;
    int status;
  } cases[] = {{"r", 3}, {"i", 4}, {"a", 255}, {"d", 3}};
  for (const auto& [policy, status] : cases) EXPECT_EQ(AssertInChild(policy, "").status, status) << policy;
  EXPECT_EQ(ReadLog("assert.log"), std::vector<std::string>(4, "src/x(12):assert fail:x > 0"));
  SetRegistryText(TRACE_KEY + "\\trace_writer", " option_autoassert", "i");
  EXPECT_EQ(AssertInChild("a", "").status, 4) << "the module's own policy goes first";
}

// The dialog, on a terminal of the child's own.
TEST(Assert, AsksTheUser) {
  const struct {
    const char* typed;
    int status;
  } cases[] = {{"a\n", 255}, {"r\n", 3}, {"i\n", 4}, {"\n", 4}, {"\x04", 3}};
  for (const auto& [typed, status] : cases) {
    int terminal;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
      const std::string writer = Sibling("trace_writer");
      execl(writer.c_str(), writer.c_str(), "assert", nullptr);
      _exit(127);
    }
    EXPECT_EQ(write(terminal, typed, strlen(typed)), static_cast<ssize_t>(strlen(typed)));
    std::string shown;
    char buffer[512];
    for (ssize_t got; (got = read(terminal, buffer, sizeof buffer)) > 0;)
      shown.append(buffer, static_cast<size_t>(got));
    close(terminal);
    int result = 0;
    waitpid(child, &result, 0);
    EXPECT_EQ(WIFEXITED(result) ? WEXITSTATUS(result) : -1, status) << typed;
    std::erase(shown, '\r');
    EXPECT_TRUE(std::regex_search(
        shown, std::regex("TDBG debugging library\n\nAssertion failed!\n\nCondition: x > 0\n\n"
                          "Program: (.*trace_writer)\nModule: \\1\nFile: src/x\nLine: 12\n\n"
                          "\\(Press 'Retry' for debugging\\)\n\nAbort/Retry/Ignore \\[Ignore\\]: ")))
        << shown;
  }
}

TEST(Assert, NamesTheFileOnce) {
  AssertInChild("i", "%9!s!|");
  EXPECT_EQ(ReadLog("assert.log"), std::vector<std::string>{"x|*** Assertion failure: x > 0"});
}

TEST(Assert, ATraceLineMayRaiseOne) {
  std::vector<std::string> lines;
  SetRegistryText(TRACE_KEY, " option_format", "");
  SetRegistryText(TRACE_KEY + "\\test_trace", "area", "e");
  TraceSetSink([](void* out, const char* line) { static_cast<decltype(lines)*>(out)->push_back(line); },
               &lines, 'i');
  TraceWrite(area, TRACE_ERROR, true, "src/x", 3, "no %d%%", 5);
  ORM_ASSERT(lines.empty(), "the text, 100% as it stands", "src/x", 4);
  EXPECT_EQ(lines,
            (std::vector<std::string>{"no 5%\r\n", "src/x(4):assert fail:the text, 100% as it stands\r\n"}));
  TraceSetSink(nullptr, nullptr, 0);
}
