// Mutexes between processes: who owns them, alone and among other objects of a wait.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "kernel/Handle.h"
#include "kernel/NamedHelper.h"
#include "win32/kernel.h"

namespace {

using orm::test::Handle;
using namespace test;

TEST(Named, AMutexIsHandedOnByAnotherProcess) {
  Child child = Helper("hold-mutex", "handed");
  ASSERT_EQ("0", child.ReadLine());
  const Handle mutex(CreateMutexA(nullptr, TRUE, "handed"));
  EXPECT_EQ(ERROR_ALREADY_EXISTS, GetLastError());
  EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(mutex.get(), 0));
  EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(mutex.get(), 5));
  std::thread waiter([&] {
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex.get(), INFINITE));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex.get(), 0));
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
    EXPECT_FALSE(ReleaseMutex(mutex.get()));
  });
  child.WriteLine("");
  EXPECT_EQ("released", child.ReadLine());
  waiter.join();
}

// Nobody comes between the making of a mutex and its first owner.
TEST(Named, WhoMakesAMutexOwnsItFromItsBeginning) {
  Child child = Helper("snatch", "snatched");
  ASSERT_EQ("running", child.ReadLine());
  // How often it is made here and not there is up to the scheduler.
  for (int round = 0, made = 0; made < 200 && round < 20'000; ++round) {
    const Handle mutex(CreateMutexA(nullptr, TRUE, "snatched"));
    ASSERT_TRUE(mutex);
    const bool isMade = GetLastError() == ERROR_SUCCESS;
    made += isMade;
    ASSERT_EQ(isMade, ReleaseMutex(mutex.get()) != FALSE) << "round " << round;
  }
}

TEST(Named, AKilledOwnerLeavesTheMutexToTheNextWaiterOnce) {
  Child child = Helper("hold-mutex", "killed");
  ASSERT_EQ("0", child.ReadLine());
  const Handle mutex(OpenMutexA(SYNCHRONIZE, FALSE, "killed"));
  ASSERT_TRUE(mutex);
  std::thread waiter([&] {
    EXPECT_EQ(WAIT_ABANDONED, WaitForSingleObject(mutex.get(), INFINITE));
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
  });
  child.Kill();
  waiter.join();
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex.get(), 0));
  EXPECT_TRUE(ReleaseMutex(mutex.get()));
}

// Processes that are killed at any moment of locking and unlocking leave the mutex usable.
TEST(Named, KilledAtAnyMoment) {
  const Handle mutex(CreateMutexA(nullptr, FALSE, "hammer"));
  for (int round = 0; round < 20; ++round) {
    Child first = Helper("hammer", "hammer");
    Child second = Helper("hammer", "hammer");
    ASSERT_EQ("running", first.ReadLine());
    ASSERT_EQ("running", second.ReadLine());
    for (int i = 0; i < 50; ++i) {
      ASSERT_LE(WaitForSingleObject(mutex.get(), 60000), WAIT_ABANDONED);
      ReleaseMutex(mutex.get());
    }
    first.Kill();
    second.Kill();
    ASSERT_LE(WaitForSingleObject(mutex.get(), 60000), WAIT_ABANDONED) << "locked out after a kill";
    ReleaseMutex(mutex.get());
  }
}

// A named mutex among other objects, with and without the system's call for several words.
TEST(Named, AMutexTogetherWithOtherObjects) {
  for (const bool fallback : {false, true}) {
    if (fallback) setenv("ORM_WAIT_FALLBACK", "1", 1);
    Child child = Helper("hold-mutex", "together");
    ASSERT_EQ("0", child.ReadLine());
    const Handle mutex(OpenMutexA(SYNCHRONIZE, FALSE, "together"));
    const Handle event(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    const HANDLE objects[] = {event.get(), mutex.get()};
    EXPECT_EQ(WAIT_TIMEOUT, WaitForMultipleObjects(2, objects, FALSE, 5));
    std::thread setter([&] { SetEvent(event.get()); });
    EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(2, objects, FALSE, INFINITE));
    setter.join();
    std::thread killer([&] { child.Kill(); });
    EXPECT_EQ(WAIT_ABANDONED_0 + 1, WaitForMultipleObjects(2, objects, FALSE, INFINITE));
    killer.join();
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
    SetEvent(event.get());
    EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(2, objects, FALSE, INFINITE));
    EXPECT_FALSE(ReleaseMutex(mutex.get())) << "an object behind the first was taken";
  }
}

// The event ends the wait while the owner of the mutex ends: whoever takes the mutex next is told of that.
TEST(Named, AWaitThatIsOverLeavesAMutexAbandoned) {
  const Handle mutex(CreateMutexA(nullptr, FALSE, "ended"));
  const Handle event(CreateEventA(nullptr, FALSE, FALSE, nullptr));
  const HANDLE objects[] = {event.get(), mutex.get()};
  for (int i = 0; i < 1000; ++i) {
    std::atomic<bool> owned{false}, go{false};
    std::thread owner([&] {
      WaitForSingleObject(mutex.get(), INFINITE);
      owned = true;
      while (!go) std::this_thread::yield();
      SetEvent(event.get());
    });
    while (!owned) std::this_thread::yield();
    go = true;
    const DWORD result = WaitForMultipleObjects(2, objects, FALSE, INFINITE);
    owner.join();
    ASSERT_EQ(WAIT_OBJECT_0, result) << "round " << i;
    ASSERT_EQ(WAIT_ABANDONED, WaitForSingleObject(mutex.get(), INFINITE)) << "round " << i;
    ReleaseMutex(mutex.get());
  }
}

// Two mutexes are released one after the other while a wait names both. Those between them make a look long.
TEST(Named, LowestIndexWinsWhileMutexesAreBeingReleased) {
  constexpr int kRounds = 500;
  constexpr DWORD kMutexes = 50;  // the thread sanitizer knows no thread with 64 locks
  for (const DWORD milliseconds : {DWORD{0}, DWORD{INFINITE}}) {
    std::vector<Handle> mutexes;
    std::vector<HANDLE> raw;
    for (DWORD i = 0; i < kMutexes; ++i) {
      mutexes.emplace_back(CreateMutexA(nullptr, FALSE, ("lowest" + std::to_string(i)).c_str()));
      raw.push_back(mutexes.back().get());
    }
    std::atomic<int> held{0}, wanted{0}, released{0};
    std::thread owner([&] {
      for (const HANDLE mutex : raw) WaitForSingleObject(mutex, INFINITE);
      for (int i = 1; i <= kRounds; ++i) {
        held = i;
        while (wanted != i) std::this_thread::yield();
        ReleaseMutex(raw.front());
        ReleaseMutex(raw.back());
        released = i;
        while (wanted != -i) std::this_thread::yield();
        WaitForSingleObject(raw.front(), INFINITE);
        WaitForSingleObject(raw.back(), INFINITE);
      }
    });
    int late = 0;
    for (int i = 1; i <= kRounds; ++i) {
      while (held != i) std::this_thread::yield();
      wanted = i;
      DWORD result;
      do {
        result = WaitForMultipleObjects(kMutexes, raw.data(), FALSE, milliseconds);
      } while (result == WAIT_TIMEOUT);
      late += result != WAIT_OBJECT_0;
      while (released != i) std::this_thread::yield();
      ReleaseMutex(raw[result - WAIT_OBJECT_0]);
      wanted = -i;
    }
    owner.join();
    EXPECT_EQ(0, late) << "time-out " << milliseconds;
  }
}

}  // namespace
