// How long a thread looks before it sleeps.
#include "kernel/SpinHabit.h"

#include <sched.h>
#include <time.h>

#include <algorithm>

#include "kernel/Waitable.h"

namespace orm::platform {

namespace {

constexpr int64_t kLongestNanoseconds = 20'000;
constexpr int kLooksBetweenClocks = 16;

// Found out when the library is loaded: at the first use, a fork could find another thread at it.
const bool gsHasSeveralProcessors = []() noexcept {
  cpu_set_t processors;
  return sched_getaffinity(0, sizeof processors, &processors) == 0 && CPU_COUNT(&processors) > 1;
}();

int64_t NowNanoseconds() noexcept {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * int64_t{1'000'000'000} + now.tv_nsec;
}

}  // namespace

bool SpinHabit::Look(const Waiter& waiter) noexcept {
  bool hasEnded = false;
  bool wasWorthIt = false;
  if (gsHasSeveralProcessors) {
    const int64_t end = NowNanoseconds() + kLongestNanoseconds;
    do {
      for (int i = 0; i < kLooksBetweenClocks && !hasEnded; ++i) {
        __builtin_ia32_pause();
        hasEnded = !Waiter::IsWaiting(waiter.word.load(std::memory_order_acquire));
      }
      wasWorthIt = NowNanoseconds() < end;
    } while (!hasEnded && wasWorthIt);
  }
  // A thread that lost its processor while it looked stood in the way of the one that it was waiting for.
  mPause = wasWorthIt ? kFewest : std::min<uint16_t>(mPause * 2, kMost);
  mWaitsLeft = wasWorthIt ? 0 : mPause;
  return hasEnded;
}

}  // namespace orm::platform
