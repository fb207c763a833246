// The states of a runnable, one test for each way through them.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "TestRunnable.h"
#include "support/Child.h"
#include "support/TraceConfig.h"

using namespace orm;
using namespace test;

TEST(Runnable, RunsItsBodyOnItsOwnThread) {
  FacePtr<TestRunnable> runnable;
  DWORD initThread = 0, runThread = 0;
  bool isSelf = false;
  runnable = TestRunnable::Make(
      [&] {
        runThread = GetCurrentThreadId();
        isSelf = Thread::GetSelf().Get() == runnable.Get();
      },
      [&] { initThread = GetCurrentThreadId(); });
  runnable->CreateThread(true, true);
  runnable->Wait();
  EXPECT_EQ(initThread, runnable->GetId());
  EXPECT_EQ(runThread, runnable->GetId());
  EXPECT_TRUE(isSelf);
  EXPECT_NE(runThread, GetCurrentThreadId());
}

TEST(Runnable, DoesNotRunBeforeItIsStarted) {
  std::atomic<bool> ran = false;
  auto runnable = TestRunnable::Make([&] { ran = true; });
  runnable->CreateThread(false, false);
  EXPECT_EQ(WaitForSingleObject(GetCurrentThread(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
  EXPECT_FALSE(ran);
  runnable->Start(true);
  runnable->Wait();
  EXPECT_TRUE(ran);
}

TEST(Runnable, HasOneThreadInItsLife) {
  TraceSetSink([](void*, const char*) {}, nullptr, 'i');
  SetRegistryText(TRACE_KEY, " option_autoassert", "i");
  EXPECT_EQ(RunCase("Runnable.DISABLED_SecondThread"), 0);
}

TEST(Runnable, DISABLED_SecondThread) {
  auto runnable = TestRunnable::Make([] {});
  runnable->CreateThread(true, false);
  const Error error = Caught([&] { runnable->CreateThread(true, false); });
  EXPECT_EQ(error.GetCode(0), 0xE7210001u);
  EXPECT_TRUE(error.GetMessage(0).IsEmpty());
  runnable->Wait();
}

TEST(Runnable, AnErrorOfInitReachesTheWaitingStarter) {
  bool ran = false;
  auto runnable = TestRunnable::Make([&] { ran = true; }, [] { throw MakeError(0xE7FF0001, "no luck"); });
  const Error error = Caught([&] { runnable->CreateThread(true, true); });
  EXPECT_EQ(error.GetCode(0), 0xE7FF0001u);
  EXPECT_STREQ(error.GetMessage(0).GetBegin(), "no luck");
  runnable->Wait();
  auto unheard = TestRunnable::Make([&] { ran = true; }, [] { throw MakeError(0xE7FF0001, "no luck"); });
  unheard->CreateThread(true, false);
  unheard->Wait();
  EXPECT_FALSE(ran);
}

TEST(Runnable, InterruptedBeforeItsStartItRunsNothing) {
  bool ran = false;
  auto runnable = TestRunnable::Make([&] { ran = true; }, [&] { ran = true; });
  runnable->CreateThread(false, false);
  runnable->Interrupt();
  EXPECT_TRUE(IsInterruption(Caught([&] { runnable->Start(true); }),
                             "The thread was interrupted during initialization."));
  runnable->Wait();
  EXPECT_FALSE(ran);
}

// What the end of a body, and of a runnable that never had one, leaves in the trace.
TEST(Runnable, Traces) {
  SetRegistryText(TRACE_KEY, " option_format", "%2|%3!c!|%9!s!|%10!u!|");
  SetRegistryText(TRACE_KEY, " option_target", "C:\\Windows\\Temp\\runnable.log");
  SetRegistryText(TRACE_KEY, " option_autoassert", "i");
  SetRegistryText(TRACE_KEY + "\\ormutil", "thread", "w");
  const ChildResult result = RunProgram({Sibling("thread_program"), "traces"});
  ASSERT_EQ(result.status, 0);
  char terminated[128];
  snprintf(terminated, sizeof terminated,
           "thread|w|Thread|615|terminating thread id=0x%04lx, which was created but never started",
           std::strtoul(result.output.c_str(), nullptr, 10));
  EXPECT_EQ(ReadLog("runnable.log"),
            (std::vector<std::string>{
                "thread|e|Thread|591|Runnable thread body caught Error",
                "thread|e|Thread|591|[00] : outer(e7ff0002)", "thread|e|Thread|591|[01] : inner(e7ff0001)",
                "assert|e|Thread|592|*** Assertion failure: forced assert", terminated}));
}

TEST(Runnable, ReleasesItselfWhenItsThreadHasEnded) {
  Event go(Event::MANUAL);
  auto runnable = TestRunnable::Make([&] { go.Wait(INFINITE); });
  runnable->CreateThread(true, true);
  HANDLE thread = nullptr;
  ASSERT_TRUE((thread = runnable->DuplicateThread()) != nullptr);
  runnable.Release();
  EXPECT_EQ(TestRunnable::live, 1) << "the thread's own reference";
  go.Set();
  WaitForSingleObject(thread, INFINITE);
  CloseHandle(thread);
  EXPECT_EQ(TestRunnable::live, 0);
}

TEST(Runnable, FailsClearlyWithoutAThreadToBeHad) {
  const ChildResult result = RunProgram({Sibling("thread_program"), "limit"});
  EXPECT_EQ(result.status, 0) << result.output;
}

TEST(Runnable, ForeignExceptionsEndTheProcess) {
  EXPECT_NE(RunProgram({Sibling("thread_program"), "foreign"}).status, 0);
}

TEST(Runnable, AProcessMayEndWhileWorkersRun) {
  for (int i = 0; i < 20; ++i) EXPECT_EQ(RunProgram({Sibling("thread_program"), "exit"}).status, 7) << i;
}

TEST(Runnable, AProcessMayEndWhileInterruptersAreRegistered) {
  SetRegistryText(TRACE_KEY, " option_autoassert", "i");
  const ChildResult result = RunProgram({Sibling("thread_program"), "late"});
  EXPECT_EQ(result.status, 7);
  EXPECT_EQ(result.output, "kkkk");
}
