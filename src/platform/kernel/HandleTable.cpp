// The handle table. A slot's state word holds its generation, whether it is open, and how many look-ups have
// it pinned; slots are never freed, so a stale handle always finds a word to compare with.
#include <mutex>
#include <new>

#include "kernel/Fork.h"
#include "kernel/Object.h"
#include "kernel/Thread.h"
#include "kernel/ThreadRecord.h"
#include "win32/kernel.h"

namespace orm::platform {

struct HandleSlot {
  std::atomic<uint64_t> state{0};
  std::atomic<KernelObject*> object{nullptr};
  uint32_t index = 0;
  HandleSlot* nextFree = nullptr;
};

namespace {

constexpr uint64_t kPinMask = 0xFFFFFFFF;
constexpr uint64_t kOpen = handleIsOpen;
constexpr unsigned kGenerationShift = 33;
constexpr uint64_t kGenerationMask = 0x7FFFFFFF;

constexpr unsigned kIndexBits = 20;
constexpr uint32_t kChunkSlots = 128;  // a page, which is all that most processes ever touch
constexpr uint32_t kChunks = (1u << kIndexBits) / kChunkSlots;
constexpr uintptr_t kCurrentThreadHandle = ~uintptr_t{1};

constinit std::atomic<HandleSlot*> gsChunks[kChunks];
constinit std::mutex gsAllocation;
constinit HandleSlot* gsFree = nullptr;
constinit uint32_t gsUsed = 0;
constinit std::atomic<uint32_t> gsOpenCount{0};

// A handle is generation, index and two zero bits; index 0 is never given out, so no handle is null.
HANDLE MakeHandle(uint64_t generation, uint32_t index) {
  return reinterpret_cast<HANDLE>(((generation << kIndexBits | index) << 2));
}

struct HandleParts {
  HandleSlot* slot = nullptr;
  uint64_t generation = 0;
};

HandleParts Decode(HANDLE handle) {
  const auto value = reinterpret_cast<uintptr_t>(handle);
  if ((value & 3) != 0 || value == 0) return {};
  const auto index = static_cast<uint32_t>(value >> 2 & ((1u << kIndexBits) - 1));
  const uint64_t generation = value >> (2 + kIndexBits);
  HandleSlot* const chunk = gsChunks[index / kChunkSlots].load(std::memory_order_acquire);
  if (chunk == nullptr || generation > kGenerationMask) return {};
  return {&chunk[index % kChunkSlots], generation};
}

bool Names(uint64_t state, uint64_t generation) {
  return (state & kOpen) != 0 && state >> kGenerationShift == generation;
}

// Null, with the last error, when there is none.
HandleSlot* NewSlot() {
  if (gsUsed == 0) gsUsed = 1;
  if (gsUsed == (1u << kIndexBits)) {
    tlsLastError = ERROR_NO_SYSTEM_RESOURCES;
    return nullptr;
  }
  auto& chunk = gsChunks[gsUsed / kChunkSlots];
  HandleSlot* slots = chunk.load(std::memory_order_relaxed);
  if (slots == nullptr) {
    slots = new (std::nothrow) HandleSlot[kChunkSlots];
    if (slots == nullptr) {
      tlsLastError = ERROR_NOT_ENOUGH_MEMORY;
      return nullptr;
    }
    chunk.store(slots, std::memory_order_release);
  }
  HandleSlot* const slot = &slots[gsUsed % kChunkSlots];
  slot->index = gsUsed++;
  return slot;
}

void FreeSlot(HandleSlot& slot) {
  const std::lock_guard lock(gsAllocation);
  slot.nextFree = gsFree;
  gsFree = &slot;
}

// The slot is closed and nobody has it pinned: lets the object go and the slot back.
void Retire(HandleSlot& slot) {
  KernelObject* const object = slot.object.exchange(nullptr, std::memory_order_relaxed);
  const uint64_t generation = (slot.state.load(std::memory_order_relaxed) >> kGenerationShift) + 1;
  slot.state.store((generation & kGenerationMask) << kGenerationShift, std::memory_order_release);
  FreeSlot(slot);
  object->Release();
}

void UnpinSlot(HandleSlot& slot) {
  const uint64_t state = slot.state.fetch_sub(1, std::memory_order_acq_rel) - 1;
  if ((state & (kOpen | kPinMask)) == 0) Retire(slot);
}

}  // namespace

std::mutex& HandleLock() noexcept {
  return gsAllocation;
}

void VisitObjects(void (*visit)(KernelObject& object)) noexcept {
  for (uint32_t index = 1; index < gsUsed; ++index) {
    const HandleSlot& slot =
        gsChunks[index / kChunkSlots].load(std::memory_order_relaxed)[index % kChunkSlots];
    if (KernelObject* const object = slot.object.load(std::memory_order_acquire)) visit(*object);
  }
}

HandlePin::HandlePin(HANDLE handle) noexcept {
  if (reinterpret_cast<uintptr_t>(handle) == kCurrentThreadHandle) {
    if (const ThreadRecord* const thread = CurrentThread()) mObject = thread->self.get();
    return;
  }
  const HandleParts parts = Decode(handle);
  if (parts.slot != nullptr) {
    uint64_t state = parts.slot->state.load(std::memory_order_relaxed);
    while (Names(state, parts.generation)) {
      if (parts.slot->state.compare_exchange_weak(state, state + 1, std::memory_order_acquire,
                                                  std::memory_order_relaxed)) {
        mSlot = parts.slot;
        mObject = parts.slot->object.load(std::memory_order_relaxed);
        return;
      }
    }
  }
  tlsLastError = ERROR_INVALID_HANDLE;
}

void HandlePin::Unpin() noexcept {
  UnpinSlot(*mSlot);
}

HANDLE AllocateHandle(Ref<KernelObject> object) noexcept {
  HandleSlot* slot;
  {
    const std::lock_guard lock(gsAllocation);
    slot = gsFree != nullptr ? gsFree : NewSlot();
    if (slot != nullptr) gsFree = std::exchange(slot->nextFree, nullptr);
  }
  if (slot == nullptr) return nullptr;
  if (!object->OnHandleOpened()) {
    FreeSlot(*slot);
    tlsLastError = ERROR_INVALID_HANDLE;
    return nullptr;
  }
  gsOpenCount.fetch_add(1, std::memory_order_relaxed);
  slot->object.store(object.Detach(), std::memory_order_relaxed);
  const uint64_t state = slot->state.load(std::memory_order_relaxed);
  slot->state.store(state | kOpen, std::memory_order_release);
  return MakeHandle(state >> kGenerationShift, slot->index);
}

bool ReleaseHandle(HANDLE handle) noexcept {
  const HandleParts parts = Decode(handle);
  if (parts.slot != nullptr) {
    uint64_t state = parts.slot->state.load(std::memory_order_relaxed);
    while (Names(state, parts.generation)) {
      // Closed and pinned in one step, so that the object is still there to be told.
      if (!parts.slot->state.compare_exchange_weak(state, (state & ~kOpen) + 1, std::memory_order_acq_rel,
                                                   std::memory_order_relaxed)) {
        continue;
      }
      gsOpenCount.fetch_sub(1, std::memory_order_relaxed);
      parts.slot->object.load(std::memory_order_relaxed)->OnHandleClosed();
      UnpinSlot(*parts.slot);
      return true;
    }
  }
  tlsLastError = ERROR_INVALID_HANDLE;
  return false;
}

const KernelObject* PeekHandle(HANDLE handle) noexcept {
  const HandleParts parts = Decode(handle);
  if (parts.slot == nullptr || !Names(parts.slot->state.load(std::memory_order_acquire), parts.generation)) {
    return nullptr;
  }
  const KernelObject* const object = parts.slot->object.load(std::memory_order_acquire);
  return Names(parts.slot->state.load(std::memory_order_relaxed), parts.generation) ? object : nullptr;
}

const std::atomic<uint64_t>* HandleState(HANDLE handle) noexcept {
  const HandleParts parts = Decode(handle);
  return parts.slot != nullptr ? &parts.slot->state : nullptr;
}

uint32_t OpenHandleCount() noexcept {
  return gsOpenCount.load(std::memory_order_relaxed);
}

void SetLastErrorCode(DWORD code) noexcept {
  tlsLastError = code;
}

}  // namespace orm::platform

