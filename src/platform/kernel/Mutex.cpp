// The mutex without a name, and the calls that serve both kinds.
#include "kernel/Mutex.h"

#include <string>

#include "kernel/NamedMutex.h"
#include "kernel/NoMemory.h"
#include "kernel/ThreadRecord.h"
#include "win32/kernel.h"

namespace orm::platform {

Acquired OwnableMutex::TryOwn(ThreadRecord& thread) noexcept {
  WaitNode request;
  request.thread = &thread;
  return TryAcquire(request);
}

Acquired Mutex::Own(const ThreadRecord* thread) noexcept {
  mOwner.store(thread, std::memory_order_relaxed);
  mCount = 1;
  return std::exchange(mAbandoned, false) ? Acquired::kAbandoned : Acquired::kOwned;
}

Acquired Mutex::TryAcquire(const WaitNode& request) noexcept {
  if (mOwner.load(std::memory_order_relaxed) == request.thread) {
    ++mCount;
    return Acquired::kYes;
  }
  uint32_t state = mState.load(std::memory_order_relaxed);
  while ((state & (kSignalled | kLocked)) == kSignalled) {
    if (mState.compare_exchange_weak(state, state & ~kSignalled, std::memory_order_acquire,
                                     std::memory_order_relaxed)) {
      return Own(request.thread);
    }
  }
  return (state & kSignalled) != 0 ? Waitable::TryAcquire(request) : Acquired::kNo;
}

bool Mutex::IsSignalledFor(const WaitNode& request) const noexcept {
  return Waitable::IsSignalledFor(request) || mOwner.load(std::memory_order_relaxed) == request.thread;
}

Acquired Mutex::Consume(const WaitNode& request) noexcept {
  if (mOwner.load(std::memory_order_relaxed) == request.thread) {
    ++mCount;
    return Acquired::kYes;
  }
  mState.fetch_and(~kSignalled, std::memory_order_acquire);
  return Own(request.thread);
}

bool Mutex::ReleaseOnce() noexcept {
  if (--mCount != 0) return false;
  mOwner.store(nullptr, std::memory_order_relaxed);
  Signal();
  return true;
}

void Mutex::Abandon() noexcept {
  mAbandoned = true;
  mCount = 1;
  ReleaseOnce();
}

// Somebody who was just taking or freeing it is no owner that can be seen.
void Mutex::ForgetOtherThreads(const ThreadRecord* self) noexcept {
  Waitable::ForgetOtherThreads(self);
  const bool isFree = (mState.load(std::memory_order_relaxed) & kSignalled) != 0;
  if (!isFree && (self == nullptr || mOwner.load(std::memory_order_relaxed) != self)) Abandon();
}

namespace {

// The handle of a mutex that belongs to `owner`, if to anybody; it is given up when there is no handle.
HANDLE HandleOf(const Ref<OwnableMutex>& mutex, ThreadRecord* owner) {
  const HANDLE handle = AllocateHandle(Ref<KernelObject>(mutex.get()));
  if (owner == nullptr) return handle;
  if (handle != nullptr) {
    RecordOwnership(*owner, HandlePin(handle), handle);
  } else {
    mutex->ReleaseOnce();
  }
  return handle;
}

HANDLE MakeUnnamed(ThreadRecord* owner) {
  const auto mutex = MakeRef<Mutex>();
  if (owner != nullptr) mutex->TryOwn(*owner);
  const HANDLE handle = HandleOf(mutex, owner);
  if (handle != nullptr) tlsLastError = ERROR_SUCCESS;
  return handle;
}

// Not of the warm mutex. What the thread owns is kept alive by its record, so the handle is only compared.
[[gnu::noinline]] BOOL ReleaseOwned(ThreadRecord& thread, HANDLE handle) {
  const KernelObject* const object = PeekHandle(handle);
  auto& owned = thread.ownedMutexes;
  for (auto entry = owned.end(); object != nullptr && entry != owned.begin();) {
    --entry;
    if (entry->get() != object) continue;
    if (static_cast<OwnableMutex*>(entry->get())->ReleaseOnce()) owned.erase(entry);
    return TRUE;
  }
  const HandlePin pin(handle);
  if (pin) tlsLastError = OwnableMutex::IsMutex(*pin.get()) ? ERROR_NOT_OWNER : ERROR_INVALID_HANDLE;
  return FALSE;
}

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

HANDLE CreateMutexA(SECURITY_ATTRIBUTES* security, BOOL initialOwner, const char* name) noexcept {
  return OrNoMemory<HANDLE>(nullptr, [&]() -> HANDLE {
    ThreadRecord* const owner = initialOwner != FALSE ? CurrentThread() : nullptr;
    if (initialOwner != FALSE && (owner == nullptr || !MakeOwnershipRoom(*owner, 1))) return nullptr;
    if (name == nullptr || *name == '\0') return MakeUnnamed(owner);
    bool existed = false;
    const Ref<NamedMutex> mutex = NamedMutex::Create(name, security, owner, existed);
    if (!mutex) return nullptr;
    const HANDLE handle = HandleOf(mutex, existed ? nullptr : owner);
    mutex->OnHandleClosed();  // the hold that Create has taken
    if (handle != nullptr) tlsLastError = existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS;
    return handle;
  });
}

HANDLE OpenMutexA(DWORD, BOOL, const char* name) noexcept {
  return OrNoMemory<HANDLE>(nullptr, [&]() -> HANDLE {
    if (name == nullptr || *name == '\0') {
      tlsLastError = ERROR_INVALID_PARAMETER;
      return nullptr;
    }
    const Ref<NamedMutex> mutex = NamedMutex::Open(name);
    if (!mutex) return nullptr;
    const HANDLE handle = AllocateHandle(mutex);
    mutex->OnHandleClosed();
    return handle;
  });
}

BOOL ReleaseMutex(HANDLE handle) noexcept {
  ThreadRecord* const thread = CurrentThread();
  if (thread == nullptr) return FALSE;
  if (!thread->ownsWarmMutex || !IsWarm(*thread, handle)) return ReleaseOwned(*thread, handle);
  thread->ownsWarmMutex = !static_cast<OwnableMutex*>(thread->warmMutex.get())->ReleaseOnce();
  return TRUE;
}
