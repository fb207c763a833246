// The handle table, thread-local slots, critical sections and what else the process has one of.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "kernel/Handle.h"
#include "win32/kernel.h"
#include "win32/memoryx.h"
#include "win32/modules.h"

namespace {

using orm::test::Handle;

DWORD HandleCount() {
  DWORD count = 0;
  GetProcessHandleCount(GetCurrentProcess(), &count);
  return count;
}

TEST(Handles, ClosedOnesNameNothingEvenAfterTheirSlotIsUsedAgain) {
  const DWORD before = HandleCount();
  const HANDLE stale = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  ASSERT_TRUE(CloseHandle(stale));
  const Handle next(CreateEventA(nullptr, TRUE, TRUE, nullptr));
  EXPECT_NE(stale, next.get());
  SetLastError(0);
  EXPECT_FALSE(CloseHandle(stale));
  EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
  EXPECT_FALSE(SetEvent(stale));
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(next.get(), 0));
  EXPECT_EQ(before + 1, HandleCount());
}

TEST(Handles, UnknownValuesAndWrongKindsAreRefused) {
  const Handle mutex(CreateMutexA(nullptr, FALSE, nullptr));
  for (const uintptr_t value :
       {uintptr_t{0}, uintptr_t{1}, uintptr_t{0xFFFFFFFC}, ~uintptr_t{0}, ~uintptr_t{0} << 3}) {
    SetLastError(0);
    EXPECT_FALSE(CloseHandle(reinterpret_cast<HANDLE>(value))) << value;
    EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError()) << value;
  }
  SetLastError(0);
  EXPECT_FALSE(SetEvent(mutex.get()));
  EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
  EXPECT_EQ(THREAD_PRIORITY_ERROR_RETURN, GetThreadPriority(mutex.get()));
}

TEST(Handles, ADuplicateKeepsTheObject) {
  Handle event(CreateEventA(nullptr, TRUE, FALSE, nullptr));
  Handle copy;
  ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), event.get(), GetCurrentProcess(), copy.put(), 0, FALSE,
                              DUPLICATE_SAME_ACCESS));
  SetEvent(event.get());
  event.reset();
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(copy.get(), 0));
  Handle thread;
  ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), thread.put(), 0,
                              FALSE, DUPLICATE_SAME_ACCESS));
  EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(thread.get(), 0));
  EXPECT_TRUE(CloseHandle(GetCurrentThread()));
}

// Threads that set, wait for, and close the same few handles at random never meet another object's.
TEST(Handles, UseAgainstCloseIsSafe) {
  constexpr int kRounds = 300;
  std::atomic<HANDLE> shared{nullptr};
  std::atomic<bool> stop{false};
  std::vector<std::thread> users;
  for (int i = 0; i < 3; ++i) {
    users.emplace_back([&] {
      while (!stop) {
        const HANDLE handle = shared;
        if (!SetEvent(handle)) {
          EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
        }
        WaitForSingleObject(handle, 0);
      }
    });
  }
  for (int i = 0; i < kRounds; ++i) {
    const HANDLE handle = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    shared = handle;
    SwitchToThread();
    ASSERT_TRUE(CloseHandle(handle));
    ASSERT_FALSE(CloseHandle(handle));
  }
  stop = true;
  for (auto& user : users) user.join();
}

