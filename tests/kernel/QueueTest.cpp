// Message queues, windows, timers, the message box, and the debugger output.
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "kernel/Handle.h"
#include "support/Child.h"
#include "support/FailingNew.h"
#include "win32/debugwatch.h"
#include "win32/modules.h"
#include "win32/user.h"

namespace {

using orm::test::Handle;

std::vector<UINT> gsSeen;

LRESULT Record(HWND window, UINT message, WPARAM first, LPARAM second) {
  gsSeen.push_back(message);
  if (message == WM_USER) return static_cast<LRESULT>(first) + second;
  if (message == WM_DESTROY) PostQuitMessage(static_cast<int>(gsSeen.size()));
  return DefWindowProcA(window, message, first, second);
}

HWND MakeWindow(HWND parent = nullptr) {
  WNDCLASSA windowClass{};
  windowClass.lpfnWndProc = &Record;
  windowClass.lpszClassName = "Recorder";
  RegisterClassA(&windowClass);
  const HWND window =
      CreateWindowExA(0, "recorder", "title", 0, 10, 20, 100, 50, parent, nullptr, nullptr, nullptr);
  gsSeen.clear();
  return window;
}

DWORD Wait(UINT mask, DWORD time = 0) {
  return MsgWaitForMultipleObjects(0, nullptr, FALSE, time, mask);
}

// Takes what an earlier case of the same process left.
class EmptyQueue : public testing::Test {
 protected:
  void SetUp() override {
    MSG message;
    while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
    }
  }
};
class Queue : public EmptyQueue {};
class Windows : public EmptyQueue {};

TEST_F(Queue, WaitsEndOnNewInputOfTheirKindsOnly) {
  MSG message;
  const DWORD self = GetCurrentThreadId();
  std::thread([] {
    EXPECT_FALSE(PostThreadMessageA(GetCurrentThreadId(), WM_APP, 0, 0)) << "no queue yet";
    EXPECT_EQ(ERROR_INVALID_THREAD_ID, GetLastError());
  }).join();
  EXPECT_TRUE(PostThreadMessageA(self, WM_APP, 1, 2));
  EXPECT_EQ(WAIT_TIMEOUT, Wait(QS_INPUT | QS_PAINT | QS_TIMER));
  EXPECT_EQ(WAIT_OBJECT_0, Wait(QS_POSTMESSAGE));
  EXPECT_EQ(WAIT_OBJECT_0, Wait(QS_ALLINPUT)) << "a wait does not look at the input";
  EXPECT_TRUE(PeekMessageA(&message, nullptr, 0, 0, PM_NOREMOVE));
  EXPECT_EQ(WAIT_TIMEOUT, Wait(QS_ALLINPUT)) << "what was looked at is not new";
  EXPECT_EQ(WAIT_OBJECT_0, MsgWaitForMultipleObjectsEx(0, nullptr, 0, QS_ALLINPUT, MWMO_INPUTAVAILABLE));
  EXPECT_TRUE(OrmInjectThreadInput(self, WM_KEYDOWN, 'A', 0));
  EXPECT_EQ(static_cast<DWORD>((QS_KEY | QS_POSTMESSAGE) << 16 | QS_KEY),
            GetQueueStatus(QS_KEY | QS_POSTMESSAGE));
  EXPECT_EQ(WAIT_TIMEOUT, Wait(QS_ALLINPUT));
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
    Wait(QS_ALLINPUT);  // makes the queue
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

TEST_F(Windows, AreCreatedPaintedAndDestroyedInOrder) {
  const HWND window = MakeWindow();
  ASSERT_NE(nullptr, window);
  const HWND child = MakeWindow(window);
  EXPECT_EQ(window, GetParent(child));
  RECT area;
  EXPECT_TRUE(GetClientRect(window, &area));
  EXPECT_EQ(100, area.right);
  EXPECT_FALSE(GetUpdateRect(window, &area, FALSE));
  const RECT part{90, 40, 500, 500};
  EXPECT_TRUE(InvalidateRect(window, &part, TRUE));
  MSG message;
  EXPECT_EQ(WAIT_OBJECT_0, Wait(QS_PAINT));
  ASSERT_TRUE(PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE));
  EXPECT_EQ(WM_PAINT, message.message);
  EXPECT_TRUE(PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) << "painting is asked for until it is done";
  BOOL erase = FALSE;
  EXPECT_TRUE(OrmTakeUpdateRect(window, &area, &erase));
  EXPECT_TRUE(erase);
  EXPECT_EQ(90, area.left);
  EXPECT_EQ(100, area.right);
  EXPECT_EQ(50, area.bottom);
  EXPECT_FALSE(PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE));
  InvalidateRect(window, nullptr, FALSE);
  UpdateWindow(window);
  EXPECT_EQ(std::vector<UINT>{WM_PAINT}, gsSeen);
  PostMessageA(child, WM_APP, 0, 0);
  EXPECT_TRUE(DestroyWindow(window));
  EXPECT_EQ((std::vector<UINT>{WM_PAINT, WM_DESTROY, WM_DESTROY, WM_NCDESTROY, WM_NCDESTROY}), gsSeen);
  EXPECT_FALSE(IsWindow(child));
  EXPECT_FALSE(GetMessageA(&message, nullptr, 0, 0)) << "a destroyed window's messages go with it";
  EXPECT_FALSE(PostMessageA(window, WM_APP, 0, 0));
  EXPECT_EQ(ERROR_INVALID_WINDOW_HANDLE, GetLastError());
}

