// What can be waited for. An object that is signalled hands its signal to the waiters one by one, in the
// order in which they came; a waiter takes at most one object (it is claimed by an interlocked step on its
// wake word), so a signal is never lost on a waiter that has just been satisfied by another object.
#pragma once

#include <atomic>
#include <cstdint>

#include "kernel/Object.h"

namespace orm::platform {

struct ThreadRecord;
class Waitable;

// One thread that waits.
struct Waiter {
  static constexpr uint32_t kAwake = 0xFFFFFFFF;   // waits and looks at the word itself
  static constexpr uint32_t kAsleep = 0xFFFFFFFE;  // waits and has to be woken
  static constexpr uint32_t kTimedOut = 0xFFFFFFFD;
  static constexpr uint32_t kLookAgain = 0xFFFFFFFC;  // an all-wait: one of its objects has changed
  static constexpr uint32_t kClaimed = 0xFFFFFFFB;    // an object is being handed over

  static bool IsWaiting(uint32_t word) noexcept { return word >= kAsleep; }

  // Ends the wait with `value` and returns what the word was; when the wait had ended already, nothing
  // changes.
  uint32_t Claim(uint32_t value) noexcept {
    uint32_t before = word.load(std::memory_order_relaxed);
    while (IsWaiting(before) && !word.compare_exchange_weak(before, value, std::memory_order_acq_rel))
      continue;
    return before;
  }

  std::atomic<uint32_t> word{kAwake};  // the index of the object that ended the wait
  bool all = false;
  int wakeDescriptor = -1;  // eventfd of a waiter that sleeps in poll instead of on the word
};

enum class Acquired : uint8_t {
  kNo,
  kYes,
  kOwned,      // the thread has become the owner of a mutex
  kAbandoned,  // the same, and the previous owner died with it
};

// One object of a wait, linked into the object's list while the thread sleeps.
struct WaitNode {
  Waitable* object = nullptr;
  Waiter* waiter = nullptr;
  ThreadRecord* thread = nullptr;
  uint32_t index = 0;
  uint32_t mask = 0;                 // kinds of input, for message queues
  bool fresh = true;                 // a message queue: only input that has not been looked at yet
  bool linked = false;               // guarded by the object's lock
  Acquired outcome = Acquired::kNo;  // filled in before the waiter's word
  WaitNode* next = nullptr;
  WaitNode* previous = nullptr;
};

// A futex word of shared memory that changes when an object of several processes may have become free.
struct SharedWait {
  std::atomic<uint32_t>* word = nullptr;
  uint32_t expected = 0;
};

class Waitable : public KernelObject {
 public:
  // Takes the signal for the calling thread if the object has one, without waiting.
  virtual Acquired TryAcquire(const WaitNode& request) noexcept;

  // Objects that somebody of this process has to look after: Pump signals those for which something has come
  // in, and the descriptor is readable when that may be so. One pump serves all such objects.
  virtual bool IsPumped() const noexcept { return false; }
  virtual void Pump() noexcept {}
  virtual int PollDescriptor() const noexcept { return -1; }

  // Objects whose signal is taken outside the process: TryAcquire decides, and there is a shared word to
  // sleep on. False when the object has become free meanwhile.
  virtual bool PrepareSharedWait(SharedWait&) noexcept { return false; }
  // Ends what PrepareSharedWait began; `acquired` tells whether the thread has taken the object since.
  virtual void EndSharedWait(bool) noexcept {}
  // Gives back what TryAcquire took for a wait that another object had already ended, as `outcome` tells it.
  virtual void Undo(const WaitNode&) noexcept {}
  virtual bool IsShared() const noexcept { return false; }
  bool IsOutside() const noexcept { return IsShared() || IsPumped(); }

  // In a child made by fork, whose only thread has this record (null: none yet): those who waited, or were
  // about to change something here, do not exist.
  virtual void ForgetOtherThreads(const ThreadRecord* self) noexcept;

 protected:
  explicit Waitable(ObjectKind kind, bool signalled = false) noexcept
      : KernelObject(kind, true), mState(signalled ? kSignalled : 0) {}

  // The two questions of an object in this process, asked under its lock.
  virtual bool IsSignalledFor(const WaitNode&) const noexcept {
    return (mState.load(std::memory_order_relaxed) & kSignalled) != 0;
  }
  virtual Acquired Consume(const WaitNode&) noexcept { return Acquired::kYes; }

  // Marks the object signalled and wakes who may have it.
  void Signal() noexcept;
  // Waits for the lock: a signal that is being handed out goes to every waiter that was there.
  void Unsignal() noexcept;
  // For objects that keep a signal of their own (message queues): wakes who may have it, under the lock.
  class Lock;
  void WakeWaiters(Lock&) noexcept;

  static constexpr uint32_t kLocked = 1;
  static constexpr uint32_t kContended = 2;
  static constexpr uint32_t kSignalled = 4;
  static constexpr uint32_t kWaiters = 8;
  std::atomic<uint32_t> mState;

 private:
  friend class WaitOperation;
  void Link(WaitNode& node) noexcept;
  void Unlink(WaitNode& node) noexcept;
  void LockState() noexcept;
  void UnlockState() noexcept;

  WaitNode* mFirst = nullptr;
  WaitNode* mLast = nullptr;
};

// Holds an object's lock; waiters that were claimed are woken after it is left.
class Waitable::Lock {
 public:
  explicit Lock(Waitable& object) noexcept : mObject(object) { mObject.LockState(); }
  ~Lock();
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  void WakeLater(Waiter& waiter) noexcept;

 private:
  static constexpr unsigned kBatch = 16;
  Waitable& mObject;
  std::atomic<uint32_t>* mWake[kBatch];
  unsigned mCount = 0;
};

}  // namespace orm::platform
