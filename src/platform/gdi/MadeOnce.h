// What is made at its first use and kept for ever, since other modules' exit actions may still need it.
//
// An object that a function makes once would do, but for the child of a fork: it waited for ever for a thread
// of the parent that was making the object.
#pragma once

#include <atomic>
#include <mutex>

namespace orm::platform::gdi {

template <class T>
class MadeOnce {
 public:
  constexpr MadeOnce() = default;

  // Any thread. Throws what making the object throws; the next call tries again.
  T& Get() {
    if (T* const made = mMade.load(std::memory_order_acquire)) return *made;
    const std::lock_guard lock(mLock);
    if (!mMade.load(std::memory_order_relaxed)) mMade.store(new T, std::memory_order_release);
    return *mMade.load(std::memory_order_relaxed);
  }

  [[nodiscard]] bool IsMade() const { return mMade.load(std::memory_order_relaxed) != nullptr; }

  // Around a fork: nobody makes the object, and `operation` is done to one that is made.
  template <class Operation>
  void Lock(Operation operation) {
    mLock.lock();
    if (T* const made = mMade.load(std::memory_order_relaxed)) operation(*made);
  }
  template <class Operation>
  void Unlock(Operation operation) {
    if (T* const made = mMade.load(std::memory_order_relaxed)) operation(*made);
    mLock.unlock();
  }

 private:
  std::atomic<T*> mMade{nullptr};
  std::mutex mLock;
};

}  // namespace orm::platform::gdi
