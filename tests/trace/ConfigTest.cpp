// What the facility reads from the registry, and what it leaves there.
#include <gtest/gtest.h>
#include <ormutil/Trace.h>
#include <unistd.h>
#include <win32/debugwatch.h>
#include <win32/registryx.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "TraceFacility.h"
#include "support/Child.h"
#include "support/TraceConfig.h"

using namespace orm;
using namespace test;

namespace {

const std::string MODULE_KEY = TRACE_KEY + "\\test_trace";
constexpr const char* FULL_FORMAT =
    "%1!-8s!|%2!-8s!|%3!c!|%4!4x!:%5!4x!|%6!6u!.%7!03u!|%8!8s!|%9!12s!|%10!4u!|";
constexpr const char* DEFAULT_FORMAT = "%1!-8s!|%2!-8s!|%6!6u!.%7!03u!|";

constinit TraceArea area{"area"};

struct Sink {
  explicit Sink(char policy = 0) { TraceSetSink(Add, this, policy); }
  ~Sink() { TraceSetSink(nullptr, nullptr, 0); }
  static void Add(void* self, const char* line) { static_cast<Sink*>(self)->lines.push_back(line); }
  std::vector<std::string> lines;
};

}  // namespace

TEST(TraceConfig, LeavesItsDefaultsWhereNothingWas) {
  TraceAreaRegister(area);
  TraceWrite(area, TRACE_ERROR, false, "a", 1, "dropped");
  struct {
    std::string key, name, value;
  } expected[] = {
      {TRACE_KEY, " info_fullformat", FULL_FORMAT},
      {TRACE_KEY, " option_format", DEFAULT_FORMAT},
      {TRACE_KEY, " option_target", "<dbglog>"},
      {TRACE_KEY, " option_blocktimes", "n"},
      {TRACE_KEY, " option_autoassert", "d"},
      {MODULE_KEY, " info_fullformat", FULL_FORMAT},
      {MODULE_KEY, " option_format", ""},
      {MODULE_KEY, " option_target", ""},
      {MODULE_KEY, " option_blocktimes", ""},
      {MODULE_KEY, " option_autoassert", ""},
      {MODULE_KEY, "area", "n"},
  };
  for (const auto& [key, name, value] : expected) EXPECT_EQ(GetRegistryText(key, name), value) << key << name;
}

TEST(TraceConfig, RepairsWhatItCannotUse) {
  SetRegistryText(TRACE_KEY, " option_format", std::string(96, 'x'));
  SetRegistryText(TRACE_KEY, " option_blocktimes", "q");
  SetRegistryText(TRACE_KEY, " option_autoassert", "D");
  SetRegistryText(MODULE_KEY, " option_blocktimes", "q");
  SetRegistryText(MODULE_KEY, " option_autoassert", "q");
  SetRegistryText(MODULE_KEY, " info_nodynupdate", "1");
  SetRegistryText(MODULE_KEY, "area", "q");
  // Too long to be used, and too good to be lost.
  SetRegistryText(MODULE_KEY, " option_format", std::string(96, 'm'));
  SetRegistryText(MODULE_KEY, " option_target", std::string(300, 'm'));
  SetRegistryText(TRACE_KEY, " option_target", std::string(260, 'g'));
  TraceAreaRegister(area);
  EXPECT_STREQ(trace_detail::facility.format, DEFAULT_FORMAT);
  EXPECT_STREQ(trace_detail::facility.target, "<dbglog>");
  EXPECT_EQ(GetRegistryText(TRACE_KEY, " option_target"), std::string(260, 'g'));
  EXPECT_EQ(GetRegistryText(MODULE_KEY, " option_format"), std::string(96, 'm'));
  EXPECT_EQ(GetRegistryText(MODULE_KEY, " option_target"), std::string(300, 'm'));
  EXPECT_EQ(GetRegistryText(TRACE_KEY, " option_format"), DEFAULT_FORMAT);
  EXPECT_EQ(GetRegistryText(TRACE_KEY, " option_blocktimes"), "n");
  EXPECT_EQ(GetRegistryText(TRACE_KEY, " option_autoassert"), "d");
  EXPECT_EQ(GetRegistryText(MODULE_KEY, " option_blocktimes"), "n");
  EXPECT_EQ(GetRegistryText(MODULE_KEY, " option_autoassert"), "");
  EXPECT_EQ(GetRegistryText(MODULE_KEY, " info_nodynupdate"), "<none>");
  EXPECT_EQ(GetRegistryText(MODULE_KEY, "area"), "n");
}

