// Message queues.
#include <thread>
#include <vector>

#include "kernel/Handle.h"
#include "kernel/Windows.h"

namespace {

using orm::test::Handle;
using namespace test;

class Queue : public EmptyQueue {};

TEST_F(Queue, WaitsEndOnNewInputOfTheirKindsOnly) {
  MSG message;
  const DWORD self = GetCurrentThreadId();
  std::thread([] {
    EXPECT_FALSE(PostThreadMessageA(GetCurrentThreadId(), WM_APP, 0, 0)) << "no queue yet";
    EXPECT_EQ(ERROR_INVALID_THREAD_ID, GetLastError());
  }).join();
  EXPECT_TRUE(PostThreadMessageA(self, WM_APP, 1, 2));
  EXPECT_EQ(WAIT_TIMEOUT, WaitForInput(QS_INPUT | QS_PAINT | QS_TIMER));
  EXPECT_EQ(WAIT_OBJECT_0, WaitForInput(QS_POSTMESSAGE));
  EXPECT_EQ(WAIT_OBJECT_0, WaitForInput(QS_ALLINPUT)) << "a wait does not look at the input";
  EXPECT_TRUE(PeekMessageA(&message, nullptr, 0, 0, PM_NOREMOVE));
  EXPECT_EQ(WAIT_TIMEOUT, WaitForInput(QS_ALLINPUT)) << "what was looked at is not new";
  EXPECT_EQ(WAIT_OBJECT_0, MsgWaitForMultipleObjectsEx(0, nullptr, 0, QS_ALLINPUT, MWMO_INPUTAVAILABLE));
  EXPECT_TRUE(OrmInjectThreadInput(self, WM_KEYDOWN, 'A', 0));
  EXPECT_EQ(static_cast<DWORD>((QS_KEY | QS_POSTMESSAGE) << 16 | QS_KEY),
            GetQueueStatus(QS_KEY | QS_POSTMESSAGE));
  EXPECT_EQ(WAIT_TIMEOUT, WaitForInput(QS_ALLINPUT));
  EXPECT_FALSE(OrmInjectThreadInput(self, WM_APP, 0, 0));
  // Posted messages come before input, and looking at one kind leaves the others.
  EXPECT_TRUE(PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE | QS_KEY << 16));
  EXPECT_EQ(WM_KEYDOWN, message.message);
  EXPECT_TRUE(PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE));
  EXPECT_EQ(WM_APP, message.message);
  EXPECT_EQ(1u, message.wParam);
  EXPECT_EQ(2, message.lParam);
}

TEST_F(Queue, IsTheLastObjectOfAWait) {
  MSG message;
  PeekMessageA(&message, nullptr, 0, 0, PM_NOREMOVE);
  const Handle event(CreateEventA(nullptr, TRUE, TRUE, nullptr));
  const HANDLE objects[] = {event.get()};
  PostThreadMessageA(GetCurrentThreadId(), WM_APP, 0, 0);
  EXPECT_EQ(WAIT_OBJECT_0, MsgWaitForMultipleObjects(1, objects, FALSE, INFINITE, QS_ALLINPUT));
  ResetEvent(event.get());
  EXPECT_EQ(WAIT_OBJECT_0 + 1, MsgWaitForMultipleObjects(1, objects, FALSE, INFINITE, QS_ALLINPUT));
  PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE);
  const DWORD self = GetCurrentThreadId();
  std::thread poster([&] {
    OrmInjectThreadInput(self, WM_MOUSEMOVE, 0, 0);  // not asked for
    PostThreadMessageA(self, WM_APP, 0, 0);
  });
  EXPECT_EQ(WAIT_OBJECT_0 + 1, MsgWaitForMultipleObjects(1, objects, FALSE, INFINITE, QS_POSTMESSAGE));
  poster.join();
}

TEST_F(Queue, QuitComesAfterWhatWasPosted) {
  MSG message;
  PostQuitMessage(7);
  PostMessageA(nullptr, WM_APP, 0, 0);
  EXPECT_TRUE(GetMessageA(&message, nullptr, 0, 0));
  EXPECT_EQ(WM_APP, message.message);
  EXPECT_FALSE(GetMessageA(&message, nullptr, 0, 0));
  EXPECT_EQ(7u, message.wParam);
  EXPECT_FALSE(PeekMessageA(&message, nullptr, 0, 0, PM_NOREMOVE));
}

// Posted messages and input have room of their own. The last move of the mouse stands for those before it.
TEST_F(Queue, FullOnesRefuse) {
  MSG message;
  PeekMessageA(&message, nullptr, 0, 0, PM_NOREMOVE);
  const DWORD self = GetCurrentThreadId();
  DWORD posted = 0, injected = 0;
  while (posted < 20000 && PostThreadMessageA(self, WM_APP, posted, 0)) ++posted;
  EXPECT_EQ(10000u, posted);
  EXPECT_EQ(ERROR_NOT_ENOUGH_QUOTA, GetLastError());
  while (injected < 9999 && OrmInjectThreadInput(self, WM_KEYDOWN, injected, 0)) ++injected;
  for (int move = 0; move < 3; ++move) EXPECT_TRUE(OrmInjectThreadInput(self, WM_MOUSEMOVE, 0, move));
  EXPECT_FALSE(OrmInjectThreadInput(self, WM_KEYDOWN, injected, 0));
  EXPECT_EQ(ERROR_NOT_ENOUGH_QUOTA, GetLastError());
}

// The thread leaves its mutexes after its queue is closed and before it is gone; so many take it a while.
TEST_F(Queue, ClosedOnesAreThoseOfNoThread) {
  const Handle ready(CreateEventA(nullptr, FALSE, FALSE, nullptr));
  std::vector<Handle> mutexes(50'000);
  DWORD id = 0;
  std::thread ending([&] {
    for (Handle& mutex : mutexes) mutex = Handle(CreateMutexA(nullptr, TRUE, nullptr));
    WaitForInput(QS_ALLINPUT);  // makes the queue
    id = GetCurrentThreadId();
    SetEvent(ready.get());
  });
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(ready.get(), INFINITE));
  // Moves of the mouse replace each other, so that they never fill the queue.
  while (OrmInjectThreadInput(id, WM_MOUSEMOVE, 0, 0)) continue;
  EXPECT_EQ(ERROR_INVALID_THREAD_ID, GetLastError());
  EXPECT_FALSE(PostThreadMessageA(id, WM_USER, 0, 0));
  EXPECT_EQ(ERROR_INVALID_THREAD_ID, GetLastError());
  ending.join();
}

}  // namespace
