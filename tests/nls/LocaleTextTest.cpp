// Time of day and date as text.
#include <gtest/gtest.h>

#include <string>

#include "win32.h"

namespace {

SYSTEMTIME At(WORD hour, WORD minute, WORD second) {
  return {2026, 11, 0, 24, hour, minute, second, 5};
}

std::string TimeText(const SYSTEMTIME& time, DWORD flags, const char* picture = nullptr) {
  char text[64];
  const int size = GetTimeFormatA(LOCALE_SYSTEM_DEFAULT, flags, &time, picture, text, sizeof text);
  EXPECT_EQ(GetTimeFormatA(LOCALE_SYSTEM_DEFAULT, flags, &time, picture, nullptr, 0), size);
  return size == 0 ? "error " + std::to_string(GetLastError())
                   : std::string(text, static_cast<std::size_t>(size - 1));
}

std::string DateText(const SYSTEMTIME& time, DWORD flags, const char* picture = nullptr) {
  char text[64];
  const int size = GetDateFormatA(LOCALE_SYSTEM_DEFAULT, flags, &time, picture, text, sizeof text);
  return size == 0 ? "error " + std::to_string(GetLastError())
                   : std::string(text, static_cast<std::size_t>(size - 1));
}

TEST(LocaleText, TimeOfDay) {
  EXPECT_EQ(TimeText(At(17, 7, 9), TIME_NOSECONDS), "5:07 PM");
  EXPECT_EQ(TimeText(At(0, 0, 0), TIME_NOSECONDS), "12:00 AM");
  EXPECT_EQ(TimeText(At(12, 59, 0), 0), "12:59:00 PM");
  EXPECT_EQ(TimeText(At(5, 7, 9), TIME_FORCE24HOURFORMAT), "05:07:09");
  EXPECT_EQ(TimeText(At(17, 7, 9), TIME_NOMINUTESORSECONDS), "5 PM");
  EXPECT_EQ(TimeText(At(17, 7, 9), TIME_NOTIMEMARKER), "5:07:09");
  EXPECT_EQ(TimeText(At(17, 7, 9), 0, "HH'h'm't' hh.mm.ss t ''''"), "17h7t 05.07.09 P '");
  EXPECT_EQ(TimeText(At(17, 7, 9), 0, "'open"), "open");
  EXPECT_EQ(TimeText(At(24, 0, 0), 0), "error 87");
  EXPECT_EQ(TimeText(At(1, 0, 0), 0x100), "error 1004");
  EXPECT_EQ(TimeText(At(1, 0, 0), TIME_NOSECONDS, "h"), "error 1004");
  char text[8];
  const SYSTEMTIME time = At(17, 7, 9);
  EXPECT_EQ(GetTimeFormatA(0x409, TIME_NOSECONDS, &time, nullptr, text, 8), 8);
  EXPECT_EQ(GetTimeFormatA(0x409, TIME_NOSECONDS, &time, nullptr, text, 7), 0);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(GetTimeFormatA(0x407, TIME_NOSECONDS, &time, nullptr, text, 8), 0);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(LocaleText, Date) {
  const SYSTEMTIME time = At(99, 99, 99);  // the time of day is not looked at
  EXPECT_EQ(DateText(time, 0), "11/24/2026");
  EXPECT_EQ(DateText(time, DATE_LONGDATE), "Tuesday, November 24, 2026");
  EXPECT_EQ(DateText(time, DATE_YEARMONTH), "November 2026");
  EXPECT_EQ(DateText(time, 0, "ddd dd.MM.yy MMM 'of' yyyy"), "Tue 24.11.26 Nov of 2026");
  EXPECT_EQ(DateText(time, DATE_SHORTDATE | DATE_LONGDATE), "error 1004");
  EXPECT_EQ(DateText({2026, 2, 0, 29, 0, 0, 0, 0}, 0), "error 87");
  EXPECT_EQ(GetSystemDefaultLCID(), 0x409u);
}

}  // namespace
