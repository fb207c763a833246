// Waits on objects of this process: link a node into each object's list, sleep on the thread's own wake word,
// take what whoever signalled an object has written there.
#include "kernel/WaitOperation.h"

#include <sched.h>

#include <algorithm>
#include <array>

#include "kernel/ThreadRecord.h"
#include "win32/kernel.h"

namespace orm::platform {

WaitOperation::WaitOperation(std::span<WaitNode> nodes) noexcept : mNodes(nodes) {
  uint32_t index = 0;
  for (WaitNode& node : mNodes) {
    node.waiter = &mWaiter;
    node.index = index++;
    mMixed = mMixed || node.object->IsOutside();
  }
}

// False when an object has a signal: the wait is over then, and its word says so. Whoever signals two objects
// one after the other must find the first one linked when the second is found signalled, so nothing is taken
// by a look at one object after the other without links.
bool WaitOperation::LinkAll() noexcept {
  for (WaitNode& node : mNodes) {
    if (node.object->IsShared()) continue;
    const Waitable::Lock lock(*node.object);
    if (!mWaiter.all && node.object->IsSignalledFor(node)) {
      if (mMixed && TakeOutside(mNodes.first(node.index))) return false;
      if (Waiter::IsWaiting(mWaiter.Claim(node.index))) node.outcome = node.object->Consume(node);
      return false;
    }
    node.object->Link(node);
    mLinked = node.index + 1;
  }
  return true;
}

void WaitOperation::UnlinkAll() noexcept {
  const uint32_t claimed = mWaiter.word.load(std::memory_order_acquire);
  for (WaitNode& node : mNodes) {
    if (node.index >= mLinked) return;
    if (node.index == claimed) continue;  // unlinked by who signalled the object
    if (node.object->IsShared()) continue;
    const Waitable::Lock lock(*node.object);
    if (node.linked) node.object->Unlink(node);
  }
}

// Unlinks and reads the result. An object that is being handed over arrives within a few instructions.
WaitResult WaitOperation::Finish() noexcept {
  uint32_t word;
  while ((word = mWaiter.word.load(std::memory_order_acquire)) == Waiter::kClaimed) sched_yield();
  UnlinkAll();
  if (word == Waiter::kTimedOut) return {};
  return {word, mNodes[word].outcome};
}

WaitResult WaitOperation::WaitForOne(const Deadline& deadline) noexcept {
  if (mMixed) return SleepMixed(deadline);
  if (LinkAll()) {
    if (deadline.IsNow()) {
      mWaiter.Claim(Waiter::kTimedOut);
    } else if (!mNodes.front().thread->spinHabit.Spin(mWaiter)) {
      Sleep(deadline);
    }
  }
  return Finish();
}

void WaitOperation::Sleep(const Deadline& deadline) noexcept {
  uint32_t word = Waiter::kAwake;
  mWaiter.word.compare_exchange_strong(word, Waiter::kAsleep, std::memory_order_acq_rel);
  while (mWaiter.word.load(std::memory_order_acquire) == Waiter::kAsleep) {
    if (FutexWait(mWaiter.word, Waiter::kAsleep, deadline.Time()) == ETIMEDOUT)
      mWaiter.Claim(Waiter::kTimedOut);
  }
}

bool WaitOperation::CanWaitForAll(std::span<const WaitNode> nodes) noexcept {
  for (size_t i = 0; i < nodes.size(); ++i) {
    if (nodes[i].object->IsOutside()) return false;
    for (size_t j = 0; j < i; ++j) {
      if (nodes[j].object == nodes[i].object) return false;
    }
  }
  return true;
}

// Takes every object's signal if all have one. The locks are taken in the order of addresses.
bool WaitOperation::TakeAll(std::span<Waitable* const> sorted, WaitResult& result) noexcept {
  for (Waitable* object : sorted) object->LockState();
  const bool ready = std::all_of(mNodes.begin(), mNodes.end(),
                                 [](const WaitNode& node) { return node.object->IsSignalledFor(node); });
  if (ready) {
    result = {0, Acquired::kYes};
    for (WaitNode& node : mNodes) {
      node.outcome = node.object->Consume(node);
      if (node.outcome == Acquired::kAbandoned) result = {node.index, Acquired::kAbandoned};
    }
  }
  for (Waitable* object : sorted) object->UnlockState();
  return ready;
}

WaitResult WaitOperation::WaitForAll(const Deadline& deadline) noexcept {
  std::array<Waitable*, MAXIMUM_WAIT_OBJECTS> objects;
  std::transform(mNodes.begin(), mNodes.end(), objects.begin(),
                 [](const WaitNode& node) { return node.object; });
  const std::span<Waitable*> sorted(objects.data(), mNodes.size());
  std::sort(sorted.begin(), sorted.end());

  mWaiter.all = true;
  LinkAll();
  WaitResult result;
  for (;;) {
    mWaiter.word.store(Waiter::kAsleep, std::memory_order_seq_cst);
    if (TakeAll(sorted, result)) break;
    if (FutexWait(mWaiter.word, Waiter::kAsleep, deadline.Time()) == ETIMEDOUT) {
      TakeAll(sorted, result);
      break;
    }
  }
  mWaiter.word.store(Waiter::kTimedOut, std::memory_order_release);  // no index: every node is still linked
  UnlinkAll();
  return result;
}

}  // namespace orm::platform
