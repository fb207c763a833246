// Instants: their scale, the dates that there are, the errors of those that there are not.
#include <gtest/gtest.h>
#include <ormutil/UtcTime.h>

#include "support/ErrorLayers.h"
#include "support/ModuleTrace.h"

using namespace orm;
using namespace test;

namespace {

const Layer kNotCreated{0xE743000A, "Error in date object creating."};
const Layer kInvalid{0xE743000E, "Invalid date was encountered."};
const Layer kConversion{
    0xE7430002, "Error in date conversion to/from internal format. Invalid date was probably encountered."};

// The count of days by another road than the platform's: years one by one.
int64_t DaysSince1601(int year, int month, int day) {
  const auto leap = [](int y) { return y % 4 == 0 && (y % 100 != 0 || y % 400 == 0); };
  const int months[] = {31, leap(year) ? 29 : 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  int64_t days = day - 1;
  for (int y = 1601; y < year; ++y) days += leap(y) ? 366 : 365;
  for (int m = 1; m < month; ++m) days += months[m - 1];
  return days;
}

}  // namespace

TEST(UtcTime, Scale) {
  EXPECT_EQ(sizeof(UtcTime), 8u);
  EXPECT_EQ(UtcTime::GetUtc(1601, 1, 1, 0, 0, 0, 0).GetTicks(), 0u);
  EXPECT_EQ(UtcTime::GetUtc(2004, 3, 15, 12, 30, 0, 0).GetTicks(), 127'238'274'000'000'000u);
  EXPECT_EQ(UtcTime::GetUtc(1601, 1, 1, 0, 0, 0, 1).GetTicks(), 10'000u);
  // The halves lie low word first.
  const UtcTime time = UtcTime::FromTicks(0x0123456789ABCDEF);
  DWORD words[2];
  std::memcpy(words, &time, sizeof words);
  EXPECT_EQ(words[0], 0x89ABCDEFu);
  EXPECT_EQ(words[1], 0x01234567u);
}

TEST(UtcTime, EveryMonthThereAndBack) {
  for (int year : {1601, 1700, 1752, 1900, 1970, 2000, 2004, 2038, 2100, 9999, 30827}) {
    for (int month = 1; month <= 12; ++month) {
      const UtcTime time =
          UtcTime::GetUtc(static_cast<WORD>(year), static_cast<WORD>(month), 28, 23, 59, 58, 999);
      ASSERT_EQ(static_cast<int64_t>(time.GetTicks()),
                (DaysSince1601(year, month, 28) * 86'400 + 86'398) * 10'000'000 + 9'990'000);
      SYSTEMTIME st;
      time.GetUtcElements(st);
      ASSERT_EQ(st.wYear, year);
      ASSERT_EQ(st.wMonth, month);
      ASSERT_EQ(st.wDay, 28);
      ASSERT_EQ(st.wMilliseconds, 999);
      ASSERT_EQ(st.wDayOfWeek, (DaysSince1601(year, month, 28) + 1) % 7);  // 1601 began on a Monday
    }
  }
}

TEST(UtcTime, DatesThatAreNone) {
  const struct {
    SYSTEMTIME st;
    std::vector<std::string> trace;
  } cases[] = {
      {{1600, 12, 0, 31, 0, 0, 0, 0}, {"Bad year 1600"}},
      {{2003, 0, 0, 1, 0, 0, 0, 0}, {}},
      {{2003, 13, 0, 1, 0, 0, 0, 0}, {}},
      {{2003, 4, 0, 0, 0, 0, 0, 0}, {"Bad day 0"}},
      {{2003, 4, 0, 31, 0, 0, 0, 0}, {"Bad day 31"}},
      {{2003, 2, 0, 29, 0, 0, 0, 0}, {"Bad day 29"}},
      {{1900, 2, 0, 29, 0, 0, 0, 0}, {"Bad day 29"}},
      {{2003, 4, 0, 30, 24, 60, 0, 0}, {"Bad hour 24"}},
      {{2003, 4, 0, 30, 23, 60, 60, 0}, {"Bad minute 60"}},
      {{2003, 4, 0, 30, 23, 59, 60, 0}, {"Bad second 60"}},
      {{2003, 4, 0, 30, 23, 59, 59, 1000}, {"Bad ms 1000"}},
  };
  ModuleTrace trace("Date", 't');
  for (const auto& c : cases) {
    for (auto* get : {&UtcTime::GetUtc, &UtcTime::GetLocal}) {
      const auto& st = c.st;
      EXPECT_EQ(LayersOf([&] {
                  get(st.wYear, st.wMonth, st.wDay, st.wHour, st.wMinute, st.wSecond, st.wMilliseconds);
                }),
                (Layers{kNotCreated, kInvalid}));
      std::vector<std::string> expected{"==> CheckDate"};
      expected.insert(expected.end(), c.trace.begin(), c.trace.end());
      expected.push_back("<== CheckDate");
      expected.push_back("Error in UtcTime UTC initializer");
      EXPECT_EQ(trace.Take(), expected);
    }
  }
  for (WORD year : {WORD{1904}, WORD{2000}, WORD{2004}})
    EXPECT_NO_THROW(UtcTime::GetUtc(year, 2, 29, 23, 59, 59, 999)) << year;
}

TEST(UtcTime, WhatThePlatformCannotConvert) {
  const std::string systemText = MakeSystemError(87, String(), false).GetMessage(0).GetBegin();
  ModuleTrace trace("Date", 'w');
  EXPECT_EQ(LayersOf([] { UtcTime::GetUtc(30828, 1, 1, 0, 0, 0, 0); }),
            (Layers{kNotCreated, kConversion, {87, systemText}}));
  EXPECT_EQ(trace.Take(),
            (std::vector<std::string>{"Error in SystemTimeToFileTime", "Error in UtcTime UTC initializer"}));
  SYSTEMTIME st;
  EXPECT_EQ(LayersOf([&] { UtcTime::FromTicks(UINT64_MAX).GetUtcElements(st); }),
            (Layers{kConversion, {87, systemText}}));
  EXPECT_EQ(trace.Take(), (std::vector<std::string>{"Error in FileTimeToSystemTime"}));
}

TEST(UtcTime, Arithmetic) {
  const UtcTime a = UtcTime::GetUtc(2004, 2, 28, 0, 0, 0, 0);
  const UtcTime b = UtcTime::GetUtc(2004, 3, 1, 0, 0, 0, 0);
  EXPECT_EQ((b - a).GetTicks(), 2 * 864'000'000'000);
  EXPECT_EQ((a - b).GetTicks(), -2 * 864'000'000'000);
  EXPECT_EQ(a + TimeDiff(2, 0, 0, 0, 0, false), b);
  EXPECT_EQ(b - TimeDiff(0, 48, 0, 0, 0, false), a);
  EXPECT_LT(a, b);
  UtcTime top = UtcTime::FromTicks(UINT64_MAX);
  EXPECT_GT(top, b) << "compared without a sign";
  EXPECT_EQ((top += TimeDiff::FromTicks(1)).GetTicks(), 0u) << "wraps";
}

TEST(UtcTime, NowInWholeMilliseconds) {
  const UtcTime now = UtcTime::GetCurrent();
  EXPECT_EQ(now.GetTicks() % 10'000, 0u);
  FILETIME ft;
  GetSystemTimeAsFileTime(&ft);
  const UtcTime later = UtcTime::FromTicks(ULONGLONG{ft.dwHighDateTime} << 32 | ft.dwLowDateTime);
  EXPECT_LE(now, later);
}