// What leave lines tell, and what the two values are afterwards. A value that stays away is "<none>", one of
// a strange type "<dword>".
class BlockTimes : public testing::TestWithParam<std::array<const char*, 5>> {
 protected:
  static void Set(const std::string& key, const std::string& value) {
    constexpr const char* name = " option_blocktimes";
    if (value == "<none>") return;
    SetRegistryText(key, name, value);
    if (value != "<dword>") return;
    HKEY handle = nullptr;
    RegOpenKeyExA(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_WRITE, &handle);
    const BYTE number[4] = {'y'};
    RegSetValueExA(handle, name, 0, REG_DWORD, number, sizeof number);
    RegCloseKey(handle);
  }
};

TEST_P(BlockTimes, FollowTheModuleAndThenAll) {
  const auto [global, module, areTimed, globalAfter, moduleAfter] = GetParam();
  Set(TRACE_KEY, global);
  Set(MODULE_KEY, module);
  TraceAreaRegister(area);
  EXPECT_EQ(trace_detail::timesBlocks ? "timed" : "untimed", std::string(areTimed));
  EXPECT_EQ(GetRegistryText(TRACE_KEY, " option_blocktimes"), globalAfter);
  EXPECT_EQ(GetRegistryText(MODULE_KEY, " option_blocktimes"), moduleAfter);
}

INSTANTIATE_TEST_SUITE_P(
    TraceConfig, BlockTimes,
    testing::Values(std::array{"<none>", "<none>", "untimed", "n", ""},
                    std::array{"y", "<none>", "timed", "y", ""}, std::array{"Y", "", "timed", "Y", ""},
                    std::array{"N", "Y", "timed", "N", "Y"}, std::array{"Y", "N", "untimed", "Y", "N"},
                    std::array{"y", "q", "timed", "y", "n"}, std::array{"q", "<dword>", "untimed", "n", ""},
                    std::array{"<dword>", "y", "timed", "n", "y"},
                    std::array{"yes", "", "untimed", "n", ""}));

TEST(TraceConfig, ModuleValuesGoBeforeGlobalOnes) {
  SetRegistryText(TRACE_KEY, " option_format", "global|");
  SetRegistryText(MODULE_KEY, " option_format", "module|");
  SetRegistryText(MODULE_KEY, "area", "w");
  Sink sink;
  TraceWrite(area, TRACE_WARNING, false, "a", 1, "x");
  EXPECT_EQ(sink.lines, std::vector<std::string>{"module|x\r\n"});
}

// What a hand has mistyped must neither be taken for an address nor silence the trace.
TEST(TraceConfig, InsertsThatAreNotThereAreNotFollowed) {
  const struct {
    const char* format;
    bool isUsed;
  } cases[] = {
      {"%1|", true},       {"%1!-8s!|", true},  {"%9!.3s!|", true},    {"%2!hs!|", true},
      {"%3!c!|", true},    {"%3!u!|", true},    {"%4!08I64x!|", true}, {"100%%|", true},
      {"%n%t%1%0|", true}, {"%", true},         {"%4|", false},        {"%3!s!|", false},
      {"%11!u!|", false},  {"%99|", false},     {"%1!ls!|", false},    {"%1!S!|", false},
      {"%1!ws!|", false},  {"%10!*u!|", false}, {"%1!n!|", false},     {"%1!s!%4!8", false},
      {"%1!.*s!|", false}, {"%6!s!|", false},   {"%10|", false},       {"%1!", false},
  };
  for (const auto& [format, isUsed] : cases) {
    EXPECT_EQ(trace_detail::InsertsAreSafe(format, "ssnnnnnssn"), isUsed) << format;
  }
  SetRegistryText(TRACE_KEY, " option_format", "%4!s!|");
  SetRegistryText(TRACE_KEY, " option_target", "%2.log");
  SetRegistryText(MODULE_KEY, "area", "w");
  Sink sink;
  TraceWrite(area, TRACE_WARNING, false, "a", 1, "x");
  ASSERT_EQ(sink.lines.size(), 1u);
  EXPECT_EQ(sink.lines[0].substr(0, 20), "test_trace|area    |");
  EXPECT_EQ(GetRegistryText(TRACE_KEY, " option_format"), "%4!s!|") << "left for its author to mend";
}

TEST(TraceConfig, ATargetIsTheDebuggerInAnyCase) {
  SetRegistryText(TRACE_KEY, " option_target", "<DbgLog>");
  SetRegistryText(TRACE_KEY, " option_format", "");
  SetRegistryText(MODULE_KEY, "area", "w");
  orm::platform::DebugWatch watch;
  ASSERT_TRUE(watch.IsOpen());
  TraceWrite(area, TRACE_WARNING, false, "a", 1, "to the debugger");
  orm::platform::DebugRecord record;
  ASSERT_TRUE(watch.Read(record, 60000));
  EXPECT_EQ(record.text, "to the debugger\r\n");
}

