// Threads: the gate of a suspended one, its end before it began, exit codes, priorities, mutexes that it
// leaves.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "kernel/Handle.h"
#include "support/Child.h"
#include "support/FailingNew.h"
#include "win32/kernel.h"
#include "win32/user.h"

namespace {

using orm::test::Handle;

unsigned Count(void* counter) {
  ++*static_cast<std::atomic<int>*>(counter);
  return 42;
}

Handle Begin(OrmRuntimeThreadRoutine routine, void* parameter, unsigned flags = 0, unsigned* id = nullptr) {
  return Handle(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, routine, parameter, flags, id)));
}

TEST(Threads, SuspendedOnesRunNothingBeforeResume) {
  std::atomic<int> runs{0};
  unsigned id = 0;
  const Handle thread = Begin(&Count, &runs, CREATE_SUSPENDED, &id);
  ASSERT_TRUE(thread);
  EXPECT_NE(0u, id);
  EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(thread.get(), 5));
  EXPECT_EQ(0, runs);
  DWORD code = 0;
  EXPECT_TRUE(GetExitCodeThread(thread.get(), &code));
  EXPECT_EQ(STILL_ACTIVE, code);
  EXPECT_EQ(1u, ResumeThread(thread.get()));
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread.get(), INFINITE));
  EXPECT_EQ(0u, ResumeThread(thread.get()));
  EXPECT_TRUE(GetExitCodeThread(thread.get(), &code));
  EXPECT_EQ(42u, code);
  EXPECT_EQ(1, runs);
  EXPECT_FALSE(TerminateThread(thread.get(), 1));
  EXPECT_EQ(ERROR_ACCESS_DENIED, GetLastError());
}

TEST(Threads, OnesThatNeverBeganCanBeEnded) {
  std::atomic<int> runs{0};
  const Handle thread = Begin(&Count, &runs, CREATE_SUSPENDED);
  EXPECT_TRUE(TerminateThread(thread.get(), 7));
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread.get(), 0));
  EXPECT_EQ(0u, ResumeThread(thread.get()));
  DWORD code = 0;
  EXPECT_TRUE(GetExitCodeThread(thread.get(), &code));
  EXPECT_EQ(7u, code);
  EXPECT_EQ(0, runs);
}

// Resuming and ending a thread at once: one of the two wins, and the thread runs wholly or not at all.
TEST(Threads, ResumeAgainstTerminate) {
  for (int round = 0; round < 300; ++round) {
    std::atomic<int> runs{0};
    const Handle thread = Begin(&Count, &runs, CREATE_SUSPENDED);
    DWORD resumed = 0;
    std::thread resumer([&] { resumed = ResumeThread(thread.get()); });
    const BOOL ended = TerminateThread(thread.get(), 0);
    resumer.join();
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread.get(), INFINITE));
    EXPECT_NE(ended != FALSE, resumed == 1);
    EXPECT_EQ(ended ? 0 : 1, runs);
  }
}

TEST(Threads, ManyAtOnce) {
  constexpr int kThreads = 500;
  std::atomic<int> runs{0};
  std::vector<Handle> threads;
  std::vector<int> numbersOfCell(16);
  for (int i = 0; i < kThreads; ++i) {
    unsigned id = 0;
    threads.push_back(Begin(&Count, &runs, CREATE_SUSPENDED, &id));
    ++numbersOfCell[id % numbersOfCell.size()];
  }
  for (const int numbers : numbersOfCell) EXPECT_NEAR(kThreads / 16, numbers, 1);
  for (const Handle& thread : threads) ASSERT_EQ(1u, ResumeThread(thread.get()));
  for (const Handle& thread : threads) ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread.get(), INFINITE));
  EXPECT_EQ(kThreads, runs);
}

TEST(Threads, PrioritiesReadBackAndBadOnesAreRefused) {
  std::atomic<int> runs{0};
  const Handle thread = Begin(&Count, &runs, CREATE_SUSPENDED);
  EXPECT_EQ(THREAD_PRIORITY_NORMAL, GetThreadPriority(thread.get()));
  for (const int priority : {-2, -1, 0, 1, 2, THREAD_PRIORITY_IDLE, THREAD_PRIORITY_TIME_CRITICAL}) {
    EXPECT_TRUE(SetThreadPriority(thread.get(), priority));
    EXPECT_EQ(priority, GetThreadPriority(thread.get()));
  }
  EXPECT_FALSE(SetThreadPriority(thread.get(), 3));
  EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
  TerminateThread(thread.get(), 0);
  EXPECT_EQ(THREAD_PRIORITY_NORMAL, GetThreadPriority(GetCurrentThread()));
}

// A stack larger than the address space is what the system refuses under every sanitizer and user.
TEST(Threads, ASystemThatGivesNoThreadIsAnError) {
  DWORD before = 0;
  DWORD after = 0;
  GetProcessHandleCount(GetCurrentProcess(), &before);
  for (const SIZE_T stack : {SIZE_T{1} << 47, ~SIZE_T{0} - 4094, ~SIZE_T{0}}) {
    SetLastError(0);
    EXPECT_EQ(nullptr, CreateThread(
                           nullptr, stack, [](void*) -> DWORD { return 0; }, nullptr, 0, nullptr));
    EXPECT_EQ(ERROR_NOT_ENOUGH_MEMORY, GetLastError());
  }
  GetProcessHandleCount(GetCurrentProcess(), &after);
  EXPECT_EQ(before, after);
}

