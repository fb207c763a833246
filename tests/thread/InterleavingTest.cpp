// Races between an owner, an interrupter and a body, in many interleavings: each side yields a random number
// of times before its step. What may happen is checked, and that nothing is left behind.
#include <gtest/gtest.h>

#include <random>
#include <thread>

#include "TestRunnable.h"

using namespace orm;
using namespace test;

namespace {

constexpr int ROUNDS = 1000;

class Dice {
 public:
  explicit Dice(unsigned seed) : mEngine(seed) {}
  int Roll() { return static_cast<int>(mEngine() % 4); }
  static void Yield(int times) {
    while (times-- > 0) std::this_thread::yield();
  }

 private:
  std::minstd_rand mEngine;
};

class NullInterrupter : public FaceObject<Thread::Interrupter> {
 public:
  void OnInterrupt(const FacePtr<Thread>&) override { std::this_thread::yield(); }
};

class Interleaving : public testing::Test {
 protected:
  void SetUp() override {
    Thread::GetSelf();
    mHandles = GetHandleCount();
  }
  void TearDown() override {
    EXPECT_EQ(TestRunnable::live, 0);
    EXPECT_EQ(GetHandleCount(), mHandles);
  }
  DWORD mHandles = 0;
  Dice mDice{20261124};
};

}  // namespace

TEST_F(Interleaving, StartAgainstInterrupt) {
  for (int i = 0; i < ROUNDS; ++i) {
    std::atomic<bool> initialised = false;
    const int before = mDice.Roll(), inside = mDice.Roll();
    auto runnable = TestRunnable::Make([] { Thread::Sleep(INFINITE); },
                                       [&, inside] {
                                         Dice::Yield(inside);
                                         initialised = true;
                                       });
    runnable->CreateThread(false, false);
    std::thread interrupter([&] {
      Dice::Yield(before);
      runnable->Interrupt();
    });
    const Error error = Caught([&] { runnable->Start(true); });
    interrupter.join();
    runnable->Wait();
    if (error.IsEmpty()) {
      EXPECT_TRUE(initialised);
    } else {
      EXPECT_TRUE(IsInterruption(error, "The thread was interrupted during initialization."));
    }
  }
}

TEST_F(Interleaving, InterruptAgainstWake) {
  for (int i = 0; i < ROUNDS; ++i) {
    Event event(Event::AUTOMATIC);
    bool woken = false, interrupted = false;
    auto runnable =
        TestRunnable::Make([&] { interrupted = !Caught([&] { woken = event.Wait(INFINITE); }).IsEmpty(); });
    runnable->CreateThread(true, true);
    std::thread setter([&, yields = mDice.Roll()] {
      Dice::Yield(yields);
      event.Set();
    });
    Dice::Yield(mDice.Roll());
    runnable->Interrupt();
    setter.join();
    runnable->Wait();
    EXPECT_NE(woken, interrupted);
  }
}

TEST_F(Interleaving, ANeverStartedThreadIsEnded) {
  for (int i = 0; i < ROUNDS; ++i) {
    auto runnable = TestRunnable::Make([] { ADD_FAILURE() << "must not run"; });
    runnable->CreateThread(false, false);
    Dice::Yield(mDice.Roll());
  }
}

TEST_F(Interleaving, TheLastReferenceIsDroppedOnTheThreadItself) {
  for (int i = 0; i < ROUNDS; ++i) {
    auto runnable = TestRunnable::Make([yields = mDice.Roll()] { Dice::Yield(yields); });
    runnable->CreateThread(true, i % 2 == 0);
    const HANDLE thread = runnable->DuplicateThread();
    Dice::Yield(mDice.Roll());
    runnable.Release();
    if (thread) {
      WaitForSingleObject(thread, INFINITE);
      CloseHandle(thread);
    }
  }
}

TEST_F(Interleaving, AnInterrupterUnregistersWhileItIsCalled) {
  for (int i = 0; i < ROUNDS; ++i) {
    auto runnable = TestRunnable::Make([yields = mDice.Roll()] {
      auto cookie = Thread::RegisterInterrupter(FacePtr<Thread::Interrupter>::Adopt(new NullInterrupter));
      Dice::Yield(yields);
      cookie.Release();
    });
    runnable->CreateThread(true, false);
    Dice::Yield(mDice.Roll());
    runnable->Interrupt();
    runnable->Wait();
  }
}

TEST_F(Interleaving, AThousandThreadsAtOnce) {
  constexpr int COUNT = 1000;
  Event go(Event::MANUAL);
  std::atomic<int> ran = 0;
  std::vector<FacePtr<TestRunnable>> runnables;
  for (int i = 0; i < COUNT; ++i) {
    runnables.push_back(TestRunnable::Make([&] {
      go.Wait(INFINITE);
      ++ran;
    }));
    runnables.back()->CreateThread(true, false);
  }
  go.Set();
  for (auto& runnable : runnables) runnable->Wait();
  EXPECT_EQ(ran, COUNT);
}
