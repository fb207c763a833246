// What loading and unloading the library leaves in the trace.
#include <gtest/gtest.h>
#include <ormutil/Module.h>
#include <win32/debugwatch.h>

#include "support/Child.h"
#include "support/Sanitizers.h"
#include "support/TraceConfig.h"

using namespace test;

namespace {

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  for (size_t begin = 0, end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
    lines.push_back(text.substr(begin, end - begin));
  }
  return lines;
}

void TraceInto(const std::string& log) {
  SetRegistryText(TRACE_KEY, " option_format", "%2|%3!c!|%9!s!|%10!u!|");
  SetRegistryText(TRACE_KEY, " option_target", "C:\\Windows\\Temp\\" + log);
}

}  // namespace

TEST(Frame, TracesAttachAndDetach) {
  TraceInto("frame.log");
  SetRegistryText(TRACE_KEY + "\\ormutil", "dllmain", "d");
  EXPECT_EQ(RunProgram({Sibling("module_leaker")}).status, 0);
  EXPECT_EQ(ReadLog("frame.log"), (std::vector<std::string>{"dllmain|d|OrmUtil|27|OrmUtil: PROCESS_ATTACH",
                                                            "dllmain|d|OrmUtil|32|OrmUtil: PROCESS_DETACH"}));
}

// The library comes and goes with its trace facility and everything else that it builds.
TEST(Frame, MayBeLoadedAgainAndAgain) {
  TraceInto("rounds.log");
  SetRegistryText(TRACE_KEY + "\\ormutil", "dllmain", "d");
  EXPECT_EQ(RunProgram({Sibling("module_loader"), "rounds", ORMUTIL_PATH}).status, 0);
  std::vector<std::string> lines;
  for (int round = 0; round < 3; ++round) {
    lines.push_back("dllmain|d|OrmUtil|27|OrmUtil: PROCESS_ATTACH");
    lines.push_back("dllmain|d|OrmUtil|32|OrmUtil: PROCESS_DETACH");
  }
  EXPECT_EQ(ReadLog("rounds.log"), lines);
}

TEST(Frame, IsNotLoadedWithoutAThreadSlot) {
  TraceInto("noslot.log");
  SetRegistryText(TRACE_KEY, " option_autoassert", "i");
  SetRegistryText(TRACE_KEY + "\\ormutil", "dllmain", "d");
  SetRegistryText(TRACE_KEY + "\\ormutil", "thread", "e");
  const ChildResult result = RunProgram({Sibling("module_loader"), "noslot", ORMUTIL_PATH});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, std::to_string(ERROR_DLL_INIT_FAILED) + "\n");
  EXPECT_EQ(
      ReadLog("noslot.log"),
      (std::vector<std::string>{
          "dllmain|d|OrmUtil|27|OrmUtil: PROCESS_ATTACH",
          "thread|e|Thread|34|failed to alloc tls index, error " + std::to_string(ERROR_NO_MORE_ITEMS),
          "dllmain|d|OrmUtil|27|OrmUtil: PROCESS_ATTACH", "dllmain|d|OrmUtil|32|OrmUtil: PROCESS_DETACH"}));
}

// Wherever the library or the platform finds none, the load is refused, and the next one succeeds.
TEST(Frame, IsNotLoadedWithoutMemory) {
  SetRegistryText(TRACE_KEY, " option_autoassert", "i");
  const std::string refused = "failed " + std::to_string(ERROR_DLL_INIT_FAILED) + "\n";
  int refusals = 0;
  // Under memcheck each of these processes takes a second.
  for (int at = 1;; at += test::IsUnderMemcheck() ? 7 : 3) {
    const ChildResult result =
        RunProgram({Sibling("module_loader"), "nomemory", ORMUTIL_PATH, std::to_string(at)});
    if (result.output == "enough 0\n") break;
    EXPECT_EQ(result.status, 0) << at;
    refusals += result.output == refused;
  }
  EXPECT_GT(refusals, 3);
}

TEST(Frame, RegistersItsAreasWithTheLetterN) {
  for (const char* area :
       {"Module", "string", "binary", "Date", "mprops", "pprops", "thread", "ClsMgr", "ClsMgr_LibraryIntl",
        "ClsMgr_MaskIntl", "ClsMgr_DirectoryIntl", "ClsMgr_ClassManagerImpl", "font", "bitmap", "dllmain"}) {
    EXPECT_EQ(GetRegistryText(TRACE_KEY + "\\ormutil", area), "n") << area;
  }
}

