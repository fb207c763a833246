// The content of message queues and its bookkeeping.
#include "user/MessageQueue.h"

#include <time.h>

#include <algorithm>

#include "kernel/Fork.h"
#include "kernel/ThreadRecord.h"
#include "user/Window.h"
#include "win32/forkx.h"

namespace orm::platform {

namespace {

constexpr size_t kLongestQueue = 10000;
constexpr UINT kLongestTimer = 0x7FFFFFFF;

uint64_t Now() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1'000'000;
}

void EndQueue(ThreadRecord& thread) {
  const auto queue = Ref<MessageQueue>(static_cast<MessageQueue*>(thread.queue.get()));
  ForgetThreadWindows(thread.id);
  queue->Close();
}

MessageQueue* QueueOfForkingThread() {
  return tlsThread != nullptr ? static_cast<MessageQueue*>(tlsThread->queue.get()) : nullptr;
}

void BeforeFork() {
  if (MessageQueue* const queue = QueueOfForkingThread()) queue->ContentLock().lock();
  WindowLock().lock();
}

void AfterFork() {
  WindowLock().unlock();
  if (MessageQueue* const queue = QueueOfForkingThread()) queue->ContentLock().unlock();
}

// A child has the queue of its one thread, and the windows, whatever others were about to post or to paint.
[[gnu::constructor]] void OnLoad() {
  RegisterForkHandlers();  // the kernel's first: its locks are taken under these
  CallAroundFork(BeforeFork, AfterFork);
}

template <class Container, class Matches>
std::optional<MSG> TakeFirst(Container& messages, bool remove, Matches&& matches) {
  const auto found = std::find_if(messages.begin(), messages.end(), matches);
  if (found == messages.end()) return std::nullopt;
  const MSG message = *found;
  if (remove) messages.erase(found);
  return message;
}

}  // namespace

UINT InputKind(UINT message) noexcept {
  if (message >= WM_KEYDOWN && message <= 0x0109) return QS_KEY;
  if (message == WM_MOUSEMOVE) return QS_MOUSEMOVE;
  return message > WM_MOUSEMOVE && message <= 0x020E ? QS_MOUSEBUTTON : 0;
}

bool MessageFilter::Matches(const MSG& message) const noexcept {
  if (!MatchesNumber(message.message)) return false;
  if (window == nullptr) return true;
  if (window == kThreadMessages) return message.hwnd == nullptr;
  return message.hwnd == window || IsDescendant(window, message.hwnd);
}

MessageQueue& MessageQueue::Current() {
  ThreadRecord* const current = CurrentThread();
  if (current == nullptr) throw std::bad_alloc();
  ThreadRecord& thread = *current;
  if (!thread.queue) {
    auto queue = MakeRef<MessageQueue>();
    thread.endQueue = &EndQueue;
    VisitThreads([&](ThreadRecord& record) {
      if (&record != &thread) return false;
      record.queue = std::move(queue);
      return true;
    });
  }
  return *static_cast<MessageQueue*>(thread.queue.get());
}

Ref<MessageQueue> MessageQueue::OfThread(DWORD threadId) {
  Ref<MessageQueue> queue;
  VisitThreads([&](ThreadRecord& record) {
    if (record.id != threadId) return false;
    queue = Ref<MessageQueue>(static_cast<MessageQueue*>(record.queue.get()));
    return true;
  });
  return queue;
}

// Wakes whoever waits for what has arrived. Called without the content lock.
void MessageQueue::WakeAll() {
  Lock lock(*this);
  WakeWaiters(lock);
}

// Under the content lock: `arrived` are the kinds that have just come in.
void MessageQueue::UpdatePending(UINT arrived) {
  UINT kinds = 0;
  if (!mPosted.empty() || mQuit) kinds |= QS_POSTMESSAGE | QS_ALLPOSTMESSAGE;
  for (const MSG& message : mInput) kinds |= InputKind(message.message);
  if (!mSent.empty()) kinds |= QS_SENDMESSAGE;
  if (mPaint) kinds |= QS_PAINT;
  if (std::any_of(mTimers.begin(), mTimers.end(), [](const Timer& timer) { return timer.expired; })) {
    kinds |= QS_TIMER;
  }
  mPending.store(kinds, std::memory_order_release);
  mNew.fetch_and(kinds, std::memory_order_acq_rel);
  mNew.fetch_or(kinds & arrived, std::memory_order_acq_rel);
}

void MessageQueue::Close() {
  std::deque<std::shared_ptr<SentMessage>> unanswered;
  const std::lock_guard lock(mLock);
  mClosed = true;
  unanswered.swap(mSent);
  mPosted.clear();
  mInput.clear();
  mTimers.clear();
  for (const auto& message : unanswered) SetEvent(message->done);
}

Acceptance MessageQueue::Post(const MSG& message) {
  {
    const std::lock_guard lock(mLock);
    if (mClosed) return Acceptance::kClosed;
    if (mPosted.size() >= kLongestQueue) return Acceptance::kFull;
    mPosted.push_back(message);
    UpdatePending(QS_POSTMESSAGE | QS_ALLPOSTMESSAGE);
  }
  WakeAll();
  return Acceptance::kTaken;
}

Acceptance MessageQueue::PostInput(const MSG& message) {
  {
    const std::lock_guard lock(mLock);
    if (mClosed) return Acceptance::kClosed;
    // Only the last of several moves in a row is of interest.
    if (message.message == WM_MOUSEMOVE && !mInput.empty() && mInput.back().message == WM_MOUSEMOVE &&
        mInput.back().hwnd == message.hwnd) {
      mInput.back() = message;
    } else {
      if (mInput.size() >= kLongestQueue) return Acceptance::kFull;
      mInput.push_back(message);
    }
    UpdatePending(InputKind(message.message));
  }
  WakeAll();
  return Acceptance::kTaken;
}

