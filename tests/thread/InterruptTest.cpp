// Interruption of sleeps, and the interrupters that are told of it.
#include <gtest/gtest.h>

#include "TestRunnable.h"

using namespace orm;
using namespace test;

namespace {

class Recorder : public FaceObject<Thread::Interrupter> {
 public:
  void OnInterrupt(const FacePtr<Thread>& rThread) override {
    ++calls;
    interruptedBefore = rThread->IsInterrupted();
    caller = GetCurrentThreadId();
  }
  int calls = 0;
  bool interruptedBefore = true;
  DWORD caller = 0;
};

}  // namespace

TEST(Interrupt, EndsEveryWaitOfTheThread) {
  Event ready(Event::MANUAL);
  std::vector<Error> errors;
  auto runnable = TestRunnable::Make([&] {
    Thread::Sleep(0);
    Thread::Yield();
    Thread::CheckInterrupted();
    bool message = true;
    Thread::MessageSleep(message, 0, QS_ALLINPUT);
    EXPECT_FALSE(message);
    Event never(Event::MANUAL);
    EXPECT_FALSE(never.Wait(0));
    ready.Set();
    errors.push_back(Caught([] { Thread::Sleep(INFINITE); }));
    errors.push_back(Caught([] { Thread::Sleep(0); }));
    errors.push_back(Caught([] { Thread::Yield(); }));
    errors.push_back(Caught([] { Thread::CheckInterrupted(); }));
    errors.push_back(Caught([&] { Thread::MessageSleep(message, INFINITE, QS_ALLINPUT); }));
    errors.push_back(Caught([&] { never.Wait(INFINITE); }));
    errors.push_back(Caught([&] { never.MessageWait(message, INFINITE, QS_ALLINPUT); }));
  });
  runnable->CreateThread(true, true);
  ready.Wait(INFINITE);
  EXPECT_FALSE(runnable->IsInterrupted());
  runnable->Interrupt();
  runnable->Wait();
  ASSERT_EQ(errors.size(), 7u);
  for (const Error& error : errors) EXPECT_TRUE(IsInterruption(error)) << error.Format().GetBegin();
  EXPECT_TRUE(runnable->IsInterrupted());
}

TEST(Interrupt, ARunnableMayTakeItBack) {
  Event ready(Event::MANUAL), again(Event::MANUAL);
  FacePtr<TestRunnable> runnable;
  runnable = TestRunnable::Make([&] {
    ready.Set();
    EXPECT_TRUE(IsInterruption(Caught([] { Thread::Sleep(INFINITE); })));
    runnable->ResetInterrupt();
    Thread::Sleep(0);
    again.Set();
    Thread::Sleep(INFINITE);
    ADD_FAILURE() << "not reached";
  });
  runnable->CreateThread(true, false);
  ready.Wait(INFINITE);
  runnable->Interrupt();
  again.Wait(INFINITE);
  runnable->Interrupt();
  runnable->Wait();
}

TEST(Interrupt, MessagesEndAMessageSleep) {
  Event ready(Event::MANUAL);
  bool pending = false, late = false;
  auto runnable = TestRunnable::Make([&] {
    MakeQueue();
    PostThreadMessageA(GetCurrentThreadId(), WM_USER, 0, 0);
    Thread::MessageSleep(pending, INFINITE, QS_POSTMESSAGE);
    MSG message;
    while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
    }
    bool none = true;
    Thread::MessageSleep(none, 0, QS_POSTMESSAGE);
    EXPECT_FALSE(none);
    ready.Set();
    Thread::MessageSleep(late, INFINITE, QS_POSTMESSAGE);
  });
  runnable->CreateThread(true, true);
  ready.Wait(INFINITE);
  ASSERT_TRUE(PostThreadMessageA(runnable->GetId(), WM_USER + 1, 1, 2));
  runnable->Wait();
  EXPECT_TRUE(pending);
  EXPECT_TRUE(late);
}

TEST(Interrupter, IsCalledBeforeTheEventOnTheInterruptingThread) {
  Event ready(Event::MANUAL), done(Event::MANUAL);
  auto recorder = FacePtr<Recorder>::Adopt(new Recorder);
  auto runnable = TestRunnable::Make([&] {
    FacePtr<BaseFace> cookie = Thread::RegisterInterrupter(FacePtr<Thread::Interrupter>(recorder.Get()));
    ready.Set();
    EXPECT_TRUE(IsInterruption(Caught([] { Thread::Sleep(INFINITE); })));
    cookie.Release();
    done.Set();
  });
  runnable->CreateThread(true, true);
  ready.Wait(INFINITE);
  runnable->Interrupt();
  done.Wait(INFINITE);
  runnable->Interrupt();  // nobody is registered any more
  runnable->Wait();
  EXPECT_EQ(recorder->calls, 1);
  EXPECT_FALSE(recorder->interruptedBefore);
  EXPECT_EQ(recorder->caller, GetCurrentThreadId());
  EXPECT_EQ(recorder->AddRef(), 2u) << "the registrar has let go of it";
  recorder->Release();
}