// A thread that the layer did not start is known from its first call on. Without memory that call fails, and
// the next one is like a first one.
TEST(Threads, UnknownOnesAreMadeKnownOrTold) {
  const Handle event(CreateEventA(nullptr, TRUE, TRUE, nullptr));
  const HANDLE objects[] = {event.get(), event.get()};
  const HANDLE process = GetCurrentProcess();
  const DWORD slot = TlsAlloc();
  const struct {
    const char* what;
    std::function<bool()> succeeds;
  } calls[] = {
      {"wait", [&] { return WaitForSingleObject(event.get(), 0) != WAIT_FAILED; }},
      {"several", [&] { return WaitForMultipleObjects(2, objects, FALSE, 0) != WAIT_FAILED; }},
      {"mutex", [&] { return static_cast<bool>(Handle(CreateMutexA(nullptr, TRUE, nullptr))); }},
      {"slot", [&] { return TlsSetValue(slot, event.get()) != FALSE; }},
      {"handle",
       [&] {
         Handle copy;
         return DuplicateHandle(process, GetCurrentThread(), process, copy.put(), 0, FALSE, 0) != FALSE;
       }},
      {"priority", [] { return SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_LOWEST) != FALSE; }},
      {"queue", [] { return PostMessageA(nullptr, WM_APP, 0, 0) != FALSE; }},
  };
  for (const auto& call : calls) {
    bool isRefused = true;
    for (unsigned at = 1; isRefused; ++at) {
      std::thread([&] {
        bool succeeds;
        DWORD error, number;
        {
          const test::FailingNew failing(at);
          succeeds = call.succeeds();
          error = GetLastError();
          isRefused = failing.HasFailed();
        }
        {
          const test::FailingNew failing(1);
          number = GetCurrentThreadId();
        }
        EXPECT_EQ(!isRefused, succeeds) << call.what << at;
        if (isRefused) {
          EXPECT_EQ(ERROR_NOT_ENOUGH_MEMORY, error) << call.what << at;
        }
        EXPECT_TRUE(call.succeeds()) << call.what << at;
        EXPECT_EQ(number, GetCurrentThreadId()) << call.what << at;
      }).join();
      ASSERT_LT(at, 20u) << call.what;
    }
  }
  TlsFree(slot);
}

TEST(Mutex, IsRecursiveOwnedAndHandedOn) {
  const Handle mutex(CreateMutexA(nullptr, TRUE, nullptr));
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex.get(), 0));
  std::thread([&] {
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(mutex.get(), 0));
    EXPECT_FALSE(ReleaseMutex(mutex.get()));
    EXPECT_EQ(ERROR_NOT_OWNER, GetLastError());
  }).join();
  std::thread waiter([&] {
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex.get(), INFINITE));
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
  });
  EXPECT_TRUE(ReleaseMutex(mutex.get()));
  EXPECT_TRUE(ReleaseMutex(mutex.get()));
  EXPECT_FALSE(ReleaseMutex(mutex.get()));
  waiter.join();
}

// A thread that ends while it owns a mutex leaves it as abandoned, to a waiter or to the next who asks,
// whether the layer made the thread or not, and also when the handle was closed meanwhile.
TEST(Mutex, PassesOnWhenItsOwnerEnds) {
  for (const char* name : {static_cast<const char*>(nullptr), "left by a thread"}) {
    Handle mutex(CreateMutexA(nullptr, FALSE, name));
    std::thread([&] {
      WaitForSingleObject(mutex.get(), INFINITE);
      WaitForSingleObject(mutex.get(), INFINITE);
    }).join();
    // The record ends before join returns.
    EXPECT_EQ(WAIT_ABANDONED, WaitForSingleObject(mutex.get(), INFINITE));
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
    EXPECT_FALSE(ReleaseMutex(mutex.get()));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex.get(), 0)) << "told of it twice";
    EXPECT_TRUE(ReleaseMutex(mutex.get()));

    const Handle thread = Begin(
        [](void* handle) {
          WaitForSingleObject(*static_cast<HANDLE*>(handle), INFINITE);
          CloseHandle(*static_cast<HANDLE*>(handle));
          return 0u;
        },
        mutex.put());
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread.get(), INFINITE));
    *mutex.put() = nullptr;
  }
}

