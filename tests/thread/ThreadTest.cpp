// A thread's own object, its named data, priorities and the clock.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <new>
#include <thread>

#include "TestRunnable.h"
#include "support/Child.h"
#include "support/FailingNew.h"
#include "support/TraceConfig.h"

using namespace orm;
using namespace test;

namespace {

struct Log {
  std::vector<std::string> entries;
  CRITICAL_SECTION lock;
};

// A datum that tells what happens to it and on which thread.
class Datum : public FaceObject<Thread::Notification> {
 public:
  Datum(const char* name, std::vector<std::string>& rLog) : mName(name), mrLog(rLog) {}
  void OnThreadAttach() override { Note("attach "); }
  void OnThreadDetach() override { Note("detach "); }

 private:
  ~Datum() override { Note("gone "); }
  void Note(const char* what) { mrLog.push_back(what + mName); }
  std::string mName;
  std::vector<std::string>& mrLog;
};

class Plain : public FaceObject<BaseFace> {};

class Deaf : public FaceObject<Thread::Interrupter> {
  void OnInterrupt(const FacePtr<Thread>&) override {}
};

}  // namespace

TEST(Thread, EachThreadHasOneObject) {
  const FacePtr<Thread> mine = Thread::GetSelf();
  EXPECT_EQ(mine.Get(), Thread::GetSelf().Get());
  EXPECT_EQ(mine->GetId(), GetCurrentThreadId());
  EXPECT_TRUE(FacePtr<Thread>(FacePtr<BaseFace>(mine)));
  FacePtr<Thread> other;
  std::thread([&] { other = Thread::GetSelf(); }).join();
  EXPECT_NE(other.Get(), mine.Get());
  other->Wait();  // its thread has ended, its handle is still good
  EXPECT_FALSE(other->IsInterrupted());
}

TEST(Thread, DataLivesAsLongAsTheThread) {
  std::vector<std::string> log;
  std::thread([&] {
    EXPECT_TRUE(Thread::GetData("b") == nullptr);
    Thread::SetData("absent", nullptr);
    Thread::SetData("b", FacePtr<BaseFace>(FacePtr<Datum>::Adopt(new Datum("b", log))));
    Thread::SetData("a", FacePtr<BaseFace>(FacePtr<Datum>::Adopt(new Datum("a", log))));
    Thread::SetData("plain", FacePtr<BaseFace>::Adopt(new Plain));
    EXPECT_TRUE(Thread::GetData("a"));
    EXPECT_TRUE(Thread::GetData("A") == nullptr) << "keys are case-sensitive";
    Thread::SetData("b", FacePtr<BaseFace>(FacePtr<Datum>::Adopt(new Datum("b2", log))));
    EXPECT_EQ(log, std::vector<std::string>{"gone b"});
  }).join();
  ASSERT_EQ(log.size(), 5u);
  std::sort(log.begin() + 3, log.end());  // all are told before the first one goes
  EXPECT_EQ(log, (std::vector<std::string>{"gone b", "detach a", "detach b2", "gone a", "gone b2"}));
}

// Data that a runnable has before its start hear of the start, and go when its body removes them.
TEST(Thread, DataMayBeThereBeforeTheThread) {
  std::vector<std::string> log;
  auto runnable = TestRunnable::Make([&] {
    EXPECT_EQ(log, (std::vector<std::string>{"attach a", "attach b"}));
    Thread::SetData("a", nullptr);
    EXPECT_EQ(log.back(), "gone a");
  });
  for (const char* key : {"b", "a"})
    runnable->KeepForItsThread(key, FacePtr<BaseFace>(FacePtr<Datum>::Adopt(new Datum(key, log))));
  runnable->CreateThread(true, false);
  runnable->Wait();
  runnable.Release();
  EXPECT_EQ(log, (std::vector<std::string>{"attach a", "attach b", "gone a", "detach b", "gone b"}));
}

// A datum that needs its thread once more when it goes with it.
class Farewell : public FaceObject<BaseFace> {
 public:
  explicit Farewell(int depth) : mDepth(depth) {}

 private:
  ~Farewell() override {
    EXPECT_EQ(Thread::GetSelf().Get(), Thread::GetSelf().Get());
    EXPECT_EQ(Thread::GetSelf()->GetId(), GetCurrentThreadId());
    EXPECT_TRUE(Thread::GetData("b") == nullptr);
    if (mDepth > 0) Thread::SetData("b", FacePtr<BaseFace>::Adopt(new Farewell(mDepth - 1)));
  }
  int mDepth;
};

