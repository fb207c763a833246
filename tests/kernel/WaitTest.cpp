// Waits: precedence, kinds of events, all-waits, time-outs, and that no signal is lost or given twice.
#include <gtest/gtest.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "kernel/Handle.h"
#include "win32/kernel.h"

namespace {

using orm::test::Handle;

Handle Event(bool manual, bool set = false) {
  return Handle(CreateEventA(nullptr, manual, set, nullptr));
}

std::vector<HANDLE> Raw(const std::vector<Handle>& handles) {
  std::vector<HANDLE> raw;
  for (const Handle& handle : handles) raw.push_back(handle.get());
  return raw;
}

// Whether the thread sleeps in a wait, so that it has begun to wait for all its objects.
bool IsAsleep(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/syscall");
  std::string call, word, operation, expected;
  file >> call >> word >> operation >> expected;
  return call == std::to_string(SYS_futex) &&
         std::stoul(operation, nullptr, 16) == (FUTEX_WAIT_BITSET | FUTEX_PRIVATE_FLAG) &&
         std::stoul(expected, nullptr, 16) == 0xFFFFFFFE;
}

TEST(Wait, LowestIndexWinsAndTheOthersStayAsTheyWere) {
  const std::vector<Handle> events = [] {
    std::vector<Handle> made;
    for (int i = 0; i < 4; ++i) made.push_back(Event(false));
    return made;
  }();
  const auto raw = Raw(events);
  SetEvent(raw[3]);
  SetEvent(raw[1]);
  SetEvent(raw[2]);
  EXPECT_EQ(WAIT_OBJECT_0 + 1, WaitForMultipleObjects(4, raw.data(), FALSE, 0));
  EXPECT_EQ(WAIT_OBJECT_0 + 2, WaitForMultipleObjects(4, raw.data(), FALSE, INFINITE));
  EXPECT_EQ(WAIT_OBJECT_0 + 3, WaitForMultipleObjects(4, raw.data(), FALSE, 0));
  EXPECT_EQ(WAIT_TIMEOUT, WaitForMultipleObjects(4, raw.data(), FALSE, 0));
}

// Two objects are signalled one after the other while a wait that names both begins: whenever it sees the
// second, it must see the first. The objects between them make the beginning long.
TEST(Wait, LowestIndexWinsWhileObjectsAreBeingSignalled) {
  constexpr int kRounds = 500;
  for (const DWORD milliseconds : {DWORD{0}, DWORD{INFINITE}}) {
    std::vector<Handle> events;
    for (DWORD i = 0; i < MAXIMUM_WAIT_OBJECTS; ++i) events.push_back(Event(true));
    const auto raw = Raw(events);
    std::atomic<int> round{0}, done{0};
    std::thread setter([&] {
      for (int i = 1; i <= kRounds; ++i) {
        while (round.load() != i) std::this_thread::yield();
        SetEvent(raw.front());
        SetEvent(raw.back());
        done = i;
      }
    });
    int late = 0;
    for (int i = 1; i <= kRounds; ++i) {
      round = i;
      DWORD result;
      do {
        result = WaitForMultipleObjects(MAXIMUM_WAIT_OBJECTS, raw.data(), FALSE, milliseconds);
      } while (result == WAIT_TIMEOUT);
      late += result != WAIT_OBJECT_0;
      while (done.load() != i) std::this_thread::yield();
      ResetEvent(raw.front());
      ResetEvent(raw.back());
    }
    setter.join();
    EXPECT_EQ(0, late) << "time-out " << milliseconds;
  }
}

TEST(Wait, ManualEventsStaySignalledAutomaticOnesAreTaken) {
  const Handle manual = Event(true, true);
  const Handle automatic = Event(false, true);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(manual.get(), 0));
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(automatic.get(), 0));
  EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(automatic.get(), 1));
  EXPECT_TRUE(ResetEvent(manual.get()));
  EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(manual.get(), 0));
}

TEST(Wait, RefusesWhatCannotBeWaitedFor) {
  const Handle event = Event(true, true);
  const Handle section(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, nullptr));
  const HANDLE withUnknown[] = {event.get(), reinterpret_cast<HANDLE>(0x7777000)};
  const HANDLE twice[] = {event.get(), event.get()};
  struct {
    DWORD result, error;
  } cases[] = {
      {WaitForSingleObject(nullptr, 0), ERROR_INVALID_HANDLE},
      {WaitForSingleObject(section.get(), 0), ERROR_INVALID_HANDLE},
      // The unknown handle is noticed even behind a signalled object.
      {WaitForMultipleObjects(2, withUnknown, FALSE, 0), ERROR_INVALID_HANDLE},
  };
  for (const auto& one : cases) EXPECT_EQ(WAIT_FAILED, one.result);
  EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
  EXPECT_EQ(WAIT_FAILED, WaitForMultipleObjects(2, twice, TRUE, 0));
  EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
  EXPECT_EQ(WAIT_FAILED, WaitForMultipleObjects(0, twice, FALSE, 0));
  EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
  EXPECT_EQ(WAIT_FAILED, WaitForMultipleObjects(65, twice, FALSE, 0));
}