// With its children, whatever they do when they go: here, one makes another one.
TEST_F(Windows, AreDestroyedWithoutMemory) {
  static HWND parent = nullptr;
  static int made, gone;
  made = gone = 0;
  WNDCLASSA windowClass{};
  windowClass.lpfnWndProc = [](HWND window, UINT message, WPARAM first, LPARAM second) -> LRESULT {
    made += message == WM_CREATE;
    gone += message == WM_NCDESTROY;
    if (message == WM_DESTROY && window != parent && made == 3) {
      CreateWindowExA(0, "short-lived", "", 0, 0, 0, 1, 1, parent, nullptr, nullptr, nullptr);
    }
    return DefWindowProcA(window, message, first, second);
  };
  windowClass.lpszClassName = "short-lived";
  RegisterClassA(&windowClass);
  const auto make = [] {
    return CreateWindowExA(0, "short-lived", "", 0, 0, 0, 1, 1, parent, nullptr, nullptr, nullptr);
  };
  parent = nullptr;
  parent = make();
  make();
  make();
  EXPECT_TRUE(DestroyWindow(parent));
  EXPECT_EQ(4, gone);
  made = 4;
  parent = nullptr;
  parent = make();
  make();
  {
    const test::FailingNew failing(1);
    EXPECT_TRUE(DestroyWindow(parent));
  }
  EXPECT_EQ(6, gone);
}

// What a window has to paint and what its queue says of that never part, whoever was first.
TEST_F(Windows, NoInvalidationIsLostBetweenThreads) {
  constexpr int rounds = 20000;
  const HWND window = MakeWindow();
  std::atomic<int> arrived{0};
  // Threads that are woken arrive one after the other; those that spin, at once.
  const auto meet = [&arrived](int place) {
    ++arrived;
    while (arrived < 2 * place) std::this_thread::yield();
  };
  std::thread other([&] {
    for (int round = 0; round < rounds; ++round) {
      meet(2 * round + 1);
      // A little later each time, so that it falls into every part of what the owner does.
      for (std::atomic<int> pause = round % 256; pause > 0; --pause) {
      }
      InvalidateRect(window, nullptr, FALSE);
      meet(2 * round + 2);
    }
  });
  int wrong = 0;
  for (int round = 0; round < rounds; ++round) {
    meet(2 * round + 1);
    ValidateRect(window, nullptr);
    meet(2 * round + 2);
    const DWORD status = GetQueueStatus(QS_PAINT);
    const DWORD expected = GetUpdateRect(window, nullptr, FALSE) ? QS_PAINT << 16 | QS_PAINT : 0;
    wrong += status != expected;
    ValidateRect(window, nullptr);
  }
  other.join();
  EXPECT_EQ(0, wrong);
  DestroyWindow(window);
}

TEST_F(Windows, PaintingIsAskedForUntilAllIsDone) {
  const HWND window = MakeWindow();
  const RECT outside{200, 0, 300, 10}, left{0, 0, 20, 50}, right{80, 0, 100, 50};
  InvalidateRect(window, &outside, TRUE);
  EXPECT_EQ(WAIT_TIMEOUT, Wait(QS_PAINT));
  InvalidateRect(window, &left, FALSE);
  RECT area;
  BOOL erase = TRUE;
  EXPECT_TRUE(OrmTakeUpdateRect(window, &area, &erase));
  EXPECT_FALSE(erase) << "nothing of the window was outside";
  // While that is being painted, more becomes invalid, and again after the queue was looked at.
  MSG message;
  for (const RECT* part : {&right, &left}) {
    InvalidateRect(window, part, FALSE);
    EXPECT_EQ(WAIT_OBJECT_0, Wait(QS_PAINT)) << "an invalidation is new input";
    for (int look = 0; look < 3; ++look) {
      EXPECT_TRUE(PeekMessageA(&message, nullptr, 0, 0, look == 1 ? PM_NOREMOVE : PM_REMOVE));
      EXPECT_EQ(WM_PAINT, message.message);
      EXPECT_EQ(WAIT_TIMEOUT, Wait(QS_PAINT)) << "which was looked at";
      EXPECT_EQ(WAIT_OBJECT_0, MsgWaitForMultipleObjectsEx(0, nullptr, 0, QS_PAINT, MWMO_INPUTAVAILABLE));
    }
  }
  EXPECT_TRUE(OrmTakeUpdateRect(window, &area, &erase));
  EXPECT_EQ(100, area.right - area.left);
  EXPECT_EQ(WAIT_TIMEOUT, MsgWaitForMultipleObjectsEx(0, nullptr, 0, QS_PAINT, MWMO_INPUTAVAILABLE));
  DestroyWindow(window);
}