// The report runs after the trace facility has been torn down: its lines pass the areas' levels and are to be
// seen by whoever watches the debugger output.
TEST(Frame, ReportsLeaksInTheOrderOfTheirAddresses) {
  SetRegistryText(TRACE_KEY, " option_format", "");
  SetRegistryText(TRACE_KEY + "\\module_leaker", "leaks", "w");
  orm::platform::DebugWatch watch;
  ASSERT_TRUE(watch.IsOpen());
  const ChildResult result = RunProgram({Sibling("module_leaker")});
  const auto addresses = Lines(result.output);
  ASSERT_EQ(addresses.size(), 2u);
  std::vector<std::string> lines;
  for (orm::platform::DebugRecord record; watch.Read(record, 0);) {
    if (record.text.find("LEAK") != std::string::npos) lines.push_back(record.text);
  }
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "Object LEAK: class = First, address = " + addresses[0] + ", ref.cnt. = 3.\r\n",
                       "Object LEAK: class = Third, address = " + addresses[1] + ".\r\n"}));

  SetRegistryText(TRACE_KEY + "\\module_leaker", "leaks", "n");
  EXPECT_EQ(RunProgram({Sibling("module_leaker")}).status, 0);
  for (orm::platform::DebugRecord record; watch.Read(record, 0);) {
    EXPECT_EQ(record.text.find("LEAK"), std::string::npos) << "an area that is off reports nothing";
  }
}

// Objects come and go on other threads until the process is no more: whatever the report finds of them is
// there, and nothing is misuse.
TEST(Frame, TheProcessMayEndWhileObjectsComeAndGo) {
  TraceInto("exit.log");
  SetRegistryText(TRACE_KEY, " option_autoassert", "a");
  SetRegistryText(TRACE_KEY + "\\module_leaker", "leaks", "w");
  for (int round = 0; round < 5; ++round) EXPECT_EQ(RunProgram({Sibling("module_leaker"), "exit"}).status, 0);
  EXPECT_EQ(ReadLog("exit.log"), std::vector<std::string>{});
}

TEST(Frame, AChildMakesObjectsWhateverItsParentsThreadsWereAt) {
  SetRegistryText(TRACE_KEY, " option_autoassert", "a");
  EXPECT_EQ(RunProgram({Sibling("module_leaker"), "fork"}).status, 0);
}

TEST(Frame, MisuseOfTheTracingIsAsserted) {
  std::vector<std::string> lines;
  SetRegistryText(TRACE_KEY, " option_autoassert", "i");
  const std::string log = "misuse.log";
  TraceInto(log);
  // The library's own facility is configured by now: a child sees the new configuration.
  EXPECT_EQ(RunCase("Frame.DISABLED_MisusesTheTracing"), 0);
  EXPECT_EQ(ReadLog(log), (std::vector<std::string>{
                              "assert|e|Module|308|*** Assertion failure: gsTracedObjects.mMap.find(pObj) == "
                              "gsTracedObjects.mMap.end()",
                              "assert|e|Module|315|*** Assertion failure: gsTracedObjects.mMap.find(pObj) != "
                              "gsTracedObjects.mMap.end()"}));
}

TEST(Frame, MisuseIsToldWithoutMemory) {
  TraceInto("nomemory.log");
  SetRegistryText(TRACE_KEY, " option_format", "%2|%3!c!|%9!s!|%10!u!|%8!.0s!|");
  SetRegistryText(TRACE_KEY, " option_autoassert", "i");
  SetRegistryText(TRACE_KEY + "\\module_leaker", "leaks", "w");
  EXPECT_EQ(RunProgram({Sibling("module_leaker"), "nomemory"}).status, 0);
  const std::string absent =
      "assert|e|Module|315||*** Assertion failure: gsTracedObjects.mMap.find(pObj) != "
      "gsTracedObjects.mMap.end()";
  EXPECT_EQ(ReadLog("nomemory.log"),
            (std::vector<std::string>{absent, absent, "leaks|w|leaker|1||without memory",
                                      "leaks|w|leaker|2||==> scope of Untraced",
                                      "leaks|w|leaker|2||<== scope of Untraced"}));
}

TEST(Frame, DISABLED_MisusesTheTracing) {
  static orm::TraceArea area{"leaks"};
  static const int object = 0;
  TraceObjectRegister(&object, &area, "A");
  TraceObjectRegister(&object, &area, "B");
  TraceObjectUnregister(&object);
  TraceObjectUnregister(&object);
}
