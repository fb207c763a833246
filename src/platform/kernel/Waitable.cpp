// The lock and the waiter list of an object, and how a signal finds its waiter.
#include "kernel/Waitable.h"

#include <sched.h>

#include "kernel/Futex.h"

namespace orm::platform {

namespace {

constexpr int kSpins = 64;  // a lock is held for some dozen instructions; past that its owner was preempted

}  // namespace

void Waitable::LockState() noexcept {
  uint32_t state = mState.load(std::memory_order_relaxed);
  for (int spin = 0; spin < kSpins; ++spin) {
    if ((state & kLocked) != 0) {
      __builtin_ia32_pause();
      state = mState.load(std::memory_order_relaxed);
    } else if (mState.compare_exchange_weak(state, state | kLocked, std::memory_order_acquire,
                                            std::memory_order_relaxed)) {
      return;
    }
  }
  // Whoever has slept takes the lock as contended: others may sleep still.
  for (;;) {
    if ((state & kLocked) == 0) {
      if (mState.compare_exchange_weak(state, state | kLocked | kContended, std::memory_order_acquire,
                                       std::memory_order_relaxed)) {
        return;
      }
    } else if ((state & kContended) != 0 ||
               mState.compare_exchange_weak(state, state | kContended, std::memory_order_relaxed)) {
      FutexWait(mState, state | kContended, nullptr);
      state = mState.load(std::memory_order_relaxed);
    }
  }
}

void Waitable::UnlockState() noexcept {
  const uint32_t before = mState.fetch_and(~(kLocked | kContended), std::memory_order_release);
  if ((before & kContended) != 0) FutexWake(mState);
}

Waitable::Lock::~Lock() {
  mObject.UnlockState();
  // The waiters may be gone by now; a wake of an address that nobody sleeps on does nothing.
  for (unsigned i = 0; i < mCount; ++i) FutexWake(*mWake[i]);
}

void Waitable::Lock::WakeLater(Waiter& waiter) noexcept {
  if (mCount == kBatch) {
    for (auto* word : mWake) FutexWake(*word);
    mCount = 0;
  }
  mWake[mCount++] = &waiter.word;
}

void Waitable::Link(WaitNode& node) noexcept {
  node.next = nullptr;
  node.previous = mLast;
  (mLast != nullptr ? mLast->next : mFirst) = &node;
  mLast = &node;
  node.linked = true;
  mState.fetch_or(kWaiters, std::memory_order_relaxed);
}

void Waitable::Unlink(WaitNode& node) noexcept {
  (node.previous != nullptr ? node.previous->next : mFirst) = node.next;
  (node.next != nullptr ? node.next->previous : mLast) = node.previous;
  node.linked = false;
  if (mFirst == nullptr) mState.fetch_and(~kWaiters, std::memory_order_relaxed);
}

Acquired Waitable::TryAcquire(const WaitNode& request) noexcept {
  const Lock lock(*this);
  return IsSignalledFor(request) ? Consume(request) : Acquired::kNo;
}

void Waitable::Signal() noexcept {
  uint32_t state = mState.load(std::memory_order_relaxed);
  while ((state & (kLocked | kWaiters)) == 0) {
    if (mState.compare_exchange_weak(state, state | kSignalled, std::memory_order_release,
                                     std::memory_order_relaxed)) {
      return;
    }
  }
  Lock lock(*this);
  mState.fetch_or(kSignalled, std::memory_order_release);
  WakeWaiters(lock);
}

void Waitable::Unsignal() noexcept {
  uint32_t state = mState.load(std::memory_order_relaxed);
  while ((state & kLocked) == 0) {
    if (mState.compare_exchange_weak(state, state & ~kSignalled, std::memory_order_acq_rel,
                                     std::memory_order_relaxed)) {
      return;
    }
  }
  const Lock lock(*this);
  mState.fetch_and(~kSignalled, std::memory_order_acq_rel);
}

void Waitable::ForgetOtherThreads(const ThreadRecord*) noexcept {
  mState.fetch_and(kSignalled, std::memory_order_acq_rel);
  mFirst = mLast = nullptr;
}

void Waitable::WakeWaiters(Lock& lock) noexcept {
  for (WaitNode* node = mFirst; node != nullptr;) {
    WaitNode& candidate = *node;
    node = node->next;
    if (!IsSignalledFor(candidate)) continue;
    Waiter& waiter = *candidate.waiter;
    if (waiter.all) {
      if (waiter.Claim(Waiter::kLookAgain) == Waiter::kAsleep) lock.WakeLater(waiter);
      continue;
    }
    const uint32_t before = waiter.Claim(Waiter::kClaimed);
    if (!Waiter::IsWaiting(before)) continue;
    // The waiter does not leave before the index stands in its word, so its memory is safe until then.
    candidate.outcome = Consume(candidate);
    Unlink(candidate);
    if (waiter.wakeDescriptor >= 0) {
      const uint64_t one = 1;
      [[maybe_unused]] const auto written = write(waiter.wakeDescriptor, &one, sizeof(one));
      waiter.word.store(candidate.index, std::memory_order_release);
    } else {
      if (before == Waiter::kAsleep) lock.WakeLater(waiter);
      waiter.word.store(candidate.index, std::memory_order_release);
    }
  }
}

}  // namespace orm::platform
