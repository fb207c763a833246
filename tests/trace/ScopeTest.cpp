// Scopes: what they write, and that they format nothing in vain.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ormutil/Trace.h>

#include "support/TraceConfig.h"

using namespace orm;
using namespace test;

namespace {

constinit TraceArea area{"area"};
int conversions = 0;

// An argument that counts how often its text is asked for.
struct Counting {
  friend const char* TraceFormatArgument(const Counting&) {
    ++conversions;
    return "text";
  }
};

class Scope : public testing::Test {
 protected:
  void SetUp() override {
    conversions = 0;
    SetRegistryText(TRACE_KEY, " option_format", "|");
    TraceAreaRegister(area);
    TraceSetSink(
        [](void* lines, const char* line) { static_cast<decltype(mLines)*>(lines)->push_back(line); },
        &mLines, 0);
  }
  void SetLevel(const char* letter) { SetRegistryText(TRACE_KEY + "\\test_trace", "area", letter); }
  std::vector<std::string> mLines;
};

}  // namespace

TEST_F(Scope, WritesAnEnterAndALeaveLine) {
  SetLevel("t");
  { TraceScope scope(area, TRACE_TRACE, "a", 1, "Do(%s, %d)", Counting{}, 5); }
  EXPECT_EQ(mLines, (std::vector<std::string>{"|==> Do(text, 5)\r\n", "|<== Do(text, 5)\r\n"}));
  EXPECT_EQ(conversions, 1);
}

TEST_F(Scope, FormatsNothingOnADisabledArea) {
  SetLevel("d");
  { TraceScope scope(area, TRACE_TRACE, "a", 1, "Do(%s)", Counting{}); }
  EXPECT_TRUE(mLines.empty());
  EXPECT_EQ(conversions, 0);
}

TEST_F(Scope, ALevelChangeInBetweenShowsOneLine) {
  {
    TraceScope scope(area, TRACE_TRACE, "a", 1, "raised %s", Counting{});
    SetLevel("t");
  }
  {
    TraceScope scope(area, TRACE_TRACE, "a", 1, "lowered");
    SetLevel("n");
  }
  EXPECT_EQ(mLines, (std::vector<std::string>{"|<== raised text\r\n", "|==> lowered\r\n"}));
}

class TimedScope : public Scope {
 protected:
  void SetUp() override {}  // the facility reads its configuration with the first area
  std::string LeaveLine(const char* global, const char* module) {
    SetRegistryText(TRACE_KEY, " option_blocktimes", global);
    SetRegistryText(TRACE_KEY + "\\test_trace", " option_blocktimes", module);
    Scope::SetUp();
    SetLevel("t");
    { TraceScope scope(area, TRACE_TRACE, "a", 1, "Do"); }
    return mLines.size() == 2 ? mLines[1] : "no two lines";
  }
  static constexpr const char* TIMED = "\\|<== \\([0-9]+\\.[0-9][0-9][0-9]\\) Do\r\n";
};

TEST_F(TimedScope, TellsTheTimeSpent) {
  EXPECT_THAT(LeaveLine("Y", ""), testing::MatchesRegex(TIMED));
}

TEST_F(TimedScope, IsTimedWhereTheModuleSaysSo) {
  EXPECT_THAT(LeaveLine("n", "Y"), testing::MatchesRegex(TIMED));
}

TEST_F(TimedScope, IsNotTimedWhereTheModuleSaysSo) {
  EXPECT_EQ(LeaveLine("y", "N"), "|<== Do\r\n");
}
