// orm trace: the configuration, and a look at lines as they come.
#include <gmock/gmock.h>
#include <win32.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "RunOrm.h"

namespace orm::test {
namespace {

using testing::HasSubstr;

TEST(TraceCommand, ShowsAndSetsLevels) {
  // The command itself has loaded the library, whose areas are registered by that.
  const auto areas = nlohmann::json::parse(RunOrm({"trace", "areas", "--json"}).out);
  const auto find = [](const nlohmann::json& list, const std::string& area) {
    for (const auto& item : list) {
      if (item["module"] == "ormutil" && item["area"] == area) return item["level"].get<std::string>();
    }
    return std::string();
  };
  EXPECT_EQ(find(areas, "thread"), "n");
  EXPECT_EQ(find(areas, " option_format"), "");

  EXPECT_EQ(RunOrm({"trace", "set", "ormutil", "thread", "warning"}).code, 0);
  EXPECT_EQ(find(nlohmann::json::parse(RunOrm({"trace", "areas", "--json"}).out), "thread"), "w");
  EXPECT_EQ(RunOrm({"trace", "set", "ormutil", "*", "e"}).code, 0);
  EXPECT_EQ(find(nlohmann::json::parse(RunOrm({"trace", "areas", "--json"}).out), "string"), "e");
  for (const char* level : {"x", "", "loud"})
    EXPECT_EQ(RunOrm({"trace", "set", "ormutil", "thread", level}).code, 1);
}

TEST(TraceCommand, ShowsAndSetsSettings) {
  struct {
    const char* setting;
    std::string good, bad;
  } const cases[] = {
      {"format", "%1!s!|%3!c!|", std::string(96, 'x')},
      {"format", "%2!s!|", "%6!6"},
      {"target", "c:\\logs\\%1.log", std::string(260, 'x')},
      {"blocktimes", "y", "maybe"},
      {"policy", "i", "D"},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.setting);
    EXPECT_EQ(RunOrm({"trace", item.setting, item.good}).code, 0);
    EXPECT_EQ(RunOrm({"trace", item.setting, item.bad}).code, 1);
    EXPECT_THAT(RunOrm({"trace", item.setting}).out, HasSubstr(item.good));
    EXPECT_EQ(nlohmann::json::parse(RunOrm({"trace", item.setting, "--json"}).out)[0][item.setting],
              item.good);
    EXPECT_EQ(RunOrm({"trace", item.setting, item.good, "-m", "ormutil"}).code, 0);
    EXPECT_EQ(RunOrm({"trace", item.setting, "-m", "ormutil", "--reset"}).code, 0);
    EXPECT_THAT(RunOrm({"trace", item.setting, "-m", "ormutil"}).out, HasSubstr("as for all modules"));
  }
}

TEST(TraceCommand, WatchShowsAndFiltersLines) {
  RunningOrm watch({"trace", "watch", "--json", "--count", "2", "-m", "demo", "-t", "keep", "--for", "60"});
  ASSERT_EQ(watch.ReadErrorLine(), "watching");
  OutputDebugStringA("demo    |area    |     1.500|keep 1\r\n");
  OutputDebugStringA("demo    |area    |     1.600|drop\r\n");
  OutputDebugStringA("other   |area    |     1.700|keep\r\n");
  OutputDebugStringA("no trace line\r\n");
  OutputDebugStringA("demo    |area    |w| 4d2:  10|     1.800| 5:07 PM|    File.cpp|  12|keep 2\r\n");
  std::istringstream lines(watch.Finish().out);
  std::string first, second;
  std::getline(lines, first);
  std::getline(lines, second);
  const auto one = nlohmann::json::parse(first);
  EXPECT_EQ(one["area"], "area");
  EXPECT_EQ(one["time"], "1.500");
  EXPECT_EQ(one["message"], "keep 1");
  EXPECT_EQ(one["process"], GetCurrentProcessId());
  const auto two = nlohmann::json::parse(second);
  EXPECT_EQ(two["level"], "w");
  EXPECT_EQ(two["file"], "File.cpp");
}

TEST(TraceCommand, WatchFiltersByAreaAndLevel) {
  RunningOrm watch({"trace", "watch", "-a", "one", "-a", "two", "-l", "ew", "--count", "2", "--for", "60"});
  ASSERT_EQ(watch.ReadErrorLine(), "watching");
  const auto line = [](const char* area, char level, const char* text) {
    OutputDebugStringA(("demo    |" + std::string(area) + "     |" + level +
                        "| 4d2:  10|     1.800| 5:07 PM|    File.cpp|  12|" + text + "\r\n")
                           .c_str());
  };
  line("one", 'd', "too chatty");
  line("ten", 'e', "elsewhere");
  OutputDebugStringA("demo    |one     |     1.500|of no level\r\n");
  line("one", 'e', "first");
  line("two", 'w', "second");
  const std::string out = watch.Finish().out;
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 2);
  EXPECT_LT(out.find("|first\n"), out.find("|second\n"));
  EXPECT_EQ(out.find('\x1B'), std::string::npos) << "colours are for terminals";
}

TEST(TraceCommand, WatchCountsRates) {
  RunningOrm watch({"trace", "watch", "--json", "--rates", "--count", "3"});
  ASSERT_EQ(watch.ReadErrorLine(), "watching");
  for (int i = 0; i < 3; ++i) OutputDebugStringA("demo    |area    |     1.500|text\r\n");
  unsigned lines = 0;
  std::istringstream reports(watch.Finish().out);
  for (std::string report; std::getline(reports, report);) {
    for (const auto& item : nlohmann::json::parse(report)) lines += item["lines"].get<unsigned>();
  }
  EXPECT_EQ(lines, 3u);
}

TEST(TraceCommand, TailShowsTheEndOfALogFile) {
  const std::string file =
      WriteFileBytes("demo.log",
                     "demo    |a       |     0.001|one\r\ndemo    |b       |     0.002|two\r\n"
                     "demo    |a       |     0.003|three\r\ncut");
  EXPECT_EQ(RunOrm({"trace", "tail", file, "-n", "1"}).out, "demo    |a       |     0.003|three\n");
  EXPECT_EQ(RunOrm({"trace", "tail", file, "-a", "b"}).out, "demo    |b       |     0.002|two\n");
  EXPECT_THAT(RunOrm({"trace", "tail", "ormutil"}).err, HasSubstr("orm trace watch"));
  // Whether they are there when the command looks first or come later, the lines are shown once.
  RunningOrm follow({"trace", "tail", file, "-t", "added", "-f", "--count", "2"});
  std::ofstream(file, std::ios::app | std::ios::binary)
      << ", added\r\ndemo    |b       |     0.004|added\r\n";
  EXPECT_EQ(follow.Finish().out, "cut, added\ndemo    |b       |     0.004|added\n");
  EXPECT_EQ(RunOrm({"trace", "tail", "/no/such/file"}).code, 1);
}

}  // namespace
}  // namespace orm::test
