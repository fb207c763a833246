// The class manager's lock, and holding it for a scope.
//
// Whoever changes anything holds the lock alone. Creating an object of a loaded library, which only looks
// something up, shares it, so that threads that create objects do not wait for each other: each announces
// itself in one of several counters on cache lines of their own, and whoever takes the lock alone closes the
// gate for newcomers and waits until the counters are 0.
//
// Order of locks: the manager's lock first, then the mutex of the shared cache, never the other way round.
// Component code that makes objects runs without the lock; component code that lists classes or agrees to an
// unload runs with it.
#pragma once

#include <win32.h>

#include <array>
#include <atomic>

namespace orm {

class ManagerLock {
 public:
  ManagerLock() { InitializeCriticalSection(&mSection); }
  ~ManagerLock() { DeleteCriticalSection(&mSection); }
  ManagerLock(const ManagerLock&) = delete;
  ManagerLock& operator=(const ManagerLock&) = delete;

  // Alone; as often as the thread likes.
  void Enter() {
    EnterCriticalSection(&mSection);
    if (mDepth++ != 0) return;
    mOwner.store(GetCurrentThreadId(), std::memory_order_relaxed);
    CloseGate();
  }
  void Leave() {
    if (--mDepth == 0) {
      mOwner.store(0, std::memory_order_relaxed);
      mIsClosed.store(false, std::memory_order_release);
    }
    LeaveCriticalSection(&mSection);
  }
  // For the child of a fork, whose only thread holds the lock: others of the parent that have announced
  // themselves at the closed gate do not take that back here.
  void ForgetSharers() {
    for (Sharers& sharers : mSharers) sharers.count.store(0, std::memory_order_relaxed);
  }
  // For a thread that goes no further, whatever it was at: others find what a component finds that calls the
  // manager from there.
  void LeaveForEver() {
    if (mOwner.load(std::memory_order_relaxed) != GetCurrentThreadId()) return;
    for (DWORD depth = mDepth; depth > 0; --depth) Leave();
  }

  // How a thread shares the lock; to be given back to LeaveShared.
  using Share = std::atomic<DWORD>*;

  // For a few instructions that wait for nothing and call nobody. The thread may hold the lock already.
  Share EnterShared() {
    std::atomic<DWORD>& counter = mSharers[GetCurrentThreadId() % SHARES].count;
    // In one order with the closing of the gate: either the sharer sees it closed, or whoever closed it sees
    // the sharer.
    counter.fetch_add(1, std::memory_order_seq_cst);
    if (!mIsClosed.load(std::memory_order_seq_cst)) return &counter;
    counter.fetch_sub(1, std::memory_order_relaxed);
    // Behind whoever holds the lock alone. The gate stays open, so that others go on sharing meanwhile.
    EnterCriticalSection(&mSection);
    return nullptr;
  }
  void LeaveShared(Share share) {
    if (share) {
      share->fetch_sub(1, std::memory_order_release);
    } else {
      LeaveCriticalSection(&mSection);
    }
  }

 private:
  static constexpr size_t SHARES = 16;

  struct alignas(64) Sharers {
    std::atomic<DWORD> count{0};
  };

  void CloseGate() {
    if (OrmHasOneThread()) {
      mIsClosed.store(true, std::memory_order_relaxed);
      return;
    }
    mIsClosed.store(true, std::memory_order_seq_cst);
    for (Sharers& sharers : mSharers) {
      while (sharers.count.load(std::memory_order_seq_cst) != 0) SwitchToThread();
    }
  }

  CRITICAL_SECTION mSection;
  DWORD mDepth = 0;              // of the thread that holds it alone
  std::atomic<DWORD> mOwner{0};  // that thread
  alignas(64) std::atomic<bool> mIsClosed{false};
  std::array<Sharers, SHARES> mSharers;
};

class ClassLock {
 public:
  explicit ClassLock(ManagerLock& rLock) : mrLock(rLock) { mrLock.Enter(); }
  ~ClassLock() { mrLock.Leave(); }
  ClassLock(const ClassLock&) = delete;
  ClassLock& operator=(const ClassLock&) = delete;

 private:
  friend class ClassUnlock;
  ManagerLock& mrLock;
};

class SharedClassLock {
 public:
  explicit SharedClassLock(ManagerLock& rLock) : mrLock(rLock), mShare(rLock.EnterShared()) {}
  ~SharedClassLock() { mrLock.LeaveShared(mShare); }
  SharedClassLock(const SharedClassLock&) = delete;
  SharedClassLock& operator=(const SharedClassLock&) = delete;

 private:
  ManagerLock& mrLock;
  const ManagerLock::Share mShare;
};

// Gives the lock up for the rest of the scope and takes it again at its end, also when the scope is left by
// an exception.
class ClassUnlock {
 public:
  explicit ClassUnlock(ClassLock& rLock) : mrLock(rLock.mrLock) { mrLock.Leave(); }
  ~ClassUnlock() { mrLock.Enter(); }
  ClassUnlock(const ClassUnlock&) = delete;
  ClassUnlock& operator=(const ClassUnlock&) = delete;

 private:
  ManagerLock& mrLock;
};

}  // namespace orm
