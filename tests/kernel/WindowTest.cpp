// Windows: what they are told and when, from whichever thread.
#include <atomic>
#include <thread>
#include <vector>

#include "kernel/Windows.h"
#include "support/FailingNew.h"

namespace {

using namespace test;

class Windows : public EmptyQueue {};

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
  EXPECT_EQ(WAIT_OBJECT_0, WaitForInput(QS_PAINT));
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
  EXPECT_EQ(WAIT_TIMEOUT, WaitForInput(QS_PAINT));
  InvalidateRect(window, &left, FALSE);
  RECT area;
  BOOL erase = TRUE;
  EXPECT_TRUE(OrmTakeUpdateRect(window, &area, &erase));
  EXPECT_FALSE(erase) << "nothing of the window was outside";
  // While that is being painted, more becomes invalid, and again after the queue was looked at.
  MSG message;
  for (const RECT* part : {&right, &left}) {
    InvalidateRect(window, part, FALSE);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForInput(QS_PAINT)) << "an invalidation is new input";
    for (int look = 0; look < 3; ++look) {
      EXPECT_TRUE(PeekMessageA(&message, nullptr, 0, 0, look == 1 ? PM_NOREMOVE : PM_REMOVE));
      EXPECT_EQ(WM_PAINT, message.message);
      EXPECT_EQ(WAIT_TIMEOUT, WaitForInput(QS_PAINT)) << "which was looked at";
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
    if (isLost && lost == 0) lost += WaitForInput(QS_SENDMESSAGE, 20000) == WAIT_TIMEOUT;
  }
  caller.join();
  EXPECT_EQ(0, lost);
}

TEST_F(Windows, TimersEndWaitsAndReachTheirProcedure) {
  static int calls = 0;
  const UINT_PTR id = SetTimer(nullptr, 0, 10, [](HWND, UINT, UINT_PTR, DWORD) { ++calls; });
  EXPECT_NE(0u, id);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForInput(QS_TIMER, INFINITE));
  MSG message;
  ASSERT_TRUE(GetMessageA(&message, nullptr, 0, 0));
  EXPECT_EQ(WM_TIMER, message.message);
  DispatchMessageA(&message);
  EXPECT_EQ(1, calls);
  EXPECT_TRUE(KillTimer(nullptr, id));
  EXPECT_FALSE(KillTimer(nullptr, id));
}

}  // namespace
