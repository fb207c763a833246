// Calendar, ticks and zones.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <tuple>

#include "support/Child.h"
#include "win32.h"

namespace {

std::uint64_t Ticks(const FILETIME& time) {
  return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}
FILETIME FromTicks(std::uint64_t ticks) {
  return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

constexpr std::uint64_t minute = 600'000'000;

TEST(Time, CalendarAndTicks) {
  const struct {
    SYSTEMTIME time;
    std::uint64_t ticks;
  } rows[] = {
      {{1601, 1, 1, 1, 0, 0, 0, 0}, 0},
      {{1970, 1, 4, 1, 0, 0, 0, 0}, 116444736000000000},
      {{2000, 2, 2, 29, 23, 59, 59, 999}, 125963423999990000},
      {{2026, 11, 2, 24, 17, 7, 9, 5}, 134400136290050000},
      {{30827, 12, 5, 31, 23, 59, 59, 999}, 9223149887999990000},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.ticks);
    FILETIME ticks;
    ASSERT_TRUE(SystemTimeToFileTime(&row.time, &ticks));
    EXPECT_EQ(Ticks(ticks), row.ticks);
    SYSTEMTIME back;
    ASSERT_TRUE(FileTimeToSystemTime(&ticks, &back));
    EXPECT_EQ(std::memcmp(&back, &row.time, sizeof back), 0)
        << back.wYear << ' ' << back.wMonth << ' ' << back.wDay;
  }
}

TEST(Time, WhatIsNoTime) {
  const SYSTEMTIME rows[] = {
      {1600, 12, 0, 31, 0, 0, 0, 0}, {30828, 1, 0, 1, 0, 0, 0, 0},   {2026, 0, 0, 1, 0, 0, 0, 0},
      {2026, 13, 0, 1, 0, 0, 0, 0},  {2026, 1, 0, 0, 0, 0, 0, 0},    {2026, 4, 0, 31, 0, 0, 0, 0},
      {1900, 2, 0, 29, 0, 0, 0, 0},  {2026, 1, 0, 1, 24, 0, 0, 0},   {2026, 1, 0, 1, 0, 60, 0, 0},
      {2026, 1, 0, 1, 0, 0, 60, 0},  {2026, 1, 0, 1, 0, 0, 0, 1000}, {65535, 1, 0, 1, 0, 0, 0, 0},
  };
  for (const SYSTEMTIME& row : rows) {
    FILETIME ticks = {1, 2};
    SetLastError(0);
    EXPECT_FALSE(SystemTimeToFileTime(&row, &ticks)) << row.wYear << ' ' << row.wMonth << ' ' << row.wDay;
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  }
  SYSTEMTIME time;
  const FILETIME negative = FromTicks(std::uint64_t{1} << 63);
  EXPECT_FALSE(FileTimeToSystemTime(&negative, &time));
  const FILETIME last = FromTicks((std::uint64_t{1} << 63) - 1);
  EXPECT_TRUE(FileTimeToSystemTime(&last, &time));
  EXPECT_EQ(time.wYear, 30828);
}

TEST(Time, Clock) {
  FILETIME before, now;
  GetSystemTimeAsFileTime(&before);
  SYSTEMTIME calendar;
  GetSystemTime(&calendar);
  ASSERT_TRUE(SystemTimeToFileTime(&calendar, &now));
  EXPECT_GE(Ticks(now) + 10'000, Ticks(before));
  EXPECT_LT(Ticks(now) - Ticks(before) + 10'000, 10 * minute);
  EXPECT_EQ(CompareFileTime(&before, &before), 0);
  const FILETIME small = FromTicks(0xFFFFFFFF), large = FromTicks(std::uint64_t{1} << 63);
  EXPECT_EQ(CompareFileTime(&small, &large), -1);
  EXPECT_EQ(CompareFileTime(&large, &small), 1);
}

// What holds in every zone: the parts of the zone's description add up to the offset of now, and both
// conversions use it for any date.
TEST(Time, DISABLED_ZoneIsConsistent) {
  const time_t clock = time(nullptr);
  tm local{};
  localtime_r(&clock, &local);
  const LONG expected = static_cast<LONG>(-local.tm_gmtoff / 60);
  TIME_ZONE_INFORMATION zone;
  const DWORD id = GetTimeZoneInformation(&zone);
  LONG bias = zone.Bias;
  if (id == TIME_ZONE_ID_DAYLIGHT && zone.DaylightDate.wMonth != 0) bias += zone.DaylightBias;
  if (id != TIME_ZONE_ID_DAYLIGHT && zone.StandardDate.wMonth != 0) bias += zone.StandardBias;
  EXPECT_EQ(bias, expected);
  for (const SYSTEMTIME& date :
       {SYSTEMTIME{2000, 1, 0, 1, 12, 0, 0, 0}, SYSTEMTIME{2031, 7, 0, 1, 12, 0, 0, 0}}) {
    FILETIME utc, there, back;
    ASSERT_TRUE(SystemTimeToFileTime(&date, &utc));
    ASSERT_TRUE(FileTimeToLocalFileTime(&utc, &there));
    EXPECT_EQ(static_cast<std::int64_t>(Ticks(utc) - Ticks(there)),
              expected * static_cast<std::int64_t>(minute));
    ASSERT_TRUE(LocalFileTimeToFileTime(&there, &back));
    EXPECT_EQ(Ticks(back), Ticks(utc));
  }
  // At the ends of the range a shift fails instead of wrapping.
  const FILETIME first = FromTicks(0), last = FromTicks((std::uint64_t{1} << 63) - 1),
                 beyond = FromTicks(~std::uint64_t{0});
  FILETIME result;
  EXPECT_EQ(FileTimeToLocalFileTime(&first, &result), expected <= 0);
  EXPECT_EQ(FileTimeToLocalFileTime(&last, &result), expected >= 0);
  EXPECT_EQ(LocalFileTimeToFileTime(&first, &result), expected >= 0);
  EXPECT_FALSE(LocalFileTimeToFileTime(&beyond, &result));
  if (const char* wanted = std::getenv("ORM_TEST_ID")) {
    EXPECT_EQ(std::to_string(id), wanted);
  }
}

// The zone as a rule, with the change dates far from today in either direction, so that the season does not
// matter.
std::string ZoneWithDaylight(bool now, const char* standard, const char* daylight) {
  const time_t clock = time(nullptr);
  tm today{};
  gmtime_r(&clock, &today);
  const int begin = (today.tm_yday + (now ? 300 : 60)) % 365;
  const int end = (today.tm_yday + (now ? 60 : 300)) % 365;
  return std::string(standard) + daylight + "," + std::to_string(begin) + "," + std::to_string(end);
}

TEST(Time, Zones) {
  const struct {
    std::string zone;
    const char* id;
  } rows[] = {
      {"UTC0", "0"},
      {"<+0530>-5:30", "0"},  // India
      {"<+0545>-5:45", "0"},  // Nepal
      {"<-0330>3:30", "0"},
      {"<-12>12", "0"},
      {"<+14>-14", "0"},
      {ZoneWithDaylight(false, "CET-1", "CEST"), "1"},
      {ZoneWithDaylight(true, "CET-1", "CEST"), "2"},
      {ZoneWithDaylight(false, "EST5", "EDT"), "1"},
      {ZoneWithDaylight(true, "EST5", "EDT"), "2"},
      {ZoneWithDaylight(true, "<+1030>-10:30", "<+11>-11"), "2"},  // half an hour of daylight time
      {ZoneWithDaylight(true, "<+1245>-12:45", "<+1345>"), "2"},
      {ZoneWithDaylight(false, "IST-1", "GMT0"),
       "2"},  // summer time called standard, winter negative daylight time
      {ZoneWithDaylight(true, "IST-1", "GMT0"), "1"},
  };
  for (const auto& row : rows) {
    setenv("ORM_TEST_ID", row.id, 1);
    EXPECT_EQ(test::RunCase("Time.DISABLED_ZoneIsConsistent", "TZ=" + row.zone), 0) << row.zone;
  }
}

TEST(Time, ZonesOfTheWorld) {
  unsetenv("ORM_TEST_ID");
  for (const char* zone :
       {"Europe/Berlin", "Europe/Dublin", "America/New_York", "America/St_Johns", "Asia/Kathmandu",
        "Australia/Lord_Howe", "Pacific/Chatham", "Africa/Casablanca", "Asia/Tehran", "Etc/UTC"})
    EXPECT_EQ(test::RunCase("Time.DISABLED_ZoneIsConsistent", std::string("TZ=") + zone), 0) << zone;
}

// The rule of a change: the last Sunday is told from the fourth.
TEST(Time, DISABLED_BerlinRules) {
  TIME_ZONE_INFORMATION zone;
  ASSERT_NE(GetTimeZoneInformation(&zone), TIME_ZONE_ID_INVALID);
  EXPECT_EQ(zone.Bias, -60);
  EXPECT_EQ(zone.DaylightBias, -60);
  const SYSTEMTIME& summer = zone.DaylightDate;
  const SYSTEMTIME& winter = zone.StandardDate;
  EXPECT_EQ(std::make_tuple(summer.wYear, summer.wMonth, summer.wDayOfWeek, summer.wDay, summer.wHour),
            std::make_tuple(0, 3, 0, 5, 2));
  EXPECT_EQ(std::make_tuple(winter.wYear, winter.wMonth, winter.wDayOfWeek, winter.wDay, winter.wHour),
            std::make_tuple(0, 10, 0, 5, 3));
  EXPECT_EQ(zone.StandardName[0], 'C');
  EXPECT_EQ(zone.DaylightName[2], 'S');
}

TEST(Time, RulesOfChange) {
  EXPECT_EQ(test::RunCase("Time.DISABLED_BerlinRules", "TZ=CET-1CEST,M3.5.0,M10.5.0/3"), 0);
}

}  // namespace
