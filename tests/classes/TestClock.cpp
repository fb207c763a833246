// The tick count of this program and the libraries that it has loaded: the system's, moved on by hand instead
// of by waiting.
#include "TestClock.h"

#include <win32.h>

#include <atomic>
#include <chrono>

namespace {

constinit std::atomic<DWORD> gsAdvance{0};

}  // namespace

void AdvanceClock(unsigned milliseconds) {
  gsAdvance += milliseconds;
}

// Found before the platform's own.
extern "C" DWORD GetTickCount() noexcept {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<DWORD>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count()) + gsAdvance;
}
