// The tick count of this program and the libraries that it has loaded. It stands still and is moved on by
// hand, so that a machine that is slow changes nothing.
#include "TestClock.h"

#include <win32.h>

#include <atomic>

namespace {

constinit std::atomic<DWORD> gsNow{0x7FFF0000};

}  // namespace

void AdvanceClock(unsigned milliseconds) {
  gsNow += milliseconds;
}

// Found before the platform's own.
extern "C" DWORD GetTickCount() noexcept {
  return gsNow;
}