TEST(Thread, DataMayUseTheThreadWhenTheyGoWithIt) {
  Event go(Event::MANUAL);
  Thread::GetSelf();
  const auto before = GetHandleCount();
  const auto interrupter = FacePtr<Deaf>::Adopt(new Deaf);
  const auto store = [&] {
    Thread::SetData("a", FacePtr<BaseFace>::Adopt(new Farewell(2)));
    Thread::SetData("c", Thread::RegisterInterrupter(FacePtr<Thread::Interrupter>(interrupter.Get())));
  };
  std::thread(store).join();
  auto runnable = TestRunnable::Make([&] {
    store();
    go.Wait(INFINITE);
  });
  runnable->CreateThread(true, false);
  const HANDLE thread = runnable->DuplicateThread();
  runnable.Release();
  go.Set();
  WaitForSingleObject(thread, INFINITE);
  CloseHandle(thread);
  EXPECT_EQ(interrupter->AddRef(), 2u) << "the registrar has let go of it";
  interrupter->Release();
  EXPECT_EQ(GetHandleCount(), before);
}

// Told and let go of, and counted.
class Counted : public FaceObject<Thread::Notification> {
 public:
  explicit Counted(int& rTold, int& rGone) : mrTold(rTold), mrGone(rGone) {}
  void OnThreadAttach() override {}
  void OnThreadDetach() override { ++mrTold; }

 private:
  ~Counted() override { ++mrGone; }
  int& mrTold;
  int& mrGone;
};

TEST(Thread, ItsEndNeedsNoMemory) {
  for (unsigned at = 1; at <= 4; ++at) {
    int told = 0, gone = 0;
    alignas(FailingNew) unsigned char storage[sizeof(FailingNew)];
    std::thread([&] {
      for (const char* key : {"a", "b"})
        Thread::SetData(key, FacePtr<BaseFace>(FacePtr<Counted>::Adopt(new Counted(told, gone))));
      new (storage) FailingNew(at);  // to the end of the thread
    }).join();
    EXPECT_EQ(told, 2) << at;
    EXPECT_EQ(gone, 2) << at;
  }
}

// What is made for a thread at its first use is whole, or not kept.
TEST(Thread, ItsFirstUseWithoutMemoryLeavesNothing) {
  SetRegistryText(TRACE_KEY, " option_autoassert", "i");
  EXPECT_EQ(RunProgram({Sibling("test_thread"), "--gtest_also_run_disabled_tests",
                        "--gtest_filter=*.DISABLED_FirstUseWithoutMemory"})
                .status,
            0);
}

TEST(Thread, DISABLED_FirstUseWithoutMemory) {
  Thread::GetSelf();
  const auto before = GetHandleCount();
  bool isRefused = true;
  for (unsigned at = 1; isRefused; ++at) {
    int told = 0, gone = 0;
    bool isKept = false;
    std::thread([&] {
      const auto datum = FacePtr<BaseFace>(FacePtr<Counted>::Adopt(new Counted(told, gone)));
      {
        const FailingNew failing(at);
        try {
          Thread::SetData("a", datum);
          isKept = true;
        } catch (const std::bad_alloc&) {
        } catch (const Error&) {
        }
        isRefused = failing.HasFailed();
      }
      EXPECT_EQ(Thread::GetData("a").Get(), isKept ? datum.Get() : nullptr) << at;
      Thread::SetData("a", datum);
      EXPECT_EQ(Thread::GetSelf().Get(), Thread::GetSelf().Get());
    }).join();
    EXPECT_EQ(told, 1) << at;
    EXPECT_EQ(gone, 1) << at;
    EXPECT_EQ(GetHandleCount(), before) << at;
    ASSERT_LT(at, 100u);
  }
}

// Does what a test wants when it is told.
class Acting : public FaceObject<Thread::Notification> {
 public:
  Acting(std::function<void()> attach, std::function<void()> detach)
      : mAttach(std::move(attach)), mDetach(std::move(detach)) {}
  void OnThreadAttach() override { mAttach(); }
  void OnThreadDetach() override { mDetach(); }

 private:
  std::function<void()> mAttach, mDetach;
};

TEST(Thread, DataMayUseTheThreadBeforeItIsTheRunnable) {
  const auto before = GetHandleCount();
  auto runnable = TestRunnable::Make([] {});
  const auto attach = [] { EXPECT_EQ(Thread::GetSelf()->GetId(), GetCurrentThreadId()); };
  runnable->KeepForItsThread("a", FacePtr<BaseFace>(FacePtr<Acting>::Adopt(new Acting(attach, [] {}))));
  runnable->CreateThread(true, false);
  runnable->Wait();
  runnable.Release();
  EXPECT_EQ(GetHandleCount(), before);
}

