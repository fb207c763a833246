// UtcTime and TimeDiff: calendar conversion, the clock and arithmetic. DateText.cpp holds the text forms.
#include <ormutil/Error.h>
#include <ormutil/UtcTime.h>

#include "Areas.h"

namespace orm {

namespace {

constexpr const char* kSource = "src/shared/Date";

constexpr DWORD kConversionFailed = 0xE7430002;
constexpr DWORD kDateNotCreated = 0xE743000A;
constexpr DWORD kDifferenceNotCreated = 0xE743000B;
constexpr DWORD kTooHigh = 0xE743000D;
constexpr DWORD kInvalidDate = 0xE743000E;

constexpr LONGLONG kTicksPerMillisecond = 10'000;
constexpr ULONGLONG kTicksPerSecond = 10'000'000;
constexpr ULONGLONG kTicksPerMinute = 60 * kTicksPerSecond;
constexpr ULONGLONG kTicksPerHour = 60 * kTicksPerMinute;
constexpr ULONGLONG kTicksPerDay = 24 * kTicksPerHour;

bool IsLeapYear(int year) {
  return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

int DaysInMonth(int year, int month) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

void TraceBad(const char* format, int value) {
  TraceWrite(areaDate, TRACE_TRACE, false, kSource, __LINE__, format, value);
}

// Tells whether there is such a date; traces the element that is wrong. The day of the week is not looked at,
// and the year has no upper limit: the platform refuses what it cannot represent.
bool IsDate(const SYSTEMTIME& st) {
  const struct {
    bool good;
    const char* trace;  // null: no line
    int value;
  } checks[] = {
      {st.wYear >= 1601, "Bad year %i", st.wYear},
      {st.wMonth >= 1 && st.wMonth <= 12, nullptr, st.wMonth},
      {st.wMonth >= 1 && st.wMonth <= 12 && st.wDay >= 1 && st.wDay <= DaysInMonth(st.wYear, st.wMonth),
       "Bad day %i", st.wDay},
      {st.wHour < 24, "Bad hour %i", st.wHour},
      {st.wMinute < 60, "Bad minute %i", st.wMinute},
      {st.wSecond < 60, "Bad second %i", st.wSecond},
      {st.wMilliseconds < 1000, "Bad ms %i", st.wMilliseconds},
  };
  for (const auto& check : checks) {
    if (check.good) continue;
    if (check.trace) TraceBad(check.trace, check.value);
    return false;
  }
  return true;
}

[[noreturn]] void ThrowTooHigh() {
  throw Error(kTooHigh, "The result of the operation with the date was too high.");
}

// For a platform conversion that has just failed.
[[noreturn]] void ThrowConversionError(const char* trace) {
  Error error = MakeSystemError(GetLastError(), String(), true);
  error.AddLayer(kConversionFailed,
                 "Error in date conversion to/from internal format. Invalid date was probably encountered.");
  TraceWrite(areaDate, TRACE_WARNING, false, kSource, __LINE__, trace);
  throw error;
}

FILETIME ToFileTime(const SYSTEMTIME& elements) {
  FILETIME result;
  if (!SystemTimeToFileTime(&elements, &result)) ThrowConversionError("Error in SystemTimeToFileTime");
  return result;
}

SYSTEMTIME ToSystemTime(const FILETIME& time) {
  SYSTEMTIME result;
  if (!FileTimeToSystemTime(&time, &result)) ThrowConversionError("Error in FileTimeToSystemTime");
  return result;
}

void CheckDate(const SYSTEMTIME& elements) {
  TraceScope scope(areaDate, TRACE_TRACE, kSource, __LINE__, "CheckDate");
  if (IsDate(elements)) return;
  throw Error(kInvalidDate, "Invalid date was encountered.");
}

}  // namespace

void UtcTime::SystemTimeToInternal(const SYSTEMTIME& elements) {
  CheckDate(elements);
  const FILETIME time = ToFileTime(elements);
  mLow = time.dwLowDateTime;
  mHigh = time.dwHighDateTime;
}

void UtcTime::LocalSystemTimeToInternal(const SYSTEMTIME& elements) {
  CheckDate(elements);
  const FILETIME local = ToFileTime(elements);
  FILETIME time;
  if (!LocalFileTimeToFileTime(&local, &time)) ThrowConversionError("Error in LocalFileTimeToFileTime");
  mLow = time.dwLowDateTime;
  mHigh = time.dwHighDateTime;
}

void UtcTime::InternalToSystemTime(SYSTEMTIME& elements) const {
  elements = ToSystemTime({mLow, mHigh});
}

void UtcTime::InternalToLocalSystemTime(SYSTEMTIME& elements) const {
  const FILETIME time{mLow, mHigh};
  FILETIME local;
  if (!FileTimeToLocalFileTime(&time, &local)) ThrowConversionError("Error in FileTimeToLocalFileTime");
  elements = ToSystemTime(local);
}

namespace {

// Runs `convert`, which sets a time from calendar elements, and gives what it throws the layer of a time that
// cannot be made.
template <class Convert>
UtcTime Initialise(const SYSTEMTIME& elements, Convert convert) {
  try {
    CheckDate(elements);
    return convert(elements);
  } catch (Error& error) {
    TraceWrite(areaDate, TRACE_WARNING, false, kSource, __LINE__, "Error in UtcTime UTC initializer");
    error.AddLayer(kDateNotCreated, "Error in date object creating.");
    throw;
  }
}

}  // namespace

UtcTime UtcTime::GetUtc(WORD year, WORD month, WORD day, WORD hour, WORD minute, WORD second,
                        WORD milliseconds) {
  return Initialise({year, month, 0, day, hour, minute, second, milliseconds},
                    [](const SYSTEMTIME& elements) {
                      UtcTime result;
                      result.SystemTimeToInternal(elements);
                      return result;
                    });
}

UtcTime UtcTime::GetLocal(WORD year, WORD month, WORD day, WORD hour, WORD minute, WORD second,
                          WORD milliseconds) {
  return Initialise({year, month, 0, day, hour, minute, second, milliseconds},
                    [](const SYSTEMTIME& elements) {
                      UtcTime result;
                      result.LocalSystemTimeToInternal(elements);
                      return result;
                    });
}

UtcTime UtcTime::GetCurrent() {
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  const ULONGLONG ticks = ULONGLONG{now.dwHighDateTime} << 32 | now.dwLowDateTime;
  return FromTicks(ticks - ticks % kTicksPerMillisecond);
}

UtcTime UtcTime::operator+=(const TimeDiff& span) {
  return *this = FromTicks(GetTicks() + static_cast<ULONGLONG>(span.GetTicks()));
}

UtcTime UtcTime::operator-=(const TimeDiff& span) {
  return *this = FromTicks(GetTicks() - static_cast<ULONGLONG>(span.GetTicks()));
}

TimeDiff UtcTime::operator-(const UtcTime& other) const {
  return TimeDiff::FromTicks(static_cast<LONGLONG>(GetTicks() - other.GetTicks()));
}

int UtcTime::Compare(const UtcTime& other) const {
  const ULONGLONG mine = GetTicks();
  const ULONGLONG theirs = other.GetTicks();
  return mine < theirs ? -1 : mine > theirs;
}

TimeDiff::TimeDiff(DWORD days, DWORD hours, DWORD minutes, DWORD seconds, DWORD milliseconds, bool negative) {
  try {
    DiffElementsToInternal(days, hours, minutes, seconds, milliseconds, negative);
  } catch (Error& error) {
    TraceWrite(areaDate, TRACE_WARNING, false, kSource, __LINE__, "Error in TimeDiff constructor");
    error.AddLayer(kDifferenceNotCreated, "Error in date difference object creating.");
    throw;
  }
}

void TimeDiff::DiffElementsToInternal(DWORD days, DWORD hours, DWORD minutes, DWORD seconds,
                                      DWORD milliseconds, bool negative) {
  constexpr LONGLONG kMax = INT64_MAX;
  LONGLONG total = days;
  const auto scale = [&total](LONGLONG factor, DWORD next) {
    if (total >= kMax / factor) ThrowTooHigh();
    // The sum is taken without a sign, since it may leave the signed range.
    total = static_cast<LONGLONG>(static_cast<ULONGLONG>(total * factor) + next);
    if (total < 0) ThrowTooHigh();
  };
  scale(24, hours);
  scale(60, minutes);
  scale(60, seconds);
  scale(1000, milliseconds);
  if (total >= kMax / kTicksPerMillisecond) ThrowTooHigh();
  const LONGLONG ticks = total * kTicksPerMillisecond;
  mTicks = negative ? -ticks : ticks;
}

void TimeDiff::InternalToDiffElements(DWORD& days, DWORD& hours, DWORD& minutes, DWORD& seconds,
                                      DWORD& milliseconds, bool& negative) const {
  negative = mTicks < 0;
  const ULONGLONG bits = static_cast<ULONGLONG>(mTicks);
  const ULONGLONG magnitude = negative ? 0 - bits : bits;
  days = static_cast<DWORD>(magnitude / kTicksPerDay);
  hours = static_cast<DWORD>(magnitude % kTicksPerDay / kTicksPerHour);
  minutes = static_cast<DWORD>(magnitude % kTicksPerHour / kTicksPerMinute);
  seconds = static_cast<DWORD>(magnitude % kTicksPerMinute / kTicksPerSecond);
  milliseconds = static_cast<DWORD>(magnitude % kTicksPerSecond / kTicksPerMillisecond);
}

void TimeDiff::Negate() {
  mTicks = static_cast<LONGLONG>(0 - static_cast<ULONGLONG>(mTicks));
}

TimeDiff TimeDiff::operator+=(const TimeDiff& other) {
  LONGLONG sum;
  if (__builtin_add_overflow(mTicks, other.mTicks, &sum)) {
    TraceWrite(areaDate, TRACE_WARNING, false, kSource, __LINE__, "Overflow in TimeDiff += operator");
    ThrowTooHigh();
  }
  mTicks = sum;
  return *this;
}

TimeDiff TimeDiff::operator-=(const TimeDiff& other) {
  LONGLONG difference;
  if (__builtin_sub_overflow(mTicks, other.mTicks, &difference)) {
    TraceWrite(areaDate, TRACE_WARNING, false, kSource, __LINE__, "Overflow in TimeDiff -= operator");
    ThrowTooHigh();
  }
  mTicks = difference;
  return *this;
}

int TimeDiff::Compare(const TimeDiff& other) const {
  return mTicks < other.mTicks ? -1 : mTicks > other.mTicks;
}

}  // namespace orm
