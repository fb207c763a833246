// Events, and what goes first when several things have happened.
#include <gtest/gtest.h>

#include "TestRunnable.h"

using namespace orm;
using namespace test;

TEST(Event, Kinds) {
  Event manual(Event::MANUAL, true), automatic(Event::AUTOMATIC, true);
  EXPECT_TRUE(manual.Wait(0));
  EXPECT_TRUE(manual.Wait(0));
  manual.Reset();
  EXPECT_FALSE(manual.Wait(0));
  EXPECT_TRUE(automatic.Wait(0));
  EXPECT_FALSE(automatic.Wait(0));
  automatic.Set();
  automatic.Reset();
  EXPECT_FALSE(automatic.Wait(0));
}

TEST(Event, EventBeforeInterruptionBeforeInput) {
  auto runnable = TestRunnable::Make([] {
    Event event(Event::MANUAL);
    MakeQueue();
    PostThreadMessageA(GetCurrentThreadId(), WM_USER, 0, 0);
    bool message = true;
    EXPECT_FALSE(event.MessageWait(message, 0, QS_TIMER)) << "a message of another kind";
    EXPECT_FALSE(message);
    EXPECT_TRUE(event.MessageWait(message, INFINITE, QS_POSTMESSAGE));
    EXPECT_TRUE(message);
    PostThreadMessageA(GetCurrentThreadId(), WM_USER, 0, 0);
    event.Set();
    EXPECT_TRUE(event.MessageWait(message, INFINITE, QS_POSTMESSAGE));
    EXPECT_FALSE(message);
    Thread::GetSelf()->Interrupt();
    EXPECT_TRUE(event.Wait(0));
    EXPECT_TRUE(event.MessageWait(message, 0, QS_POSTMESSAGE));
    EXPECT_FALSE(message);
    event.Reset();
    PostThreadMessageA(GetCurrentThreadId(), WM_USER, 0, 0);
    EXPECT_TRUE(IsInterruption(Caught([&] { event.Wait(0); })));
    EXPECT_TRUE(IsInterruption(Caught([&] { event.MessageWait(message, 0, QS_POSTMESSAGE); })));
  });
  runnable->CreateThread(true, true);
  runnable->Wait();
}
