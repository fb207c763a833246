// Waits in which some objects get their signal from outside the process: through a shared word (named
// mutexes) or a file descriptor that whoever waits has to look at (change notifications). The thread sleeps
// on its own wake word and the shared words at once with futex_waitv; on kernels without it a single shared
// word is still slept on, and several are looked at every few milliseconds. With descriptors it sleeps in
// poll, and who signals an object of this process writes to an eventfd.
#include <poll.h>
#include <sched.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "kernel/WaitOperation.h"
#include "win32/kernel.h"

namespace orm::platform {

namespace {

constexpr DWORD kSliceMilliseconds = 2;
// A release wakes one sleeper, who is then answerable for the others; when it is killed before it runs,
// nobody wakes them. So nobody sleeps on a shared word for longer than this without looking at it again.
constexpr DWORD kLongestSharedSleep = 100;
constexpr size_t kMaximumNodes = MAXIMUM_WAIT_OBJECTS + 1;

// Found out when the library is loaded: at the first use, a fork could find another thread at it.
const bool gsKnowsFutexWaitv = syscall(SYS_futex_waitv, nullptr, 0, 0, nullptr, 0) < 0 && errno != ENOSYS;

// ORM_WAIT_FALLBACK in the environment behaves like a kernel without the call, for tests.
bool HasFutexWaitv() noexcept {
  return gsKnowsFutexWaitv && getenv("ORM_WAIT_FALLBACK") == nullptr;
}

// The earlier of the deadline and one slice from now.
class Slice {
 public:
  Slice(const Deadline& deadline, DWORD milliseconds) noexcept {
    const int64_t left = deadline.Remaining();
    const bool whole = left >= 0 && left < milliseconds;
    mSlice = Deadline(whole ? static_cast<DWORD>(left) : milliseconds);
    mLast = whole;
  }
  const timespec* Time() const noexcept { return mSlice.Time(); }
  bool IsLast() const noexcept { return mLast; }

 private:
  Deadline mSlice{0};
  bool mLast = false;
};

void AddWord(std::array<futex_waitv, kMaximumNodes>& words, unsigned& count, std::atomic<uint32_t>& word,
             uint32_t expected, uint32_t flags) noexcept {
  words[count++] = {expected, reinterpret_cast<uintptr_t>(&word), FUTEX_32 | flags, 0};
}

class WakeDescriptor {
 public:
  WakeDescriptor() noexcept : mDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
  ~WakeDescriptor() {
    if (mDescriptor >= 0) close(mDescriptor);
  }
  WakeDescriptor(const WakeDescriptor&) = delete;
  WakeDescriptor& operator=(const WakeDescriptor&) = delete;
  int get() const noexcept { return mDescriptor; }