// One that another one removes before its turn is not told, one that another one adds behind itself is.
TEST(Thread, DataMayChangeWhileTheyAreTold) {
  std::vector<std::string> log;
  const auto keep = [&](const char* key) {
    Thread::SetData(key, FacePtr<BaseFace>(FacePtr<Datum>::Adopt(new Datum(key, log))));
  };
  std::thread([&] {
    keep("a");
    keep("c");
    const auto change = [&] {
      for (const char* key : {"a", "b", "c"}) Thread::SetData(key, nullptr);
      keep("d");
    };
    Thread::SetData("b", FacePtr<BaseFace>(FacePtr<Acting>::Adopt(new Acting([] {}, change))));
  }).join();
  EXPECT_EQ(log, (std::vector<std::string>{"detach a", "gone a", "gone c", "detach d", "gone d"}));
}

TEST(Thread, PrioritiesReadBack) {
  auto runnable = TestRunnable::Make([] {});
  runnable->CreateThread(false, false);
  for (const auto priority : {Thread::PRIORITY_LOWEST, Thread::PRIORITY_BELOW_NORMAL, Thread::PRIORITY_NORMAL,
                              Thread::PRIORITY_ABOVE_NORMAL, Thread::PRIORITY_HIGHEST}) {
    runnable->SetPriority(priority);
    EXPECT_EQ(runnable->GetPriority(), priority);
  }
  const FacePtr<Thread> self = Thread::GetSelf();
  SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_IDLE);
  EXPECT_EQ(self->GetPriority(), Thread::PRIORITY_LOWEST);
  SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL);
  EXPECT_EQ(self->GetPriority(), Thread::PRIORITY_HIGHEST);
  EXPECT_EQ(Caught([&] {
              TraceSetSink([](void*, const char*) {}, nullptr, 'i');
              self->SetPriority(static_cast<Thread::PriorityType>(2));
            }).GetLayerCount(),
            0u);
}

TEST(Thread, MisuseIsAsserted) {
  SetRegistryText(TRACE_KEY, " option_format", "%10!u!|%9!.0s!");
  SetRegistryText(TRACE_KEY, " option_target", "C:\\Windows\\Temp\\misuse.log");
  SetRegistryText(TRACE_KEY, " option_autoassert", "i");
  EXPECT_EQ(RunProgram({Sibling("thread_program"), "misuse"}).status, 0);
  const std::pair<int, const char*> assertions[] = {
      {102, "!rIdent.IsEmpty()"},
      {117, "!rIdent.IsEmpty()"},
      {188, "msRegistrar.find(npSelf) == msRegistrar.end()"},
      {216, "msRegistrar.erase(Thread::GetSelf().Get())"},
      {535, "mhInterrupt != 0"},
      {536, "::ResetEvent(mhInterrupt)"},
      {361, "mhInterrupt != 0"},
      {362, "::SetEvent(mhInterrupt)"},
      {368, "mhThread"},
      {373, "::WaitForSingleObject(mhThread, 0xFFFFFFFF) == ((((DWORD )0x00000000L) ) + 0 )"},
      {380, "mhThread"},
      {404, "mhThread"},
      {429, "forced assert"},
      {429, "forced assert"},
  };
  std::vector<std::string> lines;
  for (const auto& [line, text] : assertions)
    lines.push_back(std::to_string(line) + "|*** Assertion failure: " + text);
  EXPECT_EQ(ReadLog("misuse.log"), lines);
}

TEST(Thread, NowIsNeverAMark) {
  for (int i = 0; i < 1000; ++i) {
    const DWORD now = GetNow();
    ASSERT_NE(now, 0u);
    ASSERT_NE(now, 0xFFFFFFFFu);
  }
}

// A thousand foreign threads and as many runnables come and go: no handle stays behind.
TEST(Thread, ManyThreadsLeaveNothing) {
  Thread::GetSelf();
  const auto before = GetHandleCount();
  for (int i = 0; i < 500; ++i) {
    std::thread([] { Thread::SetData("x", FacePtr<BaseFace>::Adopt(new Plain)); }).join();
    auto runnable = TestRunnable::Make([] { Thread::GetSelf(); });
    runnable->CreateThread(true, i % 2 == 0);
    runnable->Wait();
  }
  EXPECT_EQ(GetHandleCount(), before);
}
