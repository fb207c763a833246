// The waiting calls, and Sleep.
#include <sched.h>
#include <time.h>

#include "kernel/Mutex.h"
#include "kernel/ThreadRecord.h"
#include "kernel/WaitHandles.h"
#include "win32/kernel.h"

namespace orm::platform {

namespace {

DWORD ToWaitCode(const WaitResult& result) noexcept {
  if (result.outcome == Acquired::kNo) return WAIT_TIMEOUT;
  return (result.outcome == Acquired::kAbandoned ? WAIT_ABANDONED_0 : WAIT_OBJECT_0) + result.index;
}

bool IsAnyUnknown(std::span<const HANDLE> handles) noexcept {
  for (const HANDLE handle : handles) {
    if (handle != GetCurrentThread() && PeekHandle(handle) == nullptr) return true;
  }
  return false;
}

// For what is not the warm mutex. Apart, so that that one's way needs no room for what is here.
[[gnu::noinline]] DWORD WaitForCold(ThreadRecord& thread, HANDLE object, DWORD milliseconds) noexcept {
  WaitNode node;
  node.thread = &thread;
  HandlePin pin(object);
  if (!pin) return WAIT_FAILED;
  if (!pin.get()->IsWaitable()) {
    tlsLastError = ERROR_INVALID_HANDLE;
    return WAIT_FAILED;
  }
  if (thread.ownsWarmMutex && !MakeOwnershipRoom(thread, 1)) return WAIT_FAILED;
  node.object = static_cast<Waitable*>(pin.get());
  WaitResult result{0, node.object->TryAcquire(node)};
  if (result.outcome == Acquired::kNo && milliseconds != 0) {
    result = WaitOperation({&node, 1}).WaitForOne(Deadline(milliseconds));
  }
  if (result.outcome >= Acquired::kOwned) RecordOwnership(thread, std::move(pin), object);
  return ToWaitCode(result);
}

}  // namespace

bool WaitHandles::Add(HANDLE handle) noexcept {
  HandlePin& pin = *std::construct_at(&Pins()[mPinCount], handle);
  ++mPinCount;
  if (!pin) return false;
  if (!pin.get()->IsWaitable()) {
    tlsLastError = ERROR_INVALID_HANDLE;
    return false;
  }
  if (OwnableMutex::IsMutex(*pin.get()) && !MakeOwnershipRoom(mThread, ++mMutexCount)) return false;
  WaitNode& node = *std::construct_at(&NodeArray()[mNodeCount++]);
  node.object = static_cast<Waitable*>(pin.get());
  node.thread = &mThread;
  return true;
}

void WaitHandles::AddQueue(Waitable& queue, uint32_t mask, bool fresh) noexcept {
  WaitNode& node = *std::construct_at(&NodeArray()[mNodeCount++]);
  node.object = &queue;
  node.thread = &mThread;
  node.mask = mask;
  node.fresh = fresh;
}

WaitHandles::~WaitHandles() {
  std::destroy_n(Pins(), mPinCount);
}

void WaitHandles::Keep(uint32_t index, Acquired outcome) noexcept {
  if (outcome >= Acquired::kOwned && index < mPinCount)
    RecordOwnership(mThread, std::move(Pins()[index]), nullptr);
}

WaitResult WaitHandles::TryFirst() noexcept {
  const WaitNode& node = NodeArray()[0];
  const Acquired outcome = node.object->TryAcquire(node);
  Keep(0, outcome);
  return {0, outcome};
}

DWORD WaitHandles::WaitForAll(DWORD milliseconds) noexcept {
  if (!WaitOperation::CanWaitForAll(Nodes())) {
    tlsLastError = ERROR_INVALID_PARAMETER;
    return WAIT_FAILED;
  }
  const WaitResult result = WaitOperation(Nodes()).WaitForAll(Deadline(milliseconds));
  if (result.outcome != Acquired::kNo) {
    for (const WaitNode& node : Nodes()) Keep(node.index, node.outcome);
  }
  return ToWaitCode(result);
}

DWORD WaitHandles::Wait(std::span<const HANDLE> handles, bool all, DWORD milliseconds, Waitable* queue,
                        uint32_t mask, bool fresh) noexcept {
  if (IsAnyUnknown(handles)) {
    tlsLastError = ERROR_INVALID_HANDLE;
    return WAIT_FAILED;
  }
  ThreadRecord* const thread = CurrentThread();
  if (thread == nullptr) return WAIT_FAILED;
  WaitHandles wait(*thread);
  for (const HANDLE handle : handles) {
    if (!wait.Add(handle)) return WAIT_FAILED;
    // The first object may be taken by itself, and the others do not have to be pinned then.
    if (all || wait.mNodeCount != 1) continue;
    if (const WaitResult result = wait.TryFirst(); result.outcome != Acquired::kNo) return ToWaitCode(result);
  }
  if (queue != nullptr) wait.AddQueue(*queue, mask, fresh);
  if (all) return wait.WaitForAll(milliseconds);
  const WaitResult result = WaitOperation(wait.Nodes()).WaitForOne(Deadline(milliseconds));
  wait.Keep(result.index, result.outcome);
  return ToWaitCode(result);
}

}  // namespace orm::platform

using namespace orm::platform;

DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds) noexcept {
  ThreadRecord* const thread = CurrentThread();
  if (thread == nullptr) return WAIT_FAILED;
  if (!IsWarm(*thread, object)) return WaitForCold(*thread, object, milliseconds);
  const Acquired outcome = static_cast<OwnableMutex*>(thread->warmMutex.get())->TryOwn(*thread);
  if (outcome == Acquired::kNo) return WaitForCold(*thread, object, milliseconds);
  if (outcome >= Acquired::kOwned) thread->ownsWarmMutex = true;
  return ToWaitCode({0, outcome});
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* objects, BOOL all, DWORD milliseconds) noexcept {
  if (count == 0 || count > MAXIMUM_WAIT_OBJECTS || objects == nullptr) {
    tlsLastError = ERROR_INVALID_PARAMETER;
    return WAIT_FAILED;
  }
  return WaitHandles::Wait({objects, count}, all != FALSE, milliseconds);
}

void Sleep(DWORD milliseconds) noexcept {
  if (milliseconds == 0) {
    sched_yield();
    return;
  }
  const Deadline deadline(milliseconds);
  if (deadline.Time() == nullptr) {
    for (;;) pause();
  }
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, deadline.Time(), nullptr) == EINTR) {
  }
}

BOOL SwitchToThread() noexcept {
  return sched_yield() == 0;
}