TEST(Tls, SlotsAreEmptyAtFirstAndAfterReuseInEveryThread) {
  std::vector<DWORD> indexes;
  for (int i = 0; i < 100; ++i) indexes.push_back(TlsAlloc());  // past the slots that lie in the record
  const DWORD index = indexes.back();
  const Handle written(CreateEventA(nullptr, FALSE, FALSE, nullptr));
  const Handle freed(CreateEventA(nullptr, FALSE, FALSE, nullptr));
  int here, there;
  ASSERT_TRUE(TlsSetValue(index, &here));
  std::thread other([&] {
    EXPECT_EQ(nullptr, TlsGetValue(index));
    ASSERT_TRUE(TlsSetValue(index, &there));
    SetEvent(written.get());
    WaitForSingleObject(freed.get(), INFINITE);
    EXPECT_EQ(nullptr, TlsGetValue(index));
  });
  WaitForSingleObject(written.get(), INFINITE);
  SetLastError(7);
  EXPECT_EQ(&here, TlsGetValue(index));
  EXPECT_EQ(ERROR_SUCCESS, GetLastError());
  ASSERT_TRUE(TlsFree(index));
  EXPECT_EQ(nullptr, TlsGetValue(index));
  EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
  EXPECT_FALSE(TlsFree(index));
  EXPECT_EQ(index, TlsAlloc());
  SetEvent(freed.get());
  other.join();
  for (const DWORD used : indexes) EXPECT_TRUE(TlsFree(used));
}

TEST(Tls, RunsOutWithoutHarm) {
  std::vector<DWORD> indexes;
  DWORD index;
  while ((index = TlsAlloc()) != TLS_OUT_OF_INDEXES) indexes.push_back(index);
  EXPECT_GE(indexes.size(), 64u);
  for (const DWORD used : indexes) EXPECT_TRUE(TlsFree(used));
  EXPECT_NE(TLS_OUT_OF_INDEXES, index = TlsAlloc());
  TlsFree(index);
}

TEST(CriticalSection, IsRecursiveAndExclusive) {
  CRITICAL_SECTION section;
  InitializeCriticalSection(&section);
  int counter = 0;
  std::vector<std::thread> threads;
  EnterCriticalSection(&section);
  EXPECT_TRUE(TryEnterCriticalSection(&section));
  std::thread([&] { EXPECT_FALSE(TryEnterCriticalSection(&section)); }).join();
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 5000; ++round) {
        EnterCriticalSection(&section);
        EnterCriticalSection(&section);
        ++counter;
        LeaveCriticalSection(&section);
        LeaveCriticalSection(&section);
      }
    });
  }
  LeaveCriticalSection(&section);
  EXPECT_EQ(0, counter) << "one of two levels was left";
  LeaveCriticalSection(&section);
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(20000, counter);
  DeleteCriticalSection(&section);
}

TEST(Process, VirtualQueryFindsTheImageOfAnAddress) {
  MEMORY_BASIC_INFORMATION code, data, stack;
  static int variable;
  int local;
  ASSERT_NE(0u, VirtualQuery(reinterpret_cast<const void*>(&HandleCount), &code, sizeof(code)));
  ASSERT_NE(0u, VirtualQuery(&variable, &data, sizeof(data)));
  ASSERT_NE(0u, VirtualQuery(&local, &stack, sizeof(stack)));
  EXPECT_EQ(MEM_IMAGE, code.Type);
  EXPECT_EQ(code.AllocationBase, data.AllocationBase);
  EXPECT_EQ(MEM_PRIVATE, stack.Type);

  constexpr DWORD byAddress =
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  HMODULE module = nullptr;
  ASSERT_TRUE(GetModuleHandleExA(byAddress, reinterpret_cast<const char*>(&variable), &module));
  EXPECT_EQ(data.AllocationBase, static_cast<void*>(module));
  EXPECT_FALSE(GetModuleHandleExA(byAddress, reinterpret_cast<const char*>(&local), &module));
  EXPECT_EQ(ERROR_MOD_NOT_FOUND, GetLastError());
  EXPECT_FALSE(GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, "", &module)) << "would count";
  EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
}

TEST(Process, PopulatingPagesChangesNothing) {
  std::vector<char> bytes(100'000, 'x');
  SetLastError(77);
  OrmPopulatePages(bytes.data() + 1, bytes.size() - 1);
  OrmPopulatePages(nullptr, 4096);
  OrmPopulateHeap(SIZE_MAX);
  EXPECT_EQ(77u, GetLastError());
  EXPECT_EQ(std::vector<char>(100'000, 'x'), bytes);
}

}  // namespace
