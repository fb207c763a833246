// Thread-local slots. The first 64 lie in the thread's record, the rest is allocated when a thread first uses
// it.
#include <bitset>
#include <mutex>
#include <new>

#include "kernel/Fork.h"
#include "kernel/ThreadRecord.h"
#include "win32/kernel.h"

namespace orm::platform {
namespace {

constinit std::mutex gsTlsLock;
constinit std::bitset<kTlsSlots> gsTlsUsed;  // written under the lock
// Counts the allocations and releases of each index: odd while somebody has it.
constinit std::atomic<uint32_t> gsTlsLives[kTlsSlots];

// The count of an index that somebody has; 0, with the last error, for others.
uint32_t LifeOf(DWORD index) {
  const uint32_t life = index < kTlsSlots ? gsTlsLives[index].load() : 0;
  if (life % 2 != 0) return life;
  tlsLastError = ERROR_INVALID_PARAMETER;
  return 0;
}

TlsSlot* SlotOf(ThreadRecord& thread, DWORD index) {
  if (index < kTlsInlineSlots) return &thread.slots[index];
  TlsSlot* const more = thread.moreSlots.load(std::memory_order_acquire);
  return more != nullptr ? &more[index - kTlsInlineSlots] : nullptr;
}

}  // namespace

std::mutex& TlsLock() noexcept {
  return gsTlsLock;
}

}  // namespace orm::platform

using namespace orm::platform;

DWORD TlsAlloc() noexcept {
  const std::lock_guard lock(gsTlsLock);
  for (DWORD index = 0; index < kTlsSlots; ++index) {
    if (gsTlsUsed[index]) continue;
    gsTlsUsed[index] = true;
    gsTlsLives[index].fetch_add(1);
    return index;
  }
  tlsLastError = ERROR_NO_MORE_ITEMS;
  return TLS_OUT_OF_INDEXES;
}

BOOL TlsFree(DWORD index) noexcept {
  const std::lock_guard lock(gsTlsLock);
  if (LifeOf(index) == 0) return FALSE;
  gsTlsLives[index].fetch_add(1);
  // The next owner of the index finds it empty in every thread.
  VisitThreads([index](ThreadRecord& thread) {
    if (TlsSlot* const slot = SlotOf(thread, index)) slot->store(nullptr);
    return false;
  });
  gsTlsUsed[index] = false;
  return TRUE;
}

void* TlsGetValue(DWORD index) noexcept {
  if (LifeOf(index) == 0) return nullptr;
  tlsLastError = ERROR_SUCCESS;
  if (tlsThread == nullptr) return nullptr;
  const TlsSlot* const slot = SlotOf(*tlsThread, index);
  return slot != nullptr ? slot->load(std::memory_order_relaxed) : nullptr;
}

BOOL TlsSetValue(DWORD index, void* value) noexcept {
  const uint32_t life = LifeOf(index);
  if (life == 0) return FALSE;
  ThreadRecord* const current = CurrentThread();
  if (current == nullptr) return FALSE;
  ThreadRecord& thread = *current;
  if (SlotOf(thread, index) == nullptr) {
    auto* const more = new (std::nothrow) TlsSlot[kTlsSlots - kTlsInlineSlots]{};
    if (more == nullptr) {
      tlsLastError = ERROR_NOT_ENOUGH_MEMORY;
      return FALSE;
    }
    thread.moreSlots.store(more, std::memory_order_release);
  }
  // Either whoever frees the index meanwhile finds the value here, or its end is seen here.
  SlotOf(thread, index)->exchange(value);
  if (LifeOf(index) == life) return TRUE;
  SlotOf(thread, index)->store(nullptr);
  tlsLastError = ERROR_INVALID_PARAMETER;
  return FALSE;
}
