// A lock of one word for sections of a few instructions: no system call unless somebody has to wait.
#pragma once

#include <atomic>
#include <cstdint>

namespace orm::platform {

class WordLock {
 public:
  bool try_lock() {
    std::uint32_t free = 0;
    return mWord.compare_exchange_strong(free, 1, std::memory_order_acquire, std::memory_order_relaxed);
  }
  void lock() {
    if (try_lock()) return;
    while (mWord.exchange(2, std::memory_order_acquire) != 0) mWord.wait(2, std::memory_order_relaxed);
  }
  void unlock() {
    if (mWord.exchange(0, std::memory_order_release) == 2) mWord.notify_one();
  }

 private:
  std::atomic<std::uint32_t> mWord{0};  // 0 free, 1 held, 2 held and maybe waited for
};

}  // namespace orm::platform
