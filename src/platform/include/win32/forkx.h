// What a module has done around fork. Not part of win32.h: the original platform knows no fork.
#pragma once

#include <pthread.h>

namespace orm::platform {

// Calls `before` on the forking thread, then `after` on it in the parent and `afterInChild` in the child. The
// child has that thread alone: a lock that another one holds at that moment is never let go there, so
// `before` takes the module's locks, whole data behind them, and `after` lets them go. What was registered
// last is called first before a fork, and last after it: a lock that is held while others are taken is
// registered after those.
//
// Inline, so that the calls belong to the image that registers them and end when it is unloaded. False when
// there is no memory.
inline bool CallAroundFork(void (*before)(), void (*after)(), void (*afterInChild)()) noexcept {
  return pthread_atfork(before, after, afterInChild) == 0;
}
inline bool CallAroundFork(void (*before)(), void (*after)()) noexcept {
  return CallAroundFork(before, after, after);
}

}  // namespace orm::platform
