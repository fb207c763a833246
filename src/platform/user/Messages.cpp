// Posting, sending, looking for and dispatching messages, and the waits that end on them.
#include "kernel/NoMemory.h"
#include "kernel/ThreadRecord.h"
#include "kernel/WaitHandles.h"
#include "user/MessageQueue.h"
#include "user/Window.h"

namespace orm::platform {

namespace {

MSG MakeMessage(HWND window, UINT message, WPARAM first, LPARAM second) {
  return {window, message, first, second, GetTickCount(), {0, 0}};
}

// Runs the calls that other threads have sent to this one. What a procedure throws ends the process: the
// sender would wait for ever.
void AnswerSent(MessageQueue& queue) noexcept {
  while (const auto sent = queue.TakeSent()) {
    const Window window = FindWindowByHandle(sent->window);
    if (window.handle != nullptr)
      sent->result = window.procedure(window.handle, sent->message, sent->first, sent->second);
    SetEvent(sent->done);
  }
}

std::optional<MSG> FindPaint(const MessageFilter& filter) {
  if (!filter.MatchesNumber(WM_PAINT) || filter.window == MessageFilter::kThreadMessages) return std::nullopt;
  const HWND window = FindDirtyWindow(GetCurrentThreadId(), filter.window);
  if (window == nullptr) return std::nullopt;
  return MakeMessage(window, WM_PAINT, 0, 0);
}

std::optional<MSG> Find(MessageQueue& queue, const MessageFilter& filter, bool remove) {
  std::optional<MSG> found;
  if ((filter.kinds & (QS_POSTMESSAGE | QS_ALLPOSTMESSAGE)) != 0) {
    found = queue.FindPosted(filter, remove);
    if (!found) found = queue.FindQuit(remove);
  }
  if (!found && (filter.kinds & QS_INPUT) != 0) found = queue.FindInput(filter, remove);
  if (!found && (filter.kinds & QS_PAINT) != 0) found = FindPaint(filter);
  if (!found && (filter.kinds & QS_TIMER) != 0) found = queue.FindTimer(filter, remove);
  return found;
}

// Null, with the last error, when it cannot be sent. The calling thread has a queue afterwards.
std::shared_ptr<SentMessage> Send(const Window& window, UINT message, WPARAM first, LPARAM second) noexcept {
  return OrNoMemory<std::shared_ptr<SentMessage>>(nullptr, [&]() -> std::shared_ptr<SentMessage> {
    MessageQueue::Current();
    const auto target = MessageQueue::OfThread(window.threadId);
    auto sent = std::make_shared<SentMessage>();
    if (sent->done == nullptr) return nullptr;
    sent->window = window.handle;
    sent->message = message;
    sent->first = first;
    sent->second = second;
    if (target && target->Send(sent)) return sent;
    tlsLastError = ERROR_INVALID_WINDOW_HANDLE;
    return nullptr;
  });
}

std::optional<MSG> Peek(HWND window, UINT first, UINT last, UINT remove) {
  MessageQueue& queue = MessageQueue::Current();
  const UINT kinds = remove >> 16;
  const MessageFilter filter{window, first, last, kinds != 0 ? kinds : QS_ALLINPUT};
  AnswerSent(queue);
  queue.CheckTimers();
  // What is looked at here is no longer new. What comes in meanwhile is, and at worst wakes a wait for
  // nothing. A call is new until it is answered: those that have come since are not looked at.
  const UINT posted = (filter.kinds & QS_POSTMESSAGE) != 0 ? QS_ALLPOSTMESSAGE : 0;
  queue.TakeNew((filter.kinds | posted) & ~QS_SENDMESSAGE);
  return Find(queue, filter, (remove & PM_REMOVE) != 0);
}

// A wait on handles and the queue that wakes up for the thread's timers.
DWORD WaitWithQueue(std::span<const HANDLE> handles, DWORD milliseconds, UINT mask, bool fresh) {
  MessageQueue& queue = MessageQueue::Current();
  const Deadline deadline(milliseconds);
  for (;;) {
    const DWORD timer = queue.CheckTimers();
    const int64_t left = deadline.Remaining();
    const bool timerFirst = timer != INFINITE && (left < 0 || timer < left);
    const DWORD time = timerFirst ? timer : left < 0 ? INFINITE : static_cast<DWORD>(left);
    const DWORD result = WaitHandles::Wait(handles, false, time, &queue, mask, fresh);
    if (result != WAIT_TIMEOUT || !timerFirst) return result;
  }
}

// `missing` is the error of who has no queue, or has none any more.
bool IsTaken(Acceptance acceptance, DWORD missing) {
  if (acceptance == Acceptance::kTaken) return true;
  tlsLastError = acceptance == Acceptance::kFull ? ERROR_NOT_ENOUGH_QUOTA : missing;
  return false;
}

bool PostTo(const Ref<MessageQueue>& queue, const MSG& message, DWORD missing) {
  return IsTaken(queue ? queue->Post(message) : Acceptance::kClosed, missing);
}

bool Inject(const Ref<MessageQueue>& queue, const MSG& message, DWORD missing) {
  if (queue && InputKind(message.message) == 0) {
    tlsLastError = ERROR_INVALID_PARAMETER;
    return false;
  }
  return IsTaken(queue ? queue->PostInput(message) : Acceptance::kClosed, missing);
}

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

BOOL PostThreadMessageA(DWORD threadId, UINT message, WPARAM first, LPARAM second) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    return PostTo(MessageQueue::OfThread(threadId), MakeMessage(nullptr, message, first, second),
                  ERROR_INVALID_THREAD_ID);
  });
}

