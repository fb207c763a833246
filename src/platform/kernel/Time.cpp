// Clock and calendar: FILETIME, SYSTEMTIME and the conversions between them and local time.
#include <time.h>

#include <chrono>
#include <cstdint>

#include "kernel/TimeZone.h"
#include "win32/kernel.h"
#include "win32/time.h"

namespace orm::platform {
namespace {

constexpr std::uint64_t ticksPerSecond = 10'000'000;
constexpr std::uint64_t ticksPerMillisecond = 10'000;
constexpr std::uint64_t ticksPerDay = 86'400 * ticksPerSecond;
constexpr std::uint64_t ticksPerMinute = 60 * ticksPerSecond;
constexpr std::uint64_t firstInvalid = std::uint64_t{1} << 63;
constexpr std::uint64_t unixEpoch = 11'644'473'600 * ticksPerSecond;  // 1970-01-01
constexpr WORD firstYear = 1601;
constexpr WORD lastYear = 30827;  // the last whole year below 2^63 ticks
constexpr std::chrono::sys_days epoch = std::chrono::year{firstYear} / 1 / 1;

std::uint64_t Ticks(const FILETIME& time) {
  return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

FILETIME FromTicks(std::uint64_t ticks) {
  return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

std::uint64_t Now() {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return unixEpoch + static_cast<std::uint64_t>(now.tv_sec) * ticksPerSecond +
         static_cast<std::uint64_t>(now.tv_nsec) / 100;
}

BOOL Fail() {
  SetLastError(ERROR_INVALID_PARAMETER);
  return FALSE;
}

SYSTEMTIME ToCalendar(std::uint64_t ticks) {
  const std::chrono::sys_days day = epoch + std::chrono::days(ticks / ticksPerDay);
  const std::chrono::year_month_day date(day);
  const auto milliseconds = static_cast<std::uint32_t>(ticks % ticksPerDay / ticksPerMillisecond);
  SYSTEMTIME time;
  time.wYear = static_cast<WORD>(static_cast<int>(date.year()));
  time.wMonth = static_cast<WORD>(static_cast<unsigned>(date.month()));
  time.wDay = static_cast<WORD>(static_cast<unsigned>(date.day()));
  time.wDayOfWeek = static_cast<WORD>(std::chrono::weekday(day).c_encoding());
  time.wHour = static_cast<WORD>(milliseconds / 3'600'000);
  time.wMinute = static_cast<WORD>(milliseconds / 60'000 % 60);
  time.wSecond = static_cast<WORD>(milliseconds / 1000 % 60);
  time.wMilliseconds = static_cast<WORD>(milliseconds % 1000);
  return time;
}

// Moves `ticks` by minutes; false when the result or the start lies outside the range.
bool Shift(std::uint64_t ticks, std::int64_t minutes, FILETIME* result) {
  const std::uint64_t shifted = ticks + static_cast<std::uint64_t>(minutes) * ticksPerMinute;
  if (ticks >= firstInvalid || shifted >= firstInvalid) return false;
  *result = FromTicks(shifted);
  return true;
}

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

extern "C" {

void WINAPI GetSystemTimeAsFileTime(FILETIME* time) {
  *time = FromTicks(Now());
}

void WINAPI GetSystemTime(SYSTEMTIME* time) {
  *time = ToCalendar(Now());
}

void WINAPI GetLocalTime(SYSTEMTIME* time) {
  *time = ToCalendar(Now() - static_cast<std::uint64_t>(CurrentZone().bias) * ticksPerMinute);
}

BOOL WINAPI FileTimeToSystemTime(const FILETIME* fileTime, SYSTEMTIME* systemTime) {
  const std::uint64_t ticks = Ticks(*fileTime);
  if (ticks >= firstInvalid) return Fail();
  *systemTime = ToCalendar(ticks);
  return TRUE;
}

BOOL WINAPI SystemTimeToFileTime(const SYSTEMTIME* systemTime, FILETIME* fileTime) {
  const SYSTEMTIME& time = *systemTime;
  const auto date = std::chrono::year{time.wYear} / time.wMonth / time.wDay;
  if (time.wYear < firstYear || time.wYear > lastYear || !date.ok()) return Fail();
  if (time.wHour > 23 || time.wMinute > 59 || time.wSecond > 59 || time.wMilliseconds > 999) return Fail();
  const auto days = static_cast<std::uint64_t>((std::chrono::sys_days(date) - epoch).count());
  const std::uint64_t seconds = (time.wHour * 60u + time.wMinute) * 60u + time.wSecond;
  *fileTime =
      FromTicks(days * ticksPerDay + seconds * ticksPerSecond + time.wMilliseconds * ticksPerMillisecond);
  return TRUE;
}

BOOL WINAPI FileTimeToLocalFileTime(const FILETIME* utc, FILETIME* local) {
  return Shift(Ticks(*utc), -CurrentZone().bias, local) ? TRUE : Fail();
}

BOOL WINAPI LocalFileTimeToFileTime(const FILETIME* local, FILETIME* utc) {
  return Shift(Ticks(*local), CurrentZone().bias, utc) ? TRUE : Fail();
}

DWORD WINAPI GetTimeZoneInformation(TIME_ZONE_INFORMATION* information) {
  if (information == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return TIME_ZONE_ID_INVALID;
  }
  const Zone& zone = CurrentZone();
  *information = zone.information;
  return zone.id;
}

LONG WINAPI CompareFileTime(const FILETIME* left, const FILETIME* right) {
  const std::uint64_t a = Ticks(*left);
  const std::uint64_t b = Ticks(*right);
  return a < b ? -1 : a > b ? 1 : 0;
}

}  // extern "C"
