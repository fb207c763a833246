// Time of day and date as text, by pictures such as "h:mm tt" and "dddd, MMMM d, yyyy", in US English.
#include <cstring>
#include <string>
#include <string_view>

#include "kernel/NoMemory.h"
#include "win32/kernel.h"
#include "win32/nls.h"
#include "win32/time.h"

namespace orm::platform {
namespace {

constexpr LCID usEnglish = 0x409;
constexpr std::string_view dayNames[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                         "Thursday", "Friday", "Saturday"};
constexpr std::string_view monthNames[] = {"January",   "February", "March",    "April",
                                           "May",       "June",     "July",     "August",
                                           "September", "October",  "November", "December"};

int Fail(DWORD error) {
  SetLastError(error);
  return 0;
}

bool IsKnownLocale(LCID locale) {
  return locale == LOCALE_SYSTEM_DEFAULT || locale == LOCALE_USER_DEFAULT || locale == LOCALE_INVARIANT ||
         locale == usEnglish || locale == 0;
}

std::string Number(unsigned value, std::size_t digits) {
  std::string text = std::to_string(value);
  return text.size() < digits ? std::string(digits - text.size(), '0') + text : text;
}

std::string HourElement(const SYSTEMTIME& time, char letter, std::size_t count) {
  const unsigned half = time.wHour % 12u == 0 ? 12u : time.wHour % 12u;
  return Number(letter == 'h' ? half : time.wHour, count);
}

std::string TimeElement(const SYSTEMTIME& time, char letter, std::size_t count) {
  switch (letter) {
    case 'h':
    case 'H':
      return HourElement(time, letter, count);
    case 'm':
      return Number(time.wMinute, count);
    case 's':
      return Number(time.wSecond, count);
    default:
      return std::string(time.wHour < 12 ? "AM" : "PM", count > 1 ? 2 : 1);
  }
}

std::string DateElement(const SYSTEMTIME& time, char letter, std::size_t count) {
  switch (letter) {
    case 'd':
      if (count <= 2) return Number(time.wDay, count);
      return std::string(dayNames[time.wDayOfWeek].substr(0, count == 3 ? 3 : std::string_view::npos));
    case 'M':
      if (count <= 2) return Number(time.wMonth, count);
      return std::string(monthNames[time.wMonth - 1].substr(0, count == 3 ? 3 : std::string_view::npos));
    default:
      return count <= 2 ? Number(time.wYear % 100u, count) : Number(time.wYear, 4);
  }
}

struct PictureRules {
  std::string_view letters;  // the letters that stand for elements
  std::size_t mostRepeats;
  std::string (*element)(const SYSTEMTIME&, char, std::size_t);
};
constexpr PictureRules timeRules{"hHmst", 2, TimeElement};
constexpr PictureRules dateRules{"dMy", 4, DateElement};

// Text in quotation marks, from `picture` on; two marks are one. Returns where it ends.
const char* AppendQuoted(const char* picture, std::string& text) {
  while (*picture != '\0') {
    if (*picture == '\'') {
      if (picture[1] != '\'') return picture + 1;
      ++picture;
    }
    text.push_back(*picture++);
  }
  return picture;
}

std::string Expand(const char* picture, const SYSTEMTIME& time, const PictureRules& rules) {
  std::string text;
  while (*picture != '\0') {
    const char letter = *picture;
    if (letter == '\'') {
      picture = AppendQuoted(picture + 1, text);
    } else if (rules.letters.find(letter) == std::string_view::npos) {
      text.push_back(letter);
      ++picture;
    } else {
      std::size_t count = 0;
      while (picture[count] == letter) ++count;
      text += rules.element(time, letter, count < rules.mostRepeats ? count : rules.mostRepeats);
      picture += count;
    }
  }
  return text;
}

std::string TimePicture(DWORD flags) {
  std::string picture = (flags & TIME_FORCE24HOURFORMAT) != 0 ? "HH" : "h";
  if ((flags & TIME_NOMINUTESORSECONDS) == 0) picture += (flags & TIME_NOSECONDS) != 0 ? ":mm" : ":mm:ss";
  if ((flags & (TIME_NOTIMEMARKER | TIME_FORCE24HOURFORMAT)) == 0) picture += " tt";
  return picture;
}

int CopyOut(const std::string& text, LPSTR buffer, int size) {
  const std::size_t needed = text.size() + 1;
  if (size == 0) return static_cast<int>(needed);
  if (needed > static_cast<std::size_t>(size)) return Fail(ERROR_INSUFFICIENT_BUFFER);
  std::memcpy(buffer, text.c_str(), needed);
  return static_cast<int>(needed);
}

bool AreSound(LCID locale, LPCSTR buffer, int size) {
  return IsKnownLocale(locale) && size >= 0 && (buffer != nullptr || size == 0);
}

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

extern "C" {

LCID WINAPI GetSystemDefaultLCID() {
  return usEnglish;
}

int WINAPI GetTimeFormatA(LCID locale, DWORD flags, const SYSTEMTIME* time, LPCSTR format, LPSTR buffer,
                          int size) {
  constexpr DWORD known =
      TIME_NOMINUTESORSECONDS | TIME_NOSECONDS | TIME_NOTIMEMARKER | TIME_FORCE24HOURFORMAT;
  if (!AreSound(locale, buffer, size)) return Fail(ERROR_INVALID_PARAMETER);
  if ((flags & ~known) != 0 || (format != nullptr && flags != 0)) return Fail(ERROR_INVALID_FLAGS);
  SYSTEMTIME now;
  if (time == nullptr) {
    GetLocalTime(&now);
    time = &now;
  }
  if (time->wHour > 23 || time->wMinute > 59 || time->wSecond > 59 || time->wMilliseconds > 999)
    return Fail(ERROR_INVALID_PARAMETER);
  return OrNoMemory(0, [=] {
    return CopyOut(Expand(format != nullptr ? format : TimePicture(flags).c_str(), *time, timeRules), buffer,
                   size);
  });
}

int WINAPI GetDateFormatA(LCID locale, DWORD flags, const SYSTEMTIME* time, LPCSTR format, LPSTR buffer,
                          int size) {
  if (!AreSound(locale, buffer, size)) return Fail(ERROR_INVALID_PARAMETER);
  if ((flags & (flags - 1)) != 0 || flags > DATE_YEARMONTH || flags == 4 || (format != nullptr && flags != 0))
    return Fail(ERROR_INVALID_FLAGS);
  SYSTEMTIME date;
  if (time != nullptr) {
    // The time of day is nobody's business here, and the day of the week follows from the date.
    date = {time->wYear, time->wMonth, 0, time->wDay, 0, 0, 0, 0};
    FILETIME ticks;
    if (!SystemTimeToFileTime(&date, &ticks)) return 0;
    FileTimeToSystemTime(&ticks, &date);
  } else {
    GetLocalTime(&date);
  }
  if (format == nullptr)
    format = flags == DATE_LONGDATE    ? "dddd, MMMM d, yyyy"
             : flags == DATE_YEARMONTH ? "MMMM yyyy"
                                       : "M/d/yyyy";
  return OrNoMemory(0, [=] { return CopyOut(Expand(format, date, dateRules), buffer, size); });
}

}  // extern "C"