BOOL PostMessageA(HWND handle, UINT message, WPARAM first, LPARAM second) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    if (handle == nullptr) MessageQueue::Current();
    const DWORD threadId = handle == nullptr ? GetCurrentThreadId() : FindWindowByHandle(handle).threadId;
    return PostTo(MessageQueue::OfThread(threadId), MakeMessage(handle, message, first, second),
                  ERROR_INVALID_WINDOW_HANDLE);
  });
}

BOOL OrmInjectInput(HWND handle, UINT message, WPARAM first, LPARAM second) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    return Inject(MessageQueue::OfThread(FindWindowByHandle(handle).threadId),
                  MakeMessage(handle, message, first, second), ERROR_INVALID_WINDOW_HANDLE);
  });
}

BOOL OrmInjectThreadInput(DWORD threadId, UINT message, WPARAM first, LPARAM second) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    return Inject(MessageQueue::OfThread(threadId), MakeMessage(nullptr, message, first, second),
                  ERROR_INVALID_THREAD_ID);
  });
}

LRESULT SendMessageA(HWND handle, UINT message, WPARAM first, LPARAM second) noexcept {
  const Window window = FindWindowByHandle(handle);
  if (window.handle == nullptr) return 0;
  if (window.threadId == GetCurrentThreadId()) return window.procedure(handle, message, first, second);
  const auto sent = Send(window, message, first, second);
  if (!sent) return 0;
  // Two threads may send to each other at the same time: calls are answered while this one waits.
  MessageQueue& own = MessageQueue::Current();
  while (WaitHandles::Wait({&sent->done, 1}, false, INFINITE, &own, QS_SENDMESSAGE, false) ==
         WAIT_OBJECT_0 + 1) {
    AnswerSent(own);
  }
  return sent->result;
}

BOOL PeekMessageA(MSG* message, HWND window, UINT first, UINT last, UINT remove) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    const auto found = Peek(window, first, last, remove);
    if (found) *message = *found;
    return found.has_value();
  });
}

BOOL GetMessageA(MSG* message, HWND window, UINT first, UINT last) noexcept {
  return OrNoMemory<BOOL>(-1, [&]() -> BOOL {
    if (window != nullptr && window != MessageFilter::kThreadMessages && !IsWindow(window)) return -1;
    auto found = Peek(window, first, last, PM_REMOVE);
    while (!found) {
      if (WaitWithQueue({}, INFINITE, QS_ALLINPUT, true) == WAIT_FAILED) return -1;
      found = Peek(window, first, last, PM_REMOVE);
    }
    *message = *found;
    return message->message != WM_QUIT;
  });
}

BOOL TranslateMessage(const MSG*) noexcept {
  return FALSE;
}

LRESULT DispatchMessageA(const MSG* message) noexcept {
  if (message->message == WM_TIMER && message->lParam != 0) {
    reinterpret_cast<TIMERPROC>(message->lParam)(message->hwnd, WM_TIMER, message->wParam, GetTickCount());
    return 0;
  }
  if (message->hwnd == nullptr) return 0;
  const Window window = FindWindowByHandle(message->hwnd);
  if (window.handle == nullptr) return 0;
  return window.procedure(message->hwnd, message->message, message->wParam, message->lParam);
}

void PostQuitMessage(int exitCode) noexcept {
  MessageQueue::Current().PostQuit(exitCode);
}

BOOL WaitMessage() noexcept {
  return OrNoMemory(FALSE,
                    [&]() -> BOOL { return WaitWithQueue({}, INFINITE, QS_ALLINPUT, true) != WAIT_FAILED; });
}

DWORD GetQueueStatus(UINT flags) noexcept {
  return OrNoMemory<DWORD>(0, [&]() -> DWORD {
    MessageQueue& queue = MessageQueue::Current();
    queue.CheckTimers();
    const UINT pending = queue.Pending() & flags;
    return static_cast<DWORD>(pending << 16 | queue.TakeNew(flags));
  });
}

DWORD MsgWaitForMultipleObjectsEx(DWORD count, const HANDLE* objects, DWORD milliseconds, DWORD wakeMask,
                                  DWORD flags) noexcept {
  return OrNoMemory(WAIT_FAILED, [&]() -> DWORD {
    if (count >= MAXIMUM_WAIT_OBJECTS || (count != 0 && objects == nullptr) || (flags & MWMO_WAITALL) != 0) {
      tlsLastError = ERROR_INVALID_PARAMETER;
      return WAIT_FAILED;
    }
    return WaitWithQueue({objects, count}, milliseconds, wakeMask, (flags & MWMO_INPUTAVAILABLE) == 0);
  });
}

DWORD MsgWaitForMultipleObjects(DWORD count, const HANDLE* objects, BOOL all, DWORD milliseconds,
                                DWORD wakeMask) noexcept {
  if (all) {
    tlsLastError = ERROR_NOT_SUPPORTED;
    return WAIT_FAILED;
  }
  return MsgWaitForMultipleObjectsEx(count, objects, milliseconds, wakeMask, 0);
}

UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT milliseconds, TIMERPROC procedure) noexcept {
  return OrNoMemory<UINT_PTR>(0, [&]() -> UINT_PTR {
    if (window != nullptr && FindWindowByHandle(window).threadId != GetCurrentThreadId()) {
      tlsLastError = ERROR_INVALID_WINDOW_HANDLE;
      return 0;
    }
    return MessageQueue::Current().SetTimer(window, id, milliseconds, procedure);
  });
}

BOOL KillTimer(HWND window, UINT_PTR id) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    if (MessageQueue::Current().KillTimer(window, id)) return TRUE;
    tlsLastError = ERROR_INVALID_PARAMETER;
    return FALSE;
  });
}