// Here a trail byte looks like a backslash, and the fifteenth byte leads a character.
TEST(TraceConfig, ModuleNamesKeepTheirCharactersWhole) {
  SetRegistryText("SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage", "ACP", "932");
  SetRegistryText(TRACE_KEY, " option_format", "%1|");
  SetRegistryText(TRACE_KEY, " option_target", "C:\\Windows\\Temp\\names.log");
  SetRegistryText(TRACE_KEY, " option_autoassert", "i");
  const std::filesystem::path folder(getenv("ORM_MACHINE"));
  for (const char* name : {"\u8868x.exe", "12345678901234\u8868", ".hidden"}) {
    std::filesystem::copy_file(Sibling("trace_writer"), folder / name);
    EXPECT_EQ(RunProgram({(folder / name).string(), "assert"}).status, 4);
  }
  const std::string message = "|src/x(12):assert fail:x > 0";
  EXPECT_EQ(ReadLog("names.log"), (std::vector<std::string>{"\x95\x5Cx" + message, "12345678901234" + message,
                                                            ".hidden" + message}));
}

TEST(TraceConfig, LevelsFollowTheRegistryFromTheNextLineOn) {
  SetRegistryText(TRACE_KEY, " option_format", ">");
  Sink sink;
  struct {
    const char* letter;
    int highest;
  } steps[] = {{"n", -1}, {"W", 1}, {"e", 0}, {"l", 4}, {"D", 2}, {"t", 3}, {"?", 3}, {"n", -1}};
  for (const auto& [letter, highest] : steps) {
    SetRegistryText(MODULE_KEY, "area", letter);
    sink.lines.clear();
    for (int level = -1; level <= 6; ++level) TraceWrite(area, level, false, "a", 1, "%d", level);
    std::vector<std::string> expected;
    if (highest >= 0) expected.push_back(">-1\r\n");  // below the lowest counts as the lowest
    for (int level = 0; level <= highest; ++level) expected.push_back(">" + std::to_string(level) + "\r\n");
    EXPECT_EQ(sink.lines, expected) << letter;
  }
}

TEST(TraceConfig, ALevelThatIsNoneIsTheNearest) {
  static constinit TraceArea silent{"silent", 99}, loud{"loud", -1};
  TraceAreaRegister(silent);
  TraceAreaRegister(loud);
  EXPECT_EQ(GetRegistryText(MODULE_KEY, "silent"), "n");
  EXPECT_EQ(GetRegistryText(MODULE_KEY, "loud"), "e");
}

// The area asks for its level while somebody else is about to set it.
TEST(TraceConfig, AnAreaDoesNotWriteOverALevelThatIsJustBeingSet) {
  static constinit TraceArea other{"other"};
  TraceAreaRegister(other);
  HKEY key = nullptr;
  ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, MODULE_KEY.c_str(), 0, KEY_READ | KEY_WRITE, &key),
            LSTATUS{ERROR_SUCCESS});
  ASSERT_EQ(OrmRegBeginTransaction(key, 100), LSTATUS{ERROR_SUCCESS});
  SetRegistryText(MODULE_KEY, "area", "w");
  std::atomic<pid_t> id{0};
  std::thread registration([&id] {
    id.store(gettid());
    TraceAreaRegister(area);
  });
  // It has found no level and waits for the writer.
  const auto isAsleep = [&id] {
    std::ifstream status("/proc/self/task/" + std::to_string(id.load()) + "/stat");
    const std::string text{std::istreambuf_iterator<char>(status), {}};
    return text.find(") S ") != std::string::npos;
  };
  while (id.load() == 0 || !isAsleep()) std::this_thread::yield();
  EXPECT_EQ(OrmRegCommitTransaction(key), LSTATUS{ERROR_SUCCESS});
  registration.join();
  RegCloseKey(key);
  EXPECT_EQ(GetRegistryText(MODULE_KEY, "area"), "w");
  EXPECT_EQ(area.level, TRACE_WARNING);
}

TEST(TraceConfig, AnotherProcessSeesTheChange) {
  const std::string key = TRACE_KEY + "\\trace_writer";
  SetRegistryText(TRACE_KEY, " option_format", "");
  SetRegistryText(TRACE_KEY, " option_target", "C:\\Windows\\Temp\\%1.log");
  Child child({Sibling("trace_writer"), "watch"});
  for (const char* step : {"n", "w", "n", "w"}) {
    SetRegistryText(key, "writer", step);
    child.WriteLine(step);
    ASSERT_EQ(child.ReadLine(), "done");
  }
  EXPECT_EQ(ReadLog("trace_writer.log"), (std::vector<std::string>{"w", "w"}));
}
