// Points in time and spans between them.
//
//   const UtcTime start = UtcTime::GetUtc(2004, 3, 15, 12, 30, 0, 0);
//   const UtcTime end = start + TimeDiff(0, 25, 0, 0, 0, false);  // a day and an hour later
//   end.ToStringGeneralizedTime()                                 // "20040316133000Z" on a machine in UTC
//
// Both types are plain values of 8 bytes without shared state: any number of threads may use copies of their
// own. They count ticks of 100 nanoseconds, the unit and the epoch (1601-01-01 00:00:00 UTC) of the
// platform's FILETIME. Calendar dates are those of the Gregorian calendar, also before it was introduced.
#pragma once

#include <ormutil/BaseString.h>
#include <ormutil/Export.h>
#include <win32.h>

#include <compare>

namespace orm {

// A signed span of time.
class ORMUTIL_API TimeDiff {
 public:
  // The span of no length.
  constexpr TimeDiff() = default;

  // The span of these elements, negated when `negative` is true. The elements are not limited to their
  // calendar range: 25 hours are a day and an hour. Throws 0xE743000D below 0xE743000B when the span reaches
  // 922,337,203,685,477 milliseconds.
  TimeDiff(DWORD days, DWORD hours, DWORD minutes, DWORD seconds, DWORD milliseconds, bool negative);

  static constexpr TimeDiff FromTicks(LONGLONG ticks) {
    TimeDiff result;
    result.mTicks = ticks;
    return result;
  }
  constexpr LONGLONG GetTicks() const { return mTicks; }

  // The elements that the span takes apart into; ticks below a millisecond are dropped.
  void GetElements(DWORD& days, DWORD& hours, DWORD& minutes, DWORD& seconds, DWORD& milliseconds,
                   bool& negative) const {
    InternalToDiffElements(days, hours, minutes, seconds, milliseconds, negative);
  }

  // Changes the sign. The most negative span is its own negation.
  void Negate();

  // Add and subtract; return a copy of the new value. Throw 0xE743000D on overflow, the span being unchanged
  // then.
  TimeDiff operator+=(const TimeDiff& other);
  TimeDiff operator-=(const TimeDiff& other);

  friend bool operator==(const TimeDiff& a, const TimeDiff& b) { return a.Compare(b) == 0; }
  friend std::strong_ordering operator<=>(const TimeDiff& a, const TimeDiff& b) { return a.Compare(b) <=> 0; }

 protected:
  // -1, 0 or 1.
  int Compare(const TimeDiff& other) const;
  // Sets the span; throws 0xE743000D, leaving it unchanged, when it would be too long.
  void DiffElementsToInternal(DWORD days, DWORD hours, DWORD minutes, DWORD seconds, DWORD milliseconds,
                              bool negative);
  void InternalToDiffElements(DWORD& days, DWORD& hours, DWORD& minutes, DWORD& seconds, DWORD& milliseconds,
                              bool& negative) const;

 private:
  LONGLONG mTicks = 0;
};

// An instant. Every way to make one from calendar elements, from text or from the clock yields whole
// milliseconds.
//
// Local time is the platform's: the offset from UTC in effect at the moment of the call, with daylight saving
// if it is in effect at that moment, is applied to any date.
class ORMUTIL_API UtcTime {
 public:
  // 1601-01-01 00:00:00 UTC.
  constexpr UtcTime() = default;

  // The instant with these calendar elements (month and day from 1), in UTC or in local time. Throw
  // 0xE743000A above 0xE743000E when there is no such date (years begin at 1601), above 0xE7430002 when the
  // platform cannot represent it.
  static UtcTime GetUtc(WORD year, WORD month, WORD day, WORD hour, WORD minute, WORD second,
                        WORD milliseconds);
  static UtcTime GetLocal(WORD year, WORD month, WORD day, WORD hour, WORD minute, WORD second,
                          WORD milliseconds);

  // Now, in whole milliseconds.
  static UtcTime GetCurrent();

  static constexpr UtcTime FromTicks(ULONGLONG ticks) {
    UtcTime result;
    result.mLow = static_cast<DWORD>(ticks);
    result.mHigh = static_cast<DWORD>(ticks >> 32);
    return result;
  }
  constexpr ULONGLONG GetTicks() const { return ULONGLONG{mHigh} << 32 | mLow; }

  // The calendar elements. Throw 0xE7430002 when the platform cannot convert the instant.
  void GetUtcElements(SYSTEMTIME& elements) const { InternalToSystemTime(elements); }
  void GetLocalElements(SYSTEMTIME& elements) const { InternalToLocalSystemTime(elements); }

  // Shift the instant; return a copy of the new value. The count of ticks wraps: an instant outside the
  // platform's range fails when it is converted.
  UtcTime operator+=(const TimeDiff& span);
  UtcTime operator-=(const TimeDiff& span);
  TimeDiff operator-(const UtcTime& other) const;

  friend UtcTime operator+(UtcTime time, const TimeDiff& span) { return time += span; }
  friend UtcTime operator-(UtcTime time, const TimeDiff& span) { return time -= span; }
  friend bool operator==(const UtcTime& a, const UtcTime& b) { return a.Compare(b) == 0; }
  friend std::strong_ordering operator<=>(const UtcTime& a, const UtcTime& b) { return a.Compare(b) <=> 0; }

  // The text forms of the ASN.1 types UTCTime (two-digit year, no fraction of a second) and GeneralizedTime
  // (ITU-T X.680, 46 and 47): local time followed by its difference from UTC, or "Z" when there is none.
  // Throw 0xE7430002 when the instant cannot be converted, the system's error when the time zone is unknown.
  BaseString<MbcsTraits> ToStringUTC() const;
  BaseString<MbcsTraits> ToStringGeneralizedTime() const;

  // Read those forms; blanks and tabs after the zone are ignored. UTCTime: seconds may be missing, the zone
  // may not; years 51 to 99 are 1951 to 1999. GeneralizedTime: minutes and seconds may be missing; a text
  // without a zone is local time; a fraction behind "." or "," counts milliseconds. Throw 0xE743000F when the
  // text does not have the form, 0xE743000E when there is no such date.
  static UtcTime FromStringUTC(const BaseString<MbcsTraits>& text);
  static UtcTime FromStringGeneralizedTime(const BaseString<MbcsTraits>& text);

 protected:
  // -1, 0 or 1.
  int Compare(const UtcTime& other) const;
  void InternalToSystemTime(SYSTEMTIME& elements) const;
  void InternalToLocalSystemTime(SYSTEMTIME& elements) const;
  // Throw 0xE743000E or 0xE7430002, leaving the instant unchanged. The day of the week is not looked at.
  void SystemTimeToInternal(const SYSTEMTIME& elements);
  void LocalSystemTimeToInternal(const SYSTEMTIME& elements);

 private:
  // The two halves of the count, in the order of the platform's FILETIME.
  DWORD mLow = 0;
  DWORD mHigh = 0;
};

}  // namespace orm
