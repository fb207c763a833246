// Clock, calendar and time zone. A FILETIME counts 100-nanosecond ticks since 1601-01-01; a SYSTEMTIME holds
// calendar elements. The zone is the machine's: the variable TZ, else /etc/localtime. Everything here may be
// called from any thread at once.
#pragma once

#include "win32/types.h"

// Offsets are in minutes, UTC minus local time. The dates say when the next change to standard (daylight)
// time is, in local time, with wYear 0 and wDay the n-th such weekday of the month (5: the last); month 0
// where the zone has no changes.
struct TIME_ZONE_INFORMATION {
  LONG Bias;
  WCHAR StandardName[32];
  SYSTEMTIME StandardDate;
  LONG StandardBias;  // added to Bias in standard time
  WCHAR DaylightName[32];
  SYSTEMTIME DaylightDate;
  LONG DaylightBias;  // added to Bias in daylight time
};

inline constexpr DWORD TIME_ZONE_ID_UNKNOWN = 0;  // the zone has no daylight time
inline constexpr DWORD TIME_ZONE_ID_STANDARD = 1;
inline constexpr DWORD TIME_ZONE_ID_DAYLIGHT = 2;
inline constexpr DWORD TIME_ZONE_ID_INVALID = 0xFFFFFFFF;

extern "C" {

// Now, in UTC.
ORM_PLATFORM_API void WINAPI GetSystemTimeAsFileTime(FILETIME* time);
ORM_PLATFORM_API void WINAPI GetSystemTime(SYSTEMTIME* time);

// Now, in the machine's zone.
ORM_PLATFORM_API void WINAPI GetLocalTime(SYSTEMTIME* time);

// Calendar elements of a tick count, the day of the week included. Error 87: the count is 2^63 or more.
ORM_PLATFORM_API BOOL WINAPI FileTimeToSystemTime(const FILETIME* fileTime, SYSTEMTIME* systemTime);

// Tick count of calendar elements; the day of the week is not looked at. Error 87: no such date or time of
// day, or a year outside 1601 to 30827.
ORM_PLATFORM_API BOOL WINAPI SystemTimeToFileTime(const SYSTEMTIME* systemTime, FILETIME* fileTime);

// Between UTC and local ticks by the offset that is in effect now, whatever the date. Error 87: the result
// lies outside the range.
ORM_PLATFORM_API BOOL WINAPI FileTimeToLocalFileTime(const FILETIME* utc, FILETIME* local);
ORM_PLATFORM_API BOOL WINAPI LocalFileTimeToFileTime(const FILETIME* local, FILETIME* utc);

// Describes the machine's zone and returns which half of the year it is in now, TIME_ZONE_ID_x. Names are cut
// to 31 units. TIME_ZONE_ID_INVALID and 87: a null argument.
ORM_PLATFORM_API DWORD WINAPI GetTimeZoneInformation(TIME_ZONE_INFORMATION* information);

// -1, 0 or 1 as `left` is earlier than, equal to or later than `right`.
ORM_PLATFORM_API LONG WINAPI CompareFileTime(const FILETIME* left, const FILETIME* right);

}  // extern "C"
