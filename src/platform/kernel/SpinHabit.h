// Whether a thread that has to wait looks at its word for a little while before it sleeps.
//
// To sleep and to be woken costs some ten microseconds, and threads that answer each other in turns take less
// than that between two answers. Looking for about as long as the sleep would cost at most doubles what a
// wait costs, and then only for the waits that look: those of a thread whose last waits were worth it, and
// now and then one to find out. With one processor nobody could answer meanwhile, and nobody looks.
#pragma once

#include <cstdint>

namespace orm::platform {

struct Waiter;

// Of one thread, which alone uses it.
class SpinHabit {
 public:
  // True when the wait has ended.
  bool Spin(const Waiter& waiter) noexcept { return mWaitsLeft == 0 ? Look(waiter) : (--mWaitsLeft, false); }

 private:
  bool Look(const Waiter& waiter) noexcept;

  // Waits that sleep at once after one that has looked in vain, the more the more of those there were.
  static constexpr uint16_t kFewest = 16;
  static constexpr uint16_t kMost = 1024;
  uint16_t mWaitsLeft = 0;
  uint16_t mPause = kFewest;
};

}  // namespace orm::platform