TEST_F(Windows, FarPlacesStayWithinNumbers) {
  const HWND window = MakeWindow();
  EXPECT_TRUE(MoveWindow(window, INT32_MAX - 10, INT32_MIN, 100, INT32_MAX, TRUE));
  const HWND child = MakeWindow(window);  // at 10, 20
  RECT area;
  EXPECT_TRUE(GetClientRect(window, &area));
  EXPECT_EQ(10, area.right);
  EXPECT_EQ(INT32_MAX, area.bottom);
  POINT point{1, -50};
  EXPECT_TRUE(ClientToScreen(child, &point));
  EXPECT_EQ(INT32_MAX, point.x);
  EXPECT_EQ(INT32_MIN, point.y);
  DestroyWindow(window);
}

// A window that refuses its own creation takes along what it had asked for.
TEST_F(Windows, RefusedOnesLeaveNothingBehind) {
  WNDCLASSA windowClass{};
  windowClass.lpfnWndProc = [](HWND window, UINT, WPARAM, LPARAM) -> LRESULT {
    InvalidateRect(window, nullptr, TRUE);
    PostMessageA(window, WM_APP, 0, 0);
    return 0;
  };
  windowClass.lpszClassName = "Refuser";
  RegisterClassA(&windowClass);
  EXPECT_EQ(nullptr, CreateWindowExA(0, "refuser", "", 0, 0, 0, 10, 10, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(0u, GetQueueStatus(QS_ALLINPUT));
}

TEST_F(Windows, CallsFromOtherThreadsRunOnTheWindowsThread) {
  const HWND window = MakeWindow();
  const DWORD self = GetCurrentThreadId();
  std::thread caller([&] {
    EXPECT_EQ(42, SendMessageA(window, WM_USER, 40, 2));
    EXPECT_FALSE(DestroyWindow(window));
    EXPECT_EQ(ERROR_ACCESS_DENIED, GetLastError());
    PostThreadMessageA(self, WM_QUIT, 0, 0);
  });
  MSG message;
  while (GetMessageA(&message, nullptr, 0, 0)) DispatchMessageA(&message);
  caller.join();
}

// The windows of a thread go with it, and calls to them fail at once. Their procedures hear nothing of it:
// what they belong to may have gone before.
TEST_F(Windows, GoSilentlyWithTheirThread) {
  HWND gone = nullptr, child = nullptr;
  std::thread([&] {
    gone = MakeWindow();
    child = MakeWindow(gone);
  }).join();
  EXPECT_EQ(std::vector<UINT>{}, gsSeen);
  EXPECT_FALSE(IsWindow(gone));
  EXPECT_FALSE(IsWindow(child));
  EXPECT_EQ(0, SendMessageA(gone, WM_USER, 40, 2));
  EXPECT_EQ(ERROR_INVALID_WINDOW_HANDLE, GetLastError());
}

// A call from another thread that comes while the thread looks for messages is still new afterwards, so that
// a wait would end. Whoever sends says that something is there before it says that it is new.
TEST_F(Windows, CallsThatComeWhileMessagesAreLookedForStayNew) {
  constexpr int kCalls = 10000;
  const HWND window = MakeWindow();
  const DWORD self = GetCurrentThreadId();
  std::thread caller([&] {
    for (int i = 0; i < kCalls; ++i) EXPECT_EQ(3, SendMessageA(window, WM_USER, 1, 2));
    PostThreadMessageA(self, WM_QUIT, 0, 0);
  });
  int lost = 0;
  for (MSG message{}; message.message != WM_QUIT;) {
    if (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) continue;
    const bool isLost = GetQueueStatus(QS_SENDMESSAGE) == QS_SENDMESSAGE << 16;
    if (isLost && lost == 0) lost += Wait(QS_SENDMESSAGE, 20000) == WAIT_TIMEOUT;
  }
  caller.join();
  EXPECT_EQ(0, lost);
}

TEST_F(Windows, TimersEndWaitsAndReachTheirProcedure) {
  static int calls = 0;
  const UINT_PTR id = SetTimer(nullptr, 0, 10, [](HWND, UINT, UINT_PTR, DWORD) { ++calls; });
  EXPECT_NE(0u, id);
  EXPECT_EQ(WAIT_OBJECT_0, Wait(QS_TIMER, INFINITE));
  MSG message;
  ASSERT_TRUE(GetMessageA(&message, nullptr, 0, 0));
  EXPECT_EQ(WM_TIMER, message.message);
  DispatchMessageA(&message);
  EXPECT_EQ(1, calls);
  EXPECT_TRUE(KillTimer(nullptr, id));
  EXPECT_FALSE(KillTimer(nullptr, id));
}

// Runs the helper on a terminal of its own and types the answers.
int AskOnTerminal(const char* typed, std::string& shown) {
  int terminal;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    const std::string helper = test::Sibling("kernel_helper");
    execl(helper.c_str(), helper.c_str(), "ask", "x", nullptr);
    _exit(127);
  }
  EXPECT_EQ(static_cast<ssize_t>(strlen(typed)), write(terminal, typed, strlen(typed)));
  char buffer[512];
  for (ssize_t got; (got = read(terminal, buffer, sizeof(buffer))) > 0;)
    shown.append(buffer, static_cast<size_t>(got));
  int status = 0;
  waitpid(child, &status, 0);
  close(terminal);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(MessageBox, AsksOnTheTerminal) {
  const struct {
    const char* typed;
    int answer;
  } cases[] = {{"a\n", IDABORT}, {"what?\nr\n", IDRETRY}, {"\n", IDIGNORE}, {"\x04", 0}};
  for (const auto& one : cases) {
    std::string shown;
    EXPECT_EQ(one.answer, AskOnTerminal(one.typed, shown));
    EXPECT_NE(std::string::npos, shown.find("Caption"));
    EXPECT_EQ(std::string::npos, shown.find("\x1b[2J")) << "the text drives the terminal";
  }
}

// Also in children that are made while another thread has its turn.
TEST(MessageBox, FailsWithoutATerminal) {
  const auto ask = [] { return MessageBoxA(nullptr, "text", "caption", MB_ABORTRETRYIGNORE); };
  test::Child child = test::Child::Forked([&] {
    setsid();
    std::atomic<bool> ends{false};
    std::thread other([&] {
      while (!ends) ask();
    });
    const bool succeeded = test::ForkSome(100, [&] {
      if (ask() != 0) _exit(1);
    });
    ends = true;
    other.join();
    return succeeded ? ask() : 1;
  });
  EXPECT_EQ(0, child.Finish().status);
}

// Whatever the other threads are sending or asking at a fork, the child can do it too. Somebody has to read
// what is sent, since it would be waited for otherwise.
TEST(DebugOutput, AndQueuesWorkInAForkedChild) {
  orm::platform::DebugWatch watch;
  ASSERT_TRUE(watch.IsOpen());
  const HWND window = MakeWindow();
  std::atomic<bool> ends{false};
  std::vector<std::thread> others;
  others.emplace_back([&] {
    orm::platform::DebugRecord record;
    while (!ends) watch.Read(record, 10);
  });
  for (int i = 0; i < 2; ++i) {
    others.emplace_back([&] {
      while (!ends) {
        OutputDebugStringA("busy");
        InvalidateRect(window, nullptr, FALSE);
        OrmInjectInput(window, WM_MOUSEMOVE, 0, 0);
      }
    });
  }
  EXPECT_TRUE(test::ForkSome(300, [&] {
    OutputDebugStringA("child");
    MSG message;
    while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) ValidateRect(window, nullptr);
    if (!PostMessageA(window, WM_USER, 0, 0) || !GetMessageA(&message, window, WM_USER, WM_USER)) _exit(1);
  }));
  ends = true;
  for (std::thread& other : others) other.join();
  DestroyWindow(window);
}

TEST(DebugOutput, ReachesEveryWatcherOfTheMachine) {
  OutputDebugStringA("nobody watches\n");
  orm::platform::DebugRecord record;
  orm::platform::DebugWatch first;
  ASSERT_TRUE(first.IsOpen());
  {
    orm::platform::DebugWatch second;
    ASSERT_TRUE(second.IsOpen());
    test::Child child({test::Sibling("kernel_helper"), "debug", "from afar\r\n"});
    for (auto* watch : {&first, &second}) {
      ASSERT_TRUE(watch->Read(record, 60000));
      EXPECT_EQ("from afar\r\n", record.text);
      EXPECT_EQ(static_cast<DWORD>(child.GetPid()), record.processId);
    }
  }
  OutputDebugStringA("one is left");
  ASSERT_TRUE(first.Read(record, 60000));
  EXPECT_EQ("one is left", record.text);
  EXPECT_EQ(GetCurrentProcessId(), record.processId);
  EXPECT_FALSE(first.Read(record, 0));
}

}  // namespace
