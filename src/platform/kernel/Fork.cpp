// What the kernel does around a fork, registered when the library is loaded: a first use may come while
// another thread forks.
#include "kernel/Fork.h"

#include <pthread.h>

#include "kernel/NamedFile.h"
#include "kernel/NamedMutex.h"
#include "kernel/ThreadRecord.h"

namespace orm::platform {

namespace {

// In the order in which they are taken; those of the named objects' files come last.
constexpr std::mutex& (*kLocks[])() noexcept = {
    &DebugOutputLock, &ChangeLock,     &MachineLock, &ViewLock,          &TlsLock,
    &ThreadListLock,  &NamedMutexLock, &HandleLock,  &ModuleEntriesLock, &LoadedModulesLock};

void Before() {
  for (const auto lock : kLocks) lock().lock();
  NamedFile::BeforeFork();
}

void Unlock() {
  for (const auto lock : kLocks) lock().unlock();
}

void InParent() {
  NamedFile::AfterForkInParent();
  Unlock();
}

// The lock of a mutex that another process sees knows its owner by the thread's number, which is the
// parent's.
void LeaveNamedMutexes(ThreadRecord& thread) {
  const auto leave = [](const HandlePin& pin) {
    if (pin.get()->Kind() != NamedMutex::kKind) return false;
    static_cast<NamedMutex*>(pin.get())->LeaveToParent();
    return true;
  };
  if (thread.ownsWarmMutex && leave(thread.warmMutex)) thread.ownsWarmMutex = false;
  std::erase_if(thread.ownedMutexes, leave);
}

// Their waits take no signal any more, their mutexes are abandoned, and they have ended.
void ForgetOtherThreads(ThreadRecord* self) {
  VisitObjects([](KernelObject& object) {
    if (object.IsWaitable()) static_cast<Waitable&>(object).ForgetOtherThreads(tlsThread);
  });
  ForgetOtherRecords(self);
  if (self == nullptr) return;
  self->self->ForgetOtherThreads(self);  // it has no handle, perhaps, nor has the queue
  if (self->queue) static_cast<Waitable*>(self->queue.get())->ForgetOtherThreads(self);
}

void InChild() {
  NamedFile::AfterForkInChild();
  Unlock();
  ForgetOtherThreads(tlsThread);
  if (tlsThread != nullptr) LeaveNamedMutexes(*tlsThread);
}

[[maybe_unused]] const bool gsRegistered = (RegisterForkHandlers(), true);

}  // namespace

void RegisterForkHandlers() noexcept {
  static const int result = pthread_atfork(&Before, &InParent, &InChild);
  static_cast<void>(result);
}

}  // namespace orm::platform
