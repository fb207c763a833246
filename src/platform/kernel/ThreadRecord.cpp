// Thread records: made at a thread's first use of the layer, ended by the runtime's key destructor, which
// runs for every thread after its thread_local objects are gone. The main thread's record ends with the
// process.
#include "kernel/ThreadRecord.h"

#include <pthread.h>

#include <algorithm>
#include <mutex>

#include "kernel/Fork.h"
#include "kernel/ModuleEntries.h"
#include "kernel/Mutex.h"
#include "kernel/NoMemory.h"
#include "kernel/Thread.h"

namespace orm::platform {

constinit thread_local ThreadRecord* tlsThread = nullptr;
constinit thread_local DWORD tlsLastError = ERROR_SUCCESS;

namespace {

constinit std::mutex gsListLock;
constinit ThreadRecord* gsFirst = nullptr;
// In a child made by fork, those of the parent's other threads. They are left as they are: their threads may
// have been anywhere in them.
constinit ThreadRecord* gsOfParent = nullptr;

void Enlist(ThreadRecord& record) {
  {
    const std::lock_guard lock(gsListLock);
    record.next = gsFirst;
    if (gsFirst != nullptr) gsFirst->previous = &record;
    gsFirst = &record;
  }
  tlsThread = &record;
}

void Unlink(ThreadRecord& record) {
  (record.previous != nullptr ? record.previous->next : gsFirst) = record.next;
  if (record.next != nullptr) record.next->previous = record.previous;
  record.next = record.previous = nullptr;
}

// One key for the life of the process: the library is never unloaded, and a record may end at any time.
class EndKey {
 public:
  EndKey() noexcept
      : mIsMade(pthread_key_create(
                    &mKey, [](void* record) { EndThread(*static_cast<ThreadRecord*>(record)); }) == 0) {}
  // Whether the thread's end will end the record.
  bool Set(ThreadRecord& record) const noexcept { return mIsMade && pthread_setspecific(mKey, &record) == 0; }

  static const EndKey& Get() noexcept {
    static const EndKey key;
    return key;
  }

 private:
  pthread_key_t mKey{};
  const bool mIsMade;
};

// At the latest when the library is loaded: a fork must not find another thread at it.
[[maybe_unused]] const EndKey& gsEndKey = EndKey::Get();

}  // namespace

void EndThread(ThreadRecord& record) noexcept {
  tlsThread = &record;
  if (!record.silent) NotifyThreadDetach();
  if (record.endQueue != nullptr) record.endQueue(record);
  // A mutex that the thread still owns passes on as abandoned.
  if (record.ownsWarmMutex) static_cast<OwnableMutex*>(record.warmMutex.get())->Abandon();
  while (!record.ownedMutexes.empty()) {
    const HandlePin pin = std::move(record.ownedMutexes.back());
    record.ownedMutexes.pop_back();
    static_cast<OwnableMutex*>(pin.get())->Abandon();
  }
  const Ref<ThreadObject> self = record.self;
  {
    const std::lock_guard lock(gsListLock);
    Unlink(record);
  }
  tlsThread = nullptr;
  delete &record;
  self->End();
}

std::mutex& ThreadListLock() noexcept {
  return gsListLock;
}

void ForgetOtherRecords(ThreadRecord* self) noexcept {
  if (self != nullptr) Unlink(*self);
  while (ThreadRecord* const record = gsFirst) {
    gsFirst = record->next;
    record->next = std::exchange(gsOfParent, record);
  }
  gsFirst = self;
}

ThreadRecord::ThreadRecord(Ref<ThreadObject> object) : id(object->Id()), self(std::move(object)) {}

ThreadRecord::~ThreadRecord() {
  delete[] moreSlots.load(std::memory_order_relaxed);
}

bool AttachThread(ThreadRecord& record) noexcept {
  Enlist(record);
  return EndKey::Get().Set(record);
}

ThreadRecord* AttachThread() noexcept {
  return OrNoMemory<ThreadRecord*>(nullptr, []() -> ThreadRecord* {
    auto made = std::make_unique<ThreadRecord>(MakeRef<ThreadObject>());
    if (!EndKey::Get().Set(*made)) return NoMemory(nullptr);
    Enlist(*made);
    return made.release();
  });
}

bool VisitThreadRecords(bool (*visit)(ThreadRecord&, void*), void* context) {
  const std::lock_guard lock(gsListLock);
  for (ThreadRecord* record = gsFirst; record != nullptr; record = record->next) {
    if (visit(*record, context)) return true;
  }
  return false;
}

bool MakeOwnershipRoom(ThreadRecord& thread, size_t mutexes) noexcept {
  return OrNoMemory(false, [&]() -> bool {
    auto& owned = thread.ownedMutexes;
    const size_t needed = owned.size() + mutexes - (thread.ownsWarmMutex ? 0 : 1);
    if (needed > owned.capacity()) owned.reserve(std::max(needed, 2 * owned.capacity()));
    return true;
  });
}

void RecordOwnership(ThreadRecord& thread, HandlePin&& mutex, HANDLE handle) {
  if (thread.ownsWarmMutex) {
    thread.ownedMutexes.push_back(std::move(mutex));
    return;
  }
  thread.warmMutex = std::move(mutex);
  thread.warmHandle = handle;
  thread.warmState = HandleState(handle);
  thread.ownsWarmMutex = true;
}

}  // namespace orm::platform
