// Failed assertions under each policy.
#include <gtest/gtest.h>
#include <ormutil/Trace.h>

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