// The record of the mutex used last does not keep a name alive, and does not stand for another mutex.
TEST(Mutex, SeveralOwnedAtOnceAndClosedBetween) {
  Handle first(CreateMutexA(nullptr, TRUE, "first"));
  Handle second(CreateMutexA(nullptr, TRUE, "second"));
  const Handle third(CreateMutexA(nullptr, TRUE, nullptr));
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(first.get(), 0));
  EXPECT_TRUE(ReleaseMutex(second.get()));
  EXPECT_TRUE(ReleaseMutex(first.get()));
  EXPECT_TRUE(ReleaseMutex(first.get()));
  EXPECT_FALSE(ReleaseMutex(first.get()));
  EXPECT_FALSE(ReleaseMutex(second.get()));
  std::thread([&] {
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(first.get(), 0));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(second.get(), 0));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(third.get(), 0));
    EXPECT_TRUE(ReleaseMutex(first.get()));
    EXPECT_TRUE(ReleaseMutex(second.get()));
  }).join();
  for (Handle* mutex : {&first, &second}) {
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex->get(), 0));
    EXPECT_TRUE(ReleaseMutex(mutex->get()));
    const HANDLE stale = mutex->get();
    mutex->reset();
    EXPECT_EQ(WAIT_FAILED, WaitForSingleObject(stale, 0));
  }
  EXPECT_EQ(nullptr, OpenMutexA(SYNCHRONIZE, FALSE, "first"));
  EXPECT_EQ(nullptr, OpenMutexA(SYNCHRONIZE, FALSE, "second"));
  EXPECT_TRUE(ReleaseMutex(third.get()));
}

// What a child made by fork finds of the threads that it does not have. The other thread may not have come to
// its wait at the first forks.
TEST(Threads, TheOthersHaveEndedInAForkedChild) {
  const Handle signal(CreateEventA(nullptr, FALSE, FALSE, nullptr));
  const Handle end(CreateEventA(nullptr, TRUE, FALSE, nullptr));
  const Handle ready(CreateEventA(nullptr, TRUE, FALSE, nullptr));
  const Handle owned(CreateMutexA(nullptr, FALSE, nullptr));
  const Handle own(CreateMutexA(nullptr, TRUE, nullptr));
  Handle other;
  id_t otherNativeId = 0;
  std::thread waiter([&] {
    EXPECT_TRUE(DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), other.put(), 0,
                                FALSE, DUPLICATE_SAME_ACCESS));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(owned.get(), 0));
    otherNativeId = static_cast<id_t>(gettid());
    SetEvent(ready.get());
    const HANDLE both[] = {signal.get(), end.get()};
    EXPECT_EQ(WAIT_OBJECT_0 + 1, WaitForMultipleObjects(2, both, FALSE, INFINITE));
    EXPECT_TRUE(ReleaseMutex(owned.get()));
  });
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(ready.get(), INFINITE));
  const auto priorities = [&] {
    return std::pair(getpriority(PRIO_PROCESS, static_cast<id_t>(gettid())),
                     getpriority(PRIO_PROCESS, otherNativeId));
  };
  const auto before = priorities();
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(0, test::Child::Forked([&] {
                   DWORD code = 1;
                   if (WaitForSingleObject(other.get(), 0) != WAIT_OBJECT_0) return 1;
                   if (!GetExitCodeThread(other.get(), &code) || code != 0) return 2;
                   if (WaitForSingleObject(owned.get(), 0) != WAIT_ABANDONED) return 3;
                   if (!ReleaseMutex(owned.get()) || !ReleaseMutex(own.get())) return 4;
                   if (!SetEvent(signal.get()) || WaitForSingleObject(signal.get(), 0) != WAIT_OBJECT_0)
                     return 5;
                   for (const HANDLE thread : {other.get(), GetCurrentThread()}) {
                     if (!SetThreadPriority(thread, THREAD_PRIORITY_LOWEST)) return 6;
                   }
                   return 0;
                 })
                     .Finish()
                     .status)
        << "round " << i;
  }
  EXPECT_EQ(before, priorities()) << "the child has changed its parent's";
  SetEvent(end.get());
  waiter.join();
}

TEST(Mutex, AClosedHandleNamesItNoMore) {
  const HANDLE closed = CreateMutexA(nullptr, FALSE, "used last");
  const Handle other(CreateMutexA(nullptr, FALSE, "used last"));
  ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(closed, 0));
  ASSERT_TRUE(ReleaseMutex(closed));
  ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(closed, 0));
  ASSERT_TRUE(CloseHandle(closed));
  EXPECT_FALSE(ReleaseMutex(closed));
  EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
  EXPECT_EQ(WAIT_FAILED, WaitForSingleObject(closed, 0));
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(other.get(), 0))
      << "owned by this thread, for the second time";
  EXPECT_TRUE(ReleaseMutex(other.get()));
  EXPECT_TRUE(ReleaseMutex(other.get()));
  EXPECT_FALSE(ReleaseMutex(other.get()));
}

TEST(Mutex, ExcludesUnderLoad) {
  for (const char* name : {static_cast<const char*>(nullptr), "under load"}) {
    const Handle mutex(CreateMutexA(nullptr, FALSE, name));
    int counter = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        for (int round = 0; round < 2000; ++round) {
          ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex.get(), INFINITE));
          ++counter;
          ASSERT_TRUE(ReleaseMutex(mutex.get()));
        }
      });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(8000, counter);
  }
}

}  // namespace