 private:
  const int mDescriptor;
};

// The first outside object of the nodes that had a signal when it was looked at, taken; null when none had.
WaitNode* TakeFirst(std::span<WaitNode> nodes) noexcept {
  for (WaitNode& node : nodes) {
    if (node.object->IsShared() && (node.outcome = node.object->TryAcquire(node)) != Acquired::kNo)
      return &node;
  }
  return nullptr;
}

void GiveBack(WaitNode& node) noexcept {
  node.object->Undo(node);
  node.outcome = Acquired::kNo;
}

}  // namespace

// Takes the outside object of the lowest index that has a signal. True when the wait is over, by that or by
// another object. A wait that is over takes nothing, not even for a moment.
bool WaitOperation::TakeOutside(std::span<WaitNode> nodes) noexcept {
  if (!Waiter::IsWaiting(mWaiter.word.load(std::memory_order_acquire))) return true;
  WaitNode* taken = TakeFirst(nodes);
  if (taken == nullptr) return false;
  // One of a lower index may have been signalled behind the look at it, and before this one was.
  while (WaitNode* const lower = TakeFirst(nodes.first(taken->index))) {
    const Acquired outcome = taken->outcome;
    GiveBack(*taken);
    if (lower->object == taken->object) lower->outcome = outcome;  // it has been taken twice, and is once now
    taken = lower;
  }
  if (!Waiter::IsWaiting(mWaiter.Claim(taken->index))) GiveBack(*taken);
  return true;
}

// Sleeps once on the wake word and the shared words. False when the deadline has passed.
bool WaitOperation::SleepOutside(const Deadline& deadline) noexcept {
  std::array<futex_waitv, kMaximumNodes> words;
  unsigned count = 0;
  SharedWait only;
  bool onlyShared = true;
  AddWord(words, count, mWaiter.word, Waiter::kAsleep, FUTEX_PRIVATE_FLAG);
  for (WaitNode& node : mNodes) {
    if (!node.object->IsShared()) {
      onlyShared = false;
      continue;
    }
    SharedWait wait;
    if (!node.object->PrepareSharedWait(wait)) return true;
    AddWord(words, count, *wait.word, wait.expected, 0);
    only = wait;
  }
  const bool oneWord = onlyShared && count == 2;
  const bool noSlices = oneWord || HasFutexWaitv();
  const Slice slice(deadline, noSlices ? kLongestSharedSleep : kSliceMilliseconds);
  bool timedOut;
  if (oneWord) {
    timedOut = FutexWait(*only.word, only.expected, slice.Time(), FutexScope::kMachine) == ETIMEDOUT;
  } else if (noSlices) {
    const long woken = syscall(SYS_futex_waitv, words.data(), count, 0, slice.Time(), CLOCK_MONOTONIC);
    timedOut = woken < 0 && errno == ETIMEDOUT;
  } else {
    timedOut = FutexWait(mWaiter.word, Waiter::kAsleep, slice.Time()) == ETIMEDOUT;
  }
  return !timedOut || !slice.IsLast();
}

// Sleeps once on the wake descriptor and the one to be pumped, either of which may be -1. False as above.
bool WaitOperation::SleepOnDescriptors(int pumped, const Deadline& deadline) noexcept {
  pollfd descriptors[] = {{mWaiter.wakeDescriptor, POLLIN, 0}, {pumped, POLLIN, 0}};
  const bool shared =
      std::any_of(mNodes.begin(), mNodes.end(), [](const WaitNode& node) { return node.object->IsShared(); });
  const int64_t left = deadline.Remaining();
  int64_t slice = left < 0 ? -1 : std::min<int64_t>(left, INT_MAX);
  const bool sliced = (shared || mWaiter.wakeDescriptor < 0) && (slice < 0 || slice > kSliceMilliseconds);
  if (sliced) slice = kSliceMilliseconds;
  return poll(descriptors, std::size(descriptors), static_cast<int>(slice)) != 0 || sliced;
}

WaitResult WaitOperation::SleepMixed(const Deadline& deadline) noexcept {
  const auto first = std::find_if(mNodes.begin(), mNodes.end(),
                                  [](const WaitNode& node) { return node.object->IsPumped(); });
  Waitable* const pumped = first != mNodes.end() ? first->object : nullptr;
  std::optional<WakeDescriptor> wake;
  if (pumped != nullptr) mWaiter.wakeDescriptor = wake.emplace().get();
  mWaiter.word.store(Waiter::kAsleep, std::memory_order_relaxed);
  if (pumped != nullptr) pumped->Pump();
  bool slept = false;
  if (LinkAll()) {
    while (!TakeOutside(mNodes)) {
      slept = !deadline.IsNow();
      const bool woken = slept && (pumped != nullptr ? SleepOnDescriptors(pumped->PollDescriptor(), deadline)
                                                     : SleepOutside(deadline));
      if (pumped != nullptr) pumped->Pump();
      if (!woken && !TakeOutside(mNodes)) mWaiter.Claim(Waiter::kTimedOut);
    }
  }
  const WaitResult result = Finish();
  if (!slept) return result;
  for (WaitNode& node : mNodes) {
    if (node.object->IsShared()) node.object->EndSharedWait(result.index == node.index);
  }
  return result;
}

}  // namespace orm::platform