using namespace orm::platform;

DWORD GetLastError() noexcept {
  return tlsLastError;
}

void SetLastError(DWORD code) noexcept {
  tlsLastError = code;
}

BOOL CloseHandle(HANDLE object) noexcept {
  if (object == GetCurrentThread()) return TRUE;
  return ReleaseHandle(object);
}

BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, HANDLE* target, DWORD, BOOL,
                     DWORD options) noexcept {
  if (sourceProcess != GetCurrentProcess() || targetProcess != GetCurrentProcess()) {
    tlsLastError = ERROR_INVALID_HANDLE;
    return FALSE;
  }
  HANDLE copy = nullptr;
  if (const HandlePin pin(source); pin && target != nullptr)
    copy = AllocateHandle(Ref<KernelObject>(pin.get()));
  if ((options & DUPLICATE_CLOSE_SOURCE) != 0) CloseHandle(source);
  if (target != nullptr) *target = copy;
  return copy != nullptr || (target == nullptr && (options & DUPLICATE_CLOSE_SOURCE) != 0);
}

HANDLE GetCurrentProcess() noexcept {
  return INVALID_HANDLE_VALUE;
}

HANDLE GetCurrentThread() noexcept {
  return reinterpret_cast<HANDLE>(kCurrentThreadHandle);
}

BOOL GetProcessHandleCount(HANDLE process, DWORD* count) noexcept {
  if (process != GetCurrentProcess()) {
    tlsLastError = ERROR_INVALID_HANDLE;
    return FALSE;
  }
  *count = OpenHandleCount();
  return TRUE;
}
