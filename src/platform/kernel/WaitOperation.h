// One wait of a thread on one or several objects: the single mechanism behind every blocking call of the
// layer.
#pragma once

#include <span>

#include "kernel/Futex.h"
#include "kernel/Waitable.h"

namespace orm::platform {

struct WaitResult {
  uint32_t index = Waiter::kTimedOut;  // of the object that ended the wait, or kTimedOut
  Acquired outcome = Acquired::kNo;
};

// The nodes name their objects, in the order of precedence, and what is asked of each; `index` is filled in
// here. The objects must stay alive during the call.
class WaitOperation {
 public:
  explicit WaitOperation(std::span<WaitNode> nodes) noexcept;
  WaitOperation(const WaitOperation&) = delete;
  WaitOperation& operator=(const WaitOperation&) = delete;

  WaitResult WaitForOne(const Deadline& deadline) noexcept;
  // All at once; objects of this process only, each once.
  WaitResult WaitForAll(const Deadline& deadline) noexcept;

  // Whether every object can take part in an all-wait.
  static bool CanWaitForAll(std::span<const WaitNode> nodes) noexcept;

 private:
  WaitResult SleepMixed(const Deadline& deadline) noexcept;
  bool TakeOutside(std::span<WaitNode> nodes) noexcept;
  bool SleepOutside(const Deadline& deadline) noexcept;
  bool SleepOnDescriptors(int pumped, const Deadline& deadline) noexcept;
  bool LinkAll() noexcept;
  void UnlinkAll() noexcept;
  bool TakeAll(std::span<Waitable* const> sorted, WaitResult& result) noexcept;
  WaitResult Finish() noexcept;
  void Sleep(const Deadline& deadline) noexcept;

  std::span<WaitNode> mNodes;
  Waiter mWaiter;
  bool mMixed = false;   // some objects get their signal from outside the process
  uint32_t mLinked = 0;  // nodes up to this one are linked, or were
};

}  // namespace orm::platform
