// Headers, cutting, the log file, and the two halves of a line.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ormutil/Trace.h>
#include <win32/debugwatch.h>

#include <map>
#include <regex>

#include "support/Child.h"
#include "support/TraceConfig.h"

using namespace orm;
using namespace test;

namespace {

const std::string MODULE_KEY = TRACE_KEY + "\\test_trace";
constinit TraceArea area{"area"};

class TraceLine : public testing::Test {
 protected:
  void Configure(const std::string& format, const std::string& target = "<dbglog>") {
    SetRegistryText(TRACE_KEY, " option_format", format);
    SetRegistryText(TRACE_KEY, " option_target", target);
    SetRegistryText(MODULE_KEY, "area", "l");
  }
  void Listen() {
    TraceSetSink(
        [](void* lines, const char* line) { static_cast<decltype(mLines)*>(lines)->push_back(line); },
        &mLines, 0);
  }
  std::vector<std::string> mLines;
};

}  // namespace

TEST_F(TraceLine, DefaultHeader) {
  Configure("%1!-8s!|%2!-8s!|%6!6u!.%7!03u!|");
  Listen();
  TraceWrite(area, TRACE_DEBUG, false, "a", 1, "%s and %d", "text", 7);
  ASSERT_EQ(mLines.size(), 1u);
  EXPECT_TRUE(
      std::regex_match(mLines[0], std::regex("test_trace\\|area    \\| *\\d+\\.\\d{3}\\|text and 7\r\n")))
      << mLines[0];
}

TEST_F(TraceLine, FullHeader) {
  Configure("%1|%2|%3!c!|%4!x!:%5!x!|%6!u!.%7!u!|%8|%9!12s!|%10!4u!|");
  Listen();
  TraceWrite(area, TRACE_TRACE, false, "C:\\src/shared\\Binary", 79, "x");
  TraceWrite(area, TRACE_ERROR, false, "src/shared/Path", 7, "x");
  ASSERT_EQ(mLines.size(), 2u);
  char ids[64];
  snprintf(ids, sizeof ids, "%x:%x", GetCurrentProcessId(), GetCurrentThreadId());
  EXPECT_TRUE(std::regex_match(
      mLines[0], std::regex("test_trace\\|area\\|t\\|" + std::string(ids) +
                            "\\|\\d+\\.\\d+\\|\\d+:\\d\\d [AP]M\\|      Binary\\|  79\\|x\r\n")))
      << mLines[0];
  EXPECT_NE(mLines[1].find("|e|"), std::string::npos);
  EXPECT_NE(mLines[1].find("|        Path|   7|x"), std::string::npos) << mLines[1];
}

// The moment from which times count, as the processes of the machine share it.
class TimeBase : public TraceLine {
 protected:
  DWORD Seconds() {
    TraceWrite(area, TRACE_DEBUG, false, "a", 1, "x");
    return static_cast<DWORD>(std::stoul(mLines.at(mLines.size() - 1)));
  }
  HANDLE mhMapping = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(DWORD),
                                        "ph:tdbg_trace:timebase");
  DWORD* mpBase = static_cast<DWORD*>(MapViewOfFile(mhMapping, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(DWORD)));
};

TEST_F(TimeBase, IsThatOfTheFirstProcess) {
  Configure("%6!u!.%7!03u!|");
  *mpBase = 1;
  const DWORD before = GetTickCount();
  Listen();
  const DWORD seconds = Seconds();
  EXPECT_GE(seconds, (before - 1) / 1000);
  EXPECT_LE(seconds, (GetTickCount() - 1) / 1000);
  EXPECT_EQ(*mpBase, 1u);
}

TEST_F(TimeBase, StartsAnewWhenTheClockIsBehindIt) {
  Configure("%6!u!|");
  *mpBase = 0xFFFFFFFF;
  Listen();
  EXPECT_EQ(Seconds(), 0u);
  EXPECT_LE(*mpBase, GetTickCount());
}

TEST_F(TimeBase, IsSetByTheFirstProcess) {
  UnmapViewOfFile(mpBase);
  CloseHandle(mhMapping);
  const DWORD before = GetTickCount();
  Configure("%6!u!|");
  Listen();
  mhMapping = OpenFileMappingA(FILE_MAP_ALL_ACCESS, false, "ph:tdbg_trace:timebase");
  ASSERT_NE(mhMapping, nullptr);
  mpBase = static_cast<DWORD*>(MapViewOfFile(mhMapping, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(DWORD)));
  EXPECT_GE(*mpBase, before);
  EXPECT_LE(*mpBase, GetTickCount());
}