bool MessageQueue::Send(std::shared_ptr<SentMessage> message) {
  {
    const std::lock_guard lock(mLock);
    if (mClosed) return false;
    mSent.push_back(std::move(message));
    UpdatePending(QS_SENDMESSAGE);
  }
  WakeAll();
  return true;
}

void MessageQueue::PostQuit(int exitCode) {
  {
    const std::lock_guard lock(mLock);
    mQuit = true;
    mExitCode = exitCode;
    UpdatePending(QS_POSTMESSAGE | QS_ALLPOSTMESSAGE);
  }
  WakeAll();
}

// The windows are looked at under the content lock. Otherwise what another thread invalidates between the
// look and the note of its outcome would go unnoticed, and a wait would sleep on it.
void MessageQueue::UpdatePaint(DWORD threadId, bool invalidated) {
  bool wakes = false;
  {
    const std::lock_guard lock(mLock);
    mPaint = FindDirtyWindow(threadId, nullptr) != nullptr;
    wakes = mPaint && invalidated;
    UpdatePending(wakes ? QS_PAINT : 0);
  }
  if (wakes) WakeAll();
}

std::shared_ptr<SentMessage> MessageQueue::TakeSent() {
  const std::lock_guard lock(mLock);
  if (mSent.empty()) return nullptr;
  auto message = std::move(mSent.front());
  mSent.pop_front();
  UpdatePending();
  return message;
}

std::optional<MSG> MessageQueue::FindPosted(const MessageFilter& filter, bool remove) {
  const std::lock_guard lock(mLock);
  auto found = TakeFirst(mPosted, remove, [&](const MSG& message) { return filter.Matches(message); });
  UpdatePending();
  return found;
}

std::optional<MSG> MessageQueue::FindInput(const MessageFilter& filter, bool remove) {
  const std::lock_guard lock(mLock);
  auto found = TakeFirst(mInput, remove, [&](const MSG& message) {
    return (InputKind(message.message) & filter.kinds) != 0 && filter.Matches(message);
  });
  UpdatePending();
  return found;
}

// Quitting waits until what was posted before it has been taken.
std::optional<MSG> MessageQueue::FindQuit(bool remove) {
  const std::lock_guard lock(mLock);
  if (!mQuit || !mPosted.empty()) return std::nullopt;
  if (remove) mQuit = false;
  UpdatePending();
  return MSG{nullptr, WM_QUIT, static_cast<WPARAM>(mExitCode), 0, GetTickCount(), {0, 0}};
}

std::optional<MSG> MessageQueue::FindTimer(const MessageFilter& filter, bool remove) {
  CheckTimers();
  const std::lock_guard lock(mLock);
  for (Timer& timer : mTimers) {
    const MSG message{timer.window,   WM_TIMER, timer.id, reinterpret_cast<LPARAM>(timer.procedure),
                      GetTickCount(), {0, 0}};
    if (!timer.expired || !filter.Matches(message)) continue;
    if (remove) timer.expired = false;
    UpdatePending();
    return message;
  }
  return std::nullopt;
}

UINT_PTR MessageQueue::SetTimer(HWND window, UINT_PTR id, UINT milliseconds, TIMERPROC procedure) {
  const std::lock_guard lock(mLock);
  const UINT period = std::clamp(milliseconds, USER_TIMER_MINIMUM, kLongestTimer);
  const auto found = std::find_if(mTimers.begin(), mTimers.end(), [&](const Timer& timer) {
    return timer.window == window && timer.id == id;
  });
  if (found != mTimers.end()) {
    *found = {window, id, period, procedure, Now() + period, false};
    return id;
  }
  if (window == nullptr) id = ++mLastTimerId;
  mTimers.push_back({window, id, period, procedure, Now() + period, false});
  return window == nullptr ? id : std::max<UINT_PTR>(id, 1);
}

bool MessageQueue::KillTimer(HWND window, UINT_PTR id) {
  const std::lock_guard lock(mLock);
  const size_t removed =
      std::erase_if(mTimers, [&](const Timer& timer) { return timer.window == window && timer.id == id; });
  UpdatePending();
  return removed != 0;
}

void MessageQueue::ForgetWindow(HWND window) {
  const std::lock_guard lock(mLock);
  const auto belongs = [window](const MSG& message) { return message.hwnd == window; };
  std::erase_if(mPosted, belongs);
  std::erase_if(mInput, belongs);
  std::erase_if(mTimers, [window](const Timer& timer) { return timer.window == window; });
  UpdatePending();
}

DWORD MessageQueue::CheckTimers() {
  bool any = false;
  uint64_t next = UINT64_MAX;
  const uint64_t now = Now();
  {
    const std::lock_guard lock(mLock);
    for (Timer& timer : mTimers) {
      if (timer.due <= now) {
        any = any || !timer.expired;
        timer.expired = true;  // periods that nobody looked at are one message
        timer.due = now + timer.period;
      }
      next = std::min(next, timer.due);
    }
    if (any) UpdatePending(QS_TIMER);
  }
  if (any) WakeAll();
  return next == UINT64_MAX ? INFINITE : static_cast<DWORD>(std::min<uint64_t>(next - now, INFINITE - 1));
}

}  // namespace orm::platform
