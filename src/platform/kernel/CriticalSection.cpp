// Critical sections: a futex lock with an owner and a recursion count.
#include <atomic>

#include "kernel/Futex.h"
#include "kernel/ThreadRecord.h"
#include "win32/kernel.h"

namespace orm::platform {
namespace {

constexpr int kSpins = 40;

// The address of a variable of the thread tells it from all living threads.
const void* Identity() {
  return &tlsLastError;
}

std::atomic<uint32_t>& WordOf(CRITICAL_SECTION* section) {
  static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));
  return *reinterpret_cast<std::atomic<uint32_t>*>(&section->LockWord);
}

std::atomic<const void*>& OwnerOf(CRITICAL_SECTION* section) {
  static_assert(sizeof(std::atomic<const void*>) == sizeof(const void*));
  return *reinterpret_cast<std::atomic<const void*>*>(&section->OwningThread);
}

void LockSlowly(std::atomic<uint32_t>& word) {
  for (int spin = 0; spin < kSpins; ++spin) {
    uint32_t free = 0;
    if (word.load(std::memory_order_relaxed) == 0 &&
        word.compare_exchange_strong(free, 1, std::memory_order_acquire)) {
      return;
    }
    __builtin_ia32_pause();
  }
  while (word.exchange(2, std::memory_order_acquire) != 0) FutexWait(word, 2, nullptr);
}

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

void InitializeCriticalSection(CRITICAL_SECTION* section) noexcept {
  *section = {};
}

void EnterCriticalSection(CRITICAL_SECTION* section) noexcept {
  if (OwnerOf(section).load(std::memory_order_relaxed) == Identity()) {
    ++section->RecursionCount;
    return;
  }
  auto& word = WordOf(section);
  uint32_t free = 0;
  if (!word.compare_exchange_strong(free, 1, std::memory_order_acquire)) LockSlowly(word);
  OwnerOf(section).store(Identity(), std::memory_order_relaxed);
}

BOOL TryEnterCriticalSection(CRITICAL_SECTION* section) noexcept {
  if (OwnerOf(section).load(std::memory_order_relaxed) == Identity()) {
    ++section->RecursionCount;
    return TRUE;
  }
  uint32_t free = 0;
  if (!WordOf(section).compare_exchange_strong(free, 1, std::memory_order_acquire)) return FALSE;
  OwnerOf(section).store(Identity(), std::memory_order_relaxed);
  return TRUE;
}

void LeaveCriticalSection(CRITICAL_SECTION* section) noexcept {
  if (OwnerOf(section).load(std::memory_order_relaxed) != Identity()) return;
  if (section->RecursionCount != 0) {
    --section->RecursionCount;
    return;
  }
  OwnerOf(section).store(nullptr, std::memory_order_relaxed);
  auto& word = WordOf(section);
  if (word.exchange(0, std::memory_order_release) == 2) FutexWake(word);
}

void DeleteCriticalSection(CRITICAL_SECTION* section) noexcept {
  *section = {};
}
