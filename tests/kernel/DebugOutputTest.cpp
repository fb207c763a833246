// The debugger output, and what it and the queues do at a fork.
#include <atomic>
#include <thread>
#include <vector>

#include "kernel/Windows.h"
#include "support/Child.h"
#include "support/FailingNew.h"
#include "win32/debugwatch.h"
#include "win32/modules.h"

namespace {

using namespace test;

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
  for (unsigned at = 1; at < 20; ++at) {
    const test::FailingNew failing(at);
    OutputDebugStringA("nobody watches, and there is no memory\n");
  }
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
  test::Child::Forked([&first] {
    first.~DebugWatch();
    return 0;
  }).Finish();
  OutputDebugStringA("and stays, whatever a child does");
  EXPECT_TRUE(first.Read(record, 60000));
}

}  // namespace