TEST_F(TraceLine, IsCutTo253Bytes) {
  Configure("head|");
  Listen();
  const std::string longText(400, 'm');
  TraceWrite(area, TRACE_DEBUG, false, "a", 1, "%s", longText.c_str());
  TraceWrite(area, TRACE_DEBUG, false, "a", 1, "end\n\r\n\n");
  TraceWrite(area, TRACE_DEBUG, false, "a", 1, "100%%");
  EXPECT_EQ(mLines, (std::vector<std::string>{"head|" + std::string(248, 'm') + "\r\n", "head|end\r\n",
                                              "head|100%\r\n"}));
}

TEST_F(TraceLine, HeaderAloneFillsTheLine) {
  Configure("%2!-254s!");
  Listen();
  TraceWrite(area, TRACE_DEBUG, false, "a", 1, "message");
  ASSERT_EQ(mLines.size(), 1u);
  EXPECT_EQ(mLines[0].find("message"), std::string::npos);
  EXPECT_EQ(mLines[0].size(), 255u);
}

TEST_F(TraceLine, TwoHalves) {
  Configure("h|");
  Listen();
  ASSERT_TRUE(TraceBegin(area, TRACE_DEBUG, "a", 1));
  TraceEnd("%s", "costly");
  SetRegistryText(MODULE_KEY, "area", "n");
  EXPECT_FALSE(TraceBegin(area, TRACE_DEBUG, "a", 1));
  EXPECT_EQ(mLines, std::vector<std::string>{"h|costly\r\n"});
}

TEST_F(TraceLine, KeepsTheLastError) {
  Configure("h|");
  SetLastError(4711);
  TraceAreaRegister(area);
  TraceWrite(area, TRACE_DEBUG, false, "a", 1, "x");
  EXPECT_EQ(GetLastError(), 4711u);
}

TEST_F(TraceLine, LastBreathsReachTheDebuggerOnly) {
  Configure("");
  TraceWrite(area, TRACE_DEBUG, false, "a", 1, "before");
  TraceFacilityTearDown();
  EXPECT_FALSE(TraceBegin(area, TRACE_DEBUG, "a", 1));
  SetRegistryText(MODULE_KEY, "area", "n");
  platform::DebugWatch watch;
  TraceWrite(area, TRACE_DEBUG, false, "a", 1, "after");
  TraceWrite(area, TRACE_NONE, false, "a", 1, "never");
  platform::DebugRecord record;
  EXPECT_TRUE(watch.Read(record, 0));
  EXPECT_THAT(record.text, testing::EndsWith("after\r\n"));
  EXPECT_FALSE(watch.Read(record, 0));
}

TEST_F(TraceLine, LastBreathsReachNoFile) {
  Configure("", "C:\\Windows\\Temp\\end.log");
  TraceWrite(area, TRACE_DEBUG, false, "a", 1, "before");
  TraceFacilityTearDown();
  EXPECT_FALSE(TraceBegin(area, TRACE_DEBUG, "a", 1));
  platform::DebugWatch watch;
  TraceWrite(area, TRACE_DEBUG, false, "a", 1, "after");
  EXPECT_EQ(ReadLog("end.log"), std::vector<std::string>{"before"});
  platform::DebugRecord record;
  EXPECT_FALSE(watch.Read(record, 0));
}

// Threads go on while the exit actions run, and so do exit handlers and destructors that were there before
// the facility.
TEST_F(TraceLine, TheProcessMayEndWhileThreadsTrace) {
  SetRegistryText(TRACE_KEY + "\\trace_writer", "writer", "w");
  SetRegistryText(TRACE_KEY, " option_blocktimes", "y");
  for (const char* target : {"<dbglog>", "C:\\Windows\\Temp\\exit.log"}) {
    Configure("%1|%8|%9!s!|", target);
    for (int round = 0; round < 5; ++round)
      EXPECT_EQ(RunProgram({Sibling("trace_writer"), "exit"}).status, 0) << target;
  }
  const std::vector<std::string> lines = ReadLog("exit.log");
  EXPECT_FALSE(lines.empty());
  for (const auto& line : lines)
    EXPECT_TRUE(std::regex_match(line, std::regex("trace_writer\\|.*\\|writer\\.cpp\\|.*worker"))) << line;
}

