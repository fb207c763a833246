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

void Unlink(ThreadRecord& record) {
  (record.previous != nullptr ? record.previous->next : gsFirst) = record.next;
  if (record.next != nullptr) record.next->previous = record.previous;
  record.next = record.previous = nullptr;
}

void EndThread(void* pointer) {
  auto* const record = static_cast<ThreadRecord*>(pointer);
  tlsThread = record;
  if (!record->silent) NotifyThreadDetach();
  if (record->endQueue != nullptr) record->endQueue(*record);
  // A mutex that the thread still owns passes on as abandoned.
  if (record->ownsWarmMutex) static_cast<OwnableMutex*>(record->warmMutex.get())->Abandon();
  while (!record->ownedMutexes.empty()) {
    const HandlePin pin = std::move(record->ownedMutexes.back());
    record->ownedMutexes.pop_back();
    static_cast<OwnableMutex*>(pin.get())->Abandon();
  }
  const Ref<ThreadObject> self = record->self;
  {
    const std::lock_guard lock(gsListLock);
    Unlink(*record);
  }
  tlsThread = nullptr;
  delete record;
  self->End();
}

// One key for the life of the process: the library is never unloaded, and a record may end at any time.
pthread_key_t EndKey() {
  static const pthread_key_t key = [] {
    pthread_key_t made;
    if (pthread_key_create(&made, &EndThread) != 0) abort();
    return made;
  }();
  return key;
}

}  // namespace

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

ThreadRecord& AttachThread(std::unique_ptr<ThreadRecord> made) {
  if (!made) made = std::make_unique<ThreadRecord>(MakeRef<ThreadObject>());
  auto* const record = made.release();
  {
    const std::lock_guard lock(gsListLock);
    record->next = gsFirst;
    if (gsFirst != nullptr) gsFirst->previous = record;
    gsFirst = record;
  }
  tlsThread = record;
  pthread_setspecific(EndKey(), record);
  return *record;
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
