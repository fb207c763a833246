// Mutexes: what both kinds share (an owner, a recursion count) and the kind without a name.
#pragma once

#include "kernel/Waitable.h"

namespace orm::platform {

class OwnableMutex : public Waitable {
 public:
  // TryAcquire for the calling thread.
  virtual Acquired TryOwn(ThreadRecord& thread) noexcept;
  // Gives up one level of ownership; true when that was the last. Only the owner calls it.
  virtual bool ReleaseOnce() noexcept = 0;
  // Gives the mutex up altogether because its owner ends.
  virtual void Abandon() noexcept = 0;

  static bool IsMutex(const KernelObject& object) noexcept {
    return object.Kind() == ObjectKind::kMutex || object.Kind() == ObjectKind::kNamedMutex;
  }

 protected:
  using Waitable::Waitable;

  // The count is the owner's alone. The owner is read by others only to find that it is not them.
  std::atomic<const ThreadRecord*> mOwner{nullptr};
  uint32_t mCount = 0;
};

class Mutex final : public OwnableMutex {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kMutex;

  Mutex() noexcept : OwnableMutex(kKind, true) {}

  Acquired TryAcquire(const WaitNode& request) noexcept override;
  bool ReleaseOnce() noexcept override;
  void Abandon() noexcept override;
  // Abandoned by an owner that does not exist here.
  void ForgetOtherThreads(const ThreadRecord* self) noexcept override;

 protected:
  bool IsSignalledFor(const WaitNode& request) const noexcept override;
  Acquired Consume(const WaitNode& request) noexcept override;

 private:
  Acquired Own(const ThreadRecord* thread) noexcept;

  bool mAbandoned = false;  // guarded by being the one who frees or takes the mutex
};

}  // namespace orm::platform
