// The kernel's futex calls. Deadlines are absolute on the monotonic clock; a null deadline waits for ever.
#pragma once

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <optional>

#include "win32/types.h"

namespace orm::platform {

// An optional point in time. INFINITE gives none.
class Deadline {
 public:
  explicit Deadline(DWORD milliseconds) noexcept : mIsNow(milliseconds == 0) {
    if (milliseconds == INFINITE) return;
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const int64_t nanoseconds = now.tv_nsec + int64_t{milliseconds % 1000} * 1'000'000;
    mTime =
        timespec{now.tv_sec + milliseconds / 1000 + nanoseconds / 1'000'000'000, nanoseconds % 1'000'000'000};
  }
  const timespec* Time() const noexcept { return mTime ? &*mTime : nullptr; }
  // No time at all was given: only a look.
  bool IsNow() const noexcept { return mIsNow; }
  // What is left in milliseconds, rounded up; -1 for ever.
  int64_t Remaining() const noexcept {
    if (!mTime) return -1;
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const int64_t nanoseconds = (mTime->tv_sec - now.tv_sec) * 1'000'000'000 + (mTime->tv_nsec - now.tv_nsec);
    return nanoseconds <= 0 ? 0 : (nanoseconds + 999'999) / 1'000'000;
  }

 private:
  bool mIsNow;
  std::optional<timespec> mTime;
};

enum class FutexScope : int { kProcess = FUTEX_PRIVATE_FLAG, kMachine = 0 };

// Sleeps while *word is `expected`. Returns 0, or the error: EAGAIN (another value), ETIMEDOUT, EINTR.
inline int FutexWait(std::atomic<uint32_t>& word, uint32_t expected, const timespec* deadline,
                     FutexScope scope = FutexScope::kProcess) noexcept {
  const long result = syscall(SYS_futex, &word, FUTEX_WAIT_BITSET | static_cast<int>(scope), expected,
                              deadline, nullptr, FUTEX_BITSET_MATCH_ANY);
  return result == 0 ? 0 : errno;
}

inline void FutexWake(std::atomic<uint32_t>& word, int count = 1,
                      FutexScope scope = FutexScope::kProcess) noexcept {
  syscall(SYS_futex, &word, FUTEX_WAKE | static_cast<int>(scope), count, nullptr, nullptr, 0);
}

}  // namespace orm::platform