TEST_F(TraceLine, TwoProcessesShareOneLog) {
  Configure("", "C:\\Windows\\Temp\\shared.log");
  SetRegistryText(TRACE_KEY + "\\trace_writer", "writer", "w");
  constexpr int COUNT = 300;
  Child first({Sibling("trace_writer"), "log", std::to_string(COUNT)});
  Child second({Sibling("trace_writer"), "log", std::to_string(COUNT)});
  const int pids[] = {first.GetPid(), second.GetPid()};
  EXPECT_EQ(first.Finish().status, 0);
  EXPECT_EQ(second.Finish().status, 0);
  std::map<std::string, int> seen;
  for (const auto& line : ReadLog("shared.log")) ++seen[line];
  EXPECT_EQ(seen.size(), 2u * COUNT);
  for (const int pid : pids) {
    for (int i = 0; i < COUNT; ++i) {
      EXPECT_EQ(seen["line " + std::to_string(i) + " of " + std::to_string(pid)], 1) << i;
    }
  }
}

TEST_F(TraceLine, AChildTracesWhateverItsParentsThreadsWereAt) {
  SetRegistryText(TRACE_KEY + "\\trace_writer", "writer", "w");
  for (const char* target : {"<dbglog>", "C:\\Windows\\Temp\\fork.log"}) {
    Configure("", target);
    EXPECT_EQ(RunProgram({Sibling("trace_writer"), "fork"}).status, 0) << target;
  }
  std::map<std::string, int> seen;
  for (const auto& line : ReadLog("fork.log")) ++seen[line.substr(0, 5)];
  EXPECT_EQ(seen["child"], 20);
  EXPECT_EQ(seen.size(), 2u) << "no line within another";
}

TEST_F(TraceLine, AKilledWriterLocksNobodyOut) {
  Configure("", "C:\\Windows\\Temp\\killed.log");
  SetRegistryText(TRACE_KEY + "\\trace_writer", "writer", "w");
  for (int round = 0; round < 5; ++round) {
    Child victim({Sibling("trace_writer"), "log", "1000000"});
    while (ReadLog("killed.log").size() < static_cast<size_t>(20 * (round + 1))) sched_yield();
    victim.Kill();
    victim.Finish();
    EXPECT_EQ(RunProgram({Sibling("trace_writer"), "log", "1"}).status, 0);
  }
  for (const auto& line : ReadLog("killed.log")) {
    EXPECT_TRUE(std::regex_match(line, std::regex("line \\d+ of \\d+"))) << line;
  }
}

TEST_F(TraceLine, HalfALineOfADeadWriterIsTakenAway) {
  const std::string log = "C:\\Windows\\Temp\\torn.log";
  Configure("", log);
  for (const char* message : {"first", "second", "third"}) {
    TraceWrite(area, TRACE_DEBUG, false, "a", 1, "%s", message);
    EXPECT_EQ(RunProgram({Sibling("trace_writer"), "tear", log}).status, 128 + SIGKILL);
  }
  TraceWrite(area, TRACE_DEBUG, false, "a", 1, "last");
  EXPECT_EQ(ReadLog("torn.log"), (std::vector<std::string>{"first", "second", "third", "last"}));
}

// Nobody is there to tell whose text that is: nothing is taken away.
TEST_F(TraceLine, BeginsOnALineOfItsOwn) {
  const std::string log = "C:\\Windows\\Temp\\begun.log";
  Configure("", log);
  SetRegistryText(TRACE_KEY + "\\trace_writer", "writer", "w");
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(RunProgram({Sibling("trace_writer"), "tear", log}).status, 128 + SIGKILL);
    EXPECT_EQ(RunProgram({Sibling("trace_writer"), "log", "1"}).status, 0);
  }
  const std::vector<std::string> lines = ReadLog("begun.log");
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0] + lines[2], "half a lihalf a li");
  EXPECT_EQ(lines[3].substr(0, 9), "line 0 of");
}
