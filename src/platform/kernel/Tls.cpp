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
constinit std::atomic<bool> gsTlsAllocated[kTlsSlots];

bool IsAllocated(DWORD index) {
  if (index < kTlsSlots && gsTlsAllocated[index].load(std::memory_order_relaxed)) return true;
  tlsLastError = ERROR_INVALID_PARAMETER;
  return false;
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
    gsTlsAllocated[index].store(true, std::memory_order_release);
    return index;
  }
  tlsLastError = ERROR_NO_MORE_ITEMS;
  return TLS_OUT_OF_INDEXES;
}

BOOL TlsFree(DWORD index) noexcept {
  const std::lock_guard lock(gsTlsLock);
  if (!IsAllocated(index)) return FALSE;
  gsTlsAllocated[index].store(false, std::memory_order_release);
  // The next owner of the index finds it empty in every thread.
  VisitThreads([index](ThreadRecord& thread) {
    if (TlsSlot* const slot = SlotOf(thread, index)) slot->store(nullptr, std::memory_order_relaxed);
    return false;
  });
  gsTlsUsed[index] = false;
  return TRUE;
}

void* TlsGetValue(DWORD index) noexcept {
  if (!IsAllocated(index)) return nullptr;
  tlsLastError = ERROR_SUCCESS;
  if (tlsThread == nullptr) return nullptr;
  const TlsSlot* const slot = SlotOf(*tlsThread, index);
  return slot != nullptr ? slot->load(std::memory_order_relaxed) : nullptr;
}

BOOL TlsSetValue(DWORD index, void* value) noexcept {
  if (!IsAllocated(index)) return FALSE;
  ThreadRecord& thread = CurrentThread();
  if (SlotOf(thread, index) == nullptr) {
    auto* const more = new (std::nothrow) TlsSlot[kTlsSlots - kTlsInlineSlots]{};
    if (more == nullptr) {
      tlsLastError = ERROR_NOT_ENOUGH_MEMORY;
      return FALSE;
    }
    thread.moreSlots.store(more, std::memory_order_release);
  }
  SlotOf(thread, index)->store(value, std::memory_order_relaxed);
  return TRUE;
}