TEST(Wait, AnObjectWhoseHandleIsClosedWhileItIsWaitedForStillEndsTheWait) {
  Handle event = Event(false);
  Handle second;
  ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), event.get(), GetCurrentProcess(), second.put(), 0, FALSE,
                              DUPLICATE_SAME_ACCESS));
  std::atomic<bool> waiting{false};
  const HANDLE raw = event.get();
  std::thread waiter([&] {
    waiting = true;
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(raw, INFINITE));
  });
  while (!waiting) SwitchToThread();
  SwitchToThread();
  SetEvent(second.get());
  waiter.join();
  event.reset();
  EXPECT_FALSE(SetEvent(raw));
}

// Every signal of an automatic event reaches exactly one of many waiters, some of which give up.
TEST(Wait, SignalsAreNeitherLostNorGivenTwice) {
  constexpr int kSignals = 2000;
  constexpr int kWaiters = 4;
  const Handle first = Event(false);
  const Handle second = Event(false);
  const Handle stop = Event(true);
  const Handle taken = Event(false);
  std::atomic<int> received{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < kWaiters; ++i) {
    waiters.emplace_back([&, i] {
      const HANDLE objects[] = {first.get(), second.get(), stop.get()};
      for (;;) {
        const DWORD result = WaitForMultipleObjects(3, objects, FALSE, i % 2 == 0 ? INFINITE : 1);
        if (result == WAIT_OBJECT_0 + 2) return;
        if (result == WAIT_TIMEOUT) continue;
        ++received;
        SetEvent(taken.get());
      }
    });
  }
  for (int i = 0; i < kSignals; ++i) {
    SetEvent(i % 2 == 0 ? first.get() : second.get());
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(taken.get(), 60000)) << "signal " << i << " was lost";
  }
  SetEvent(stop.get());
  for (auto& waiter : waiters) waiter.join();
  EXPECT_EQ(kSignals, received);
}

TEST(Wait, OneManualEventReleasesEveryWaiter) {
  constexpr int kWaiters = 40;  // more than one batch of wakes
  const Handle go = Event(true);
  std::atomic<int> ready{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < kWaiters; ++i) {
    waiters.emplace_back([&] {
      ++ready;
      EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(go.get(), INFINITE));
    });
  }
  while (ready != kWaiters) SwitchToThread();
  SetEvent(go.get());
  for (auto& waiter : waiters) waiter.join();
}

// Setting and resetting are one step each: a reset that comes while the waiters are being released finds them
// all released or none.
TEST(Wait, AResetTakesNoWaiterFromAManualEventThatIsSet) {
  constexpr int kRounds = 20;
  constexpr int kWaiters = 60;
  const Handle go = Event(true);
  bool lost = false;
  for (int round = 0; round < kRounds && !lost; ++round) {
    std::atomic<pid_t> ids[kWaiters]{};
    std::atomic<int> released{0};
    std::vector<std::thread> waiters;
    for (auto& id : ids) {
      waiters.emplace_back([&] {
        id = gettid();
        released += WaitForSingleObject(go.get(), 20000) == WAIT_OBJECT_0;
      });
    }
    for (const auto& id : ids) {
      while (id == 0 || !IsAsleep(id)) SwitchToThread();
    }
    std::atomic<bool> setting{false}, done{false};
    std::thread resetter([&] {
      while (!setting) continue;
      while (!done) ResetEvent(go.get());
    });
    setting = true;
    SetEvent(go.get());
    done = true;
    resetter.join();
    ResetEvent(go.get());
    for (auto& waiter : waiters) waiter.join();
    EXPECT_EQ(kWaiters, released) << "round " << round;
    lost = released != kWaiters;
  }
}

TEST(Wait, AllWaitTakesNothingUntilEverythingIsThere) {
  const Handle automatic = Event(false);
  const Handle manual = Event(true);
  const Handle mutex(CreateMutexA(nullptr, FALSE, nullptr));
  const HANDLE objects[] = {automatic.get(), manual.get(), mutex.get()};
  SetEvent(automatic.get());
  EXPECT_EQ(WAIT_TIMEOUT, WaitForMultipleObjects(3, objects, TRUE, 1));
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(automatic.get(), 0)) << "the all-wait kept what it found";
  const Handle done = Event(false);
  std::thread waiter([&] {
    EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(3, objects, TRUE, INFINITE));
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
    SetEvent(done.get());
  });
  SetEvent(manual.get());
  EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(done.get(), 1));
  SetEvent(automatic.get());
  waiter.join();
  EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(automatic.get(), 0));
}

TEST(Wait, SixtyFourObjectsSetByAnotherThread) {
  std::vector<Handle> events;
  for (DWORD i = 0; i < MAXIMUM_WAIT_OBJECTS; ++i) events.push_back(Event(false));
  const auto raw = Raw(events);
  const Handle taken = Event(false);
  std::thread setter([&] {
    for (const HANDLE event : raw) {
      SetEvent(event);
      WaitForSingleObject(taken.get(), INFINITE);
    }
  });
  for (DWORD i = 0; i < MAXIMUM_WAIT_OBJECTS; ++i) {
    EXPECT_EQ(WAIT_OBJECT_0 + i, WaitForMultipleObjects(MAXIMUM_WAIT_OBJECTS, raw.data(), FALSE, INFINITE));
    SetEvent(taken.get());
  }
  setter.join();
}

}  // namespace
