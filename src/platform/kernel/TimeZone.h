// The machine's time zone as it is now, worked out once for each stretch of time in which the answer stays
// the same.
#pragma once

#include <cstdint>
#include <string>

#include "win32/time.h"

namespace orm::platform {

// Where the rules of a zone come from: the variable TZ or, without it, the system's file.
struct ZoneSource {
  bool hasVariable = false;
  std::string variable;
  std::uint64_t fileStamp = 0;  // tells versions of the file apart

  bool operator==(const ZoneSource&) const = default;
};

struct Zone {
  std::int64_t from;   // the answer holds from this second since 1970 on
  std::int64_t until;  // and before this one
  TIME_ZONE_INFORMATION information;
  DWORD id;   // TIME_ZONE_ID_x of now
  LONG bias;  // minutes from local time to UTC that are in effect now
};

// The zone at this moment. The reference stays good until the thread's next call at least. A new value of TZ
// counts at once, another /etc/localtime within a second. Thread-safe, as long as no thread changes the
// environment.
const Zone& CurrentZone() noexcept;

}  // namespace orm::platform
