// A thread's message queue: posted messages, injected input, calls sent by other threads, timers, and which
// kinds of those are there and which are new. It is waitable: a wait with a wake mask ends on input of those
// kinds.
#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "kernel/Waitable.h"
#include "win32/user.h"

namespace orm::platform {

// A call from another thread, which waits for `done`.
struct SentMessage {
  HWND window = nullptr;
  UINT message = 0;
  WPARAM first = 0;
  LPARAM second = 0;
  LRESULT result = 0;
  HANDLE done = nullptr;

  SentMessage() noexcept : done(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {}
  ~SentMessage() { CloseHandle(done); }
  SentMessage(const SentMessage&) = delete;
  SentMessage& operator=(const SentMessage&) = delete;
};

// What PeekMessage and GetMessage look for.
struct MessageFilter {
  HWND window = nullptr;  // null: any; kThreadMessages: those of no window
  UINT first = 0;
  UINT last = 0;  // both 0: any
  UINT kinds = QS_ALLINPUT;

  static inline const HWND kThreadMessages = reinterpret_cast<HWND>(intptr_t{-1});
  bool Matches(const MSG& message) const noexcept;
  bool MatchesNumber(UINT number) const noexcept {
    return (first == 0 && last == 0) || (number >= first && number <= last);
  }
};

// What becomes of a message for a queue, which is closed when its thread ends.
enum class Acceptance : uint8_t { kTaken, kFull, kClosed };

class MessageQueue final : public Waitable {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kMessageQueue;

  // The calling thread's queue, made at its first use. Throws std::bad_alloc.
  static MessageQueue& Current();
  // Another thread's; null when there is no such thread or it has no queue.
  static Ref<MessageQueue> OfThread(DWORD threadId);

  // The queue's end: calls that still wait for an answer get 0. Nothing is accepted afterwards.
  void Close();

  Acceptance Post(const MSG& message);
  Acceptance PostInput(const MSG& message);
  // False when the queue is closed.
  bool Send(std::shared_ptr<SentMessage> message);
  void PostQuit(int exitCode);
  // Looks whether a window of the queue's thread has something to paint. After an invalidation that is new
  // input, also when there was something to paint before.
  void UpdatePaint(DWORD threadId, bool invalidated);

  std::shared_ptr<SentMessage> TakeSent();
  std::optional<MSG> FindPosted(const MessageFilter& filter, bool remove);
  std::optional<MSG> FindInput(const MessageFilter& filter, bool remove);
  std::optional<MSG> FindQuit(bool remove);
  std::optional<MSG> FindTimer(const MessageFilter& filter, bool remove);

  UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT milliseconds, TIMERPROC procedure);
  bool KillTimer(HWND window, UINT_PTR id);
  void ForgetWindow(HWND window);
  // Milliseconds until a timer is due, INFINITE without one. Marks the timers that are due already.
  DWORD CheckTimers();

  // Kinds that are there, and that are new since they were last looked at.
  UINT Pending() const noexcept { return mPending.load(std::memory_order_acquire); }
  UINT TakeNew(UINT kinds) noexcept { return mNew.fetch_and(~kinds, std::memory_order_acq_rel) & kinds; }

  // What is in the queue is whole while it is held.
  std::mutex& ContentLock() noexcept { return mLock; }

  MessageQueue() : Waitable(kKind) {}

 protected:
  bool IsSignalledFor(const WaitNode& request) const noexcept override {
    return ((request.fresh ? mNew : mPending).load(std::memory_order_acquire) & request.mask) != 0;
  }

 private:
  struct Timer {
    HWND window;
    UINT_PTR id;
    UINT period;
    TIMERPROC procedure;
    uint64_t due;
    bool expired;
  };

  void WakeAll();
  void UpdatePending(UINT arrived = 0);

  std::mutex mLock;
  std::deque<MSG> mPosted;
  std::deque<MSG> mInput;
  std::deque<std::shared_ptr<SentMessage>> mSent;
  std::vector<Timer> mTimers;
  UINT_PTR mLastTimerId = 0;
  bool mQuit = false;
  bool mClosed = false;
  bool mPaint = false;
  int mExitCode = 0;
  std::atomic<UINT> mPending{0};
  std::atomic<UINT> mNew{0};
};

// The kind of input that a message is, 0 for messages that are no input.
UINT InputKind(UINT message) noexcept;

}  // namespace orm::platform
