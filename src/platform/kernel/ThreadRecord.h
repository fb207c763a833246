// What the layer knows of a thread while it lives: one record for each thread that has used the layer, made
// at its first use and ended by the runtime when the thread ends, whoever started it.
#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <vector>

#include "kernel/Object.h"
#include "kernel/SpinHabit.h"
#include "kernel/Thread.h"

namespace orm::platform {

class OwnableMutex;

inline constexpr DWORD kTlsInlineSlots = 64;
inline constexpr DWORD kTlsSlots = 1088;

using TlsSlot = std::atomic<void*>;

struct ThreadRecord {
  explicit ThreadRecord(Ref<ThreadObject> object);
  ~ThreadRecord();

  DWORD id;
  Ref<ThreadObject> self;
  bool silent = false;  // terminated before it was started: no module hears of it
  std::array<TlsSlot, kTlsInlineSlots> slots{};
  std::atomic<TlsSlot*> moreSlots{nullptr};  // the others, allocated at the first use of one
  std::vector<HandlePin> ownedMutexes;       // each keeps its object alive until it is released
  // The mutex that the thread used last stays pinned after its release, so that taking it again costs no
  // interlocked step beyond the mutex's own. Its name does not depend on that: it goes with the last handle.
  HandlePin warmMutex;
  HANDLE warmHandle = nullptr;  // under which it was taken; null when that is not known
  // The state of that handle's slot, which stays this handle's as long as it is pinned.
  const std::atomic<uint64_t>* warmState = nullptr;
  bool ownsWarmMutex = false;
  SpinHabit spinHabit;
  Ref<KernelObject> queue;  // the message queue; guarded by the list's lock for other threads
  void (*endQueue)(ThreadRecord&) = nullptr;
  ThreadRecord* next = nullptr;  // the list of all records
  ThreadRecord* previous = nullptr;
};

#define ORM_STATIC_TLS __attribute__((tls_model("initial-exec")))
extern constinit thread_local ThreadRecord* tlsThread ORM_STATIC_TLS;
extern constinit thread_local DWORD tlsLastError ORM_STATIC_TLS;

// Gives the calling thread its record. False when the runtime has no memory to end it with the thread.
bool AttachThread(ThreadRecord& record) noexcept;
// The end of the calling thread's record.
void EndThread(ThreadRecord& record) noexcept;
// Makes a record for a thread that the layer did not start. Null, with the last error, without memory.
ThreadRecord* AttachThread() noexcept;

// Null, with the last error, when the thread has no record yet and there is no memory for one.
inline ThreadRecord* CurrentThread() noexcept {
  ThreadRecord* const record = tlsThread;
  return record != nullptr ? record : AttachThread();
}

bool VisitThreadRecords(bool (*visit)(ThreadRecord&, void*), void* context);
// Calls `visit(record)` for every thread under the list's lock until it returns true; whether one did.
template <class Visit>
bool VisitThreads(Visit&& visit) {
  return VisitThreadRecords(
      [](ThreadRecord& record, void* context) { return (*static_cast<Visit*>(context))(record); }, &visit);
}

// Makes room for the ownership of some more mutexes, so that who has got one can be recorded. False, with the
// last error, when there is no memory for it.
bool MakeOwnershipRoom(ThreadRecord& thread, size_t mutexes) noexcept;
// Keeps the mutex that the calling thread has just come to own until it is released. `handle` is the one that
// was pinned, or null.
void RecordOwnership(ThreadRecord& thread, HandlePin&& mutex, HANDLE handle);

// A slot's state has this bit while its handle is open.
inline constexpr uint64_t handleIsOpen = uint64_t{1} << 32;
// The state of the slot that the handle names; null for one without a slot.
const std::atomic<uint64_t>* HandleState(HANDLE handle) noexcept;

// Whether the handle names the mutex that the thread used last.
inline bool IsWarm(const ThreadRecord& thread, HANDLE handle) noexcept {
  if (thread.warmState != nullptr && thread.warmHandle == handle &&
      (thread.warmState->load(std::memory_order_relaxed) & handleIsOpen) != 0) {
    return true;
  }
  return thread.warmMutex && PeekHandle(handle) == thread.warmMutex.get();
}

}  // namespace orm::platform
