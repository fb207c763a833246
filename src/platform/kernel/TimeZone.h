// The machine's time zone as it is now, worked out once for each stretch of time in which the answer stays
// the same.
#pragma once

#include <cstdint>

#include "win32/time.h"

namespace orm::platform {

struct Zone {
  std::int64_t from;   // the answer holds from this second since 1970 on
  std::int64_t until;  // and before this one
  TIME_ZONE_INFORMATION information;
  DWORD id;   // TIME_ZONE_ID_x of now
  LONG bias;  // minutes from local time to UTC that are in effect now
  const Zone* previous;
};

// The zone at this moment. The reference stays good for the life of the process. The variable TZ and
// /etc/localtime are read once, at first use. Thread-safe.
const Zone& CurrentZone();

}  // namespace orm::platform
