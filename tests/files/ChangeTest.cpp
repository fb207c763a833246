// Change notifications: what signals them, what does not, and that nothing is missed.
#include <sys/resource.h>

#include <filesystem>
#include <thread>
#include <vector>

#include "files/Files.h"
#include "support/ScarceMemory.h"

using namespace filestest;

namespace {

constexpr DWORD libraryFilter =
    FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE;

class Changes : public Files {
 protected:
  void TearDown() override {
    EXPECT_TRUE(change == INVALID_HANDLE_VALUE || FindCloseChangeNotification(change));
  }
  void Watch(DWORD filter = libraryFilter, bool subtree = false) {
    change = FindFirstChangeNotificationA(folder.c_str(), subtree, filter);
    ASSERT_NE(change, INVALID_HANDLE_VALUE);
  }
  [[nodiscard]] bool IsSignalled() const { return WaitForSingleObject(change, 0) == WAIT_OBJECT_0; }

  HANDLE change = INVALID_HANDLE_VALUE;
};

TEST_F(Changes, EachKindSignalsUntilItIsRearmed) {
  Put("there", "content");
  ASSERT_EQ(mkdir(Disk("sub").c_str(), 0755), 0);
  Watch();
  EXPECT_FALSE(IsSignalled());
  const struct {
    const char* what;
    std::function<void()> act;
    bool signals;
  } table[] = {
      {"create", [&] { Put("new"); }, true},
      {"write", [&] { Put("there", "other"); }, true},
      {"append", [&] { std::ofstream(Disk("there"), std::ios::app) << "more"; }, true},
      {"truncate", [&] { ASSERT_EQ(truncate(Disk("there").c_str(), 1), 0); }, true},
      {"touch", [&] { ASSERT_EQ(utimensat(AT_FDCWD, Disk("there").c_str(), nullptr, 0), 0); }, true},
      {"rename over", [&] { ASSERT_EQ(rename(Disk("new").c_str(), Disk("there").c_str()), 0); }, true},
      {"delete", [&] { ASSERT_EQ(unlink(Disk("there").c_str()), 0); }, true},
      {"moved in",
       [&] {
         std::ofstream(disk + "/../outside") << "x";
         ASSERT_EQ(rename((disk + "/../outside").c_str(), Disk("in").c_str()), 0);
       },
       true},
      {"read", [&] { EXPECT_EQ(Get("in"), "x"); }, false},
      {"below", [&] { Put("sub/f"); }, false},
      {"make a folder", [&] { ASSERT_EQ(mkdir(Disk("folder").c_str(), 0755), 0); }, false},
      {"remove a folder", [&] { ASSERT_EQ(rmdir(Disk("folder").c_str()), 0); }, false},
  };
  for (const auto& row : table) {
    row.act();
    EXPECT_EQ(IsSignalled(), row.signals) << row.what;
    EXPECT_EQ(IsSignalled(), row.signals) << row.what << ": it stays so";
    EXPECT_TRUE(FindNextChangeNotification(change)) << row.what;
    EXPECT_FALSE(IsSignalled()) << row.what << ": one signal for what was seen";
  }
}

TEST_F(Changes, NothingIsMissedBetweenTheLookAndTheRearming) {
  Watch();
  Put("a");
  ASSERT_TRUE(IsSignalled());
  Put("b");  // after the look
  ASSERT_TRUE(FindNextChangeNotification(change));
  EXPECT_TRUE(IsSignalled());
}

TEST_F(Changes, WakeWhoWaits) {
  Watch();
  const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  std::thread writer([&] {
    Put("a");
    // The second wait is ended by the event, the change being the other object.
  });
  EXPECT_EQ(WaitForSingleObject(change, INFINITE), WAIT_OBJECT_0);
  writer.join();
  while (IsSignalled()) ASSERT_TRUE(FindNextChangeNotification(change));
  std::thread setter([&] { SetEvent(event); });
  const HANDLE both[] = {change, event};
  EXPECT_EQ(WaitForMultipleObjects(2, both, FALSE, INFINITE), WAIT_OBJECT_0 + 1);
  setter.join();
  std::thread other([&] { Put("b"); });
  ResetEvent(event);
  EXPECT_EQ(WaitForMultipleObjects(2, both, FALSE, INFINITE), WAIT_OBJECT_0);
  other.join();
  CloseHandle(event);
}

TEST_F(Changes, ALostFolderIsToldAndCannotBeRearmed) {
  ASSERT_EQ(mkdir(Disk("lib").c_str(), 0755), 0);
  for (const bool deletes : {true, false}) {
    const HANDLE watch = FindFirstChangeNotificationA(Name("lib").c_str(), FALSE, libraryFilter);
    ASSERT_NE(watch, INVALID_HANDLE_VALUE);
    ASSERT_EQ(deletes ? rmdir(Disk("lib").c_str()) : rename(Disk("lib").c_str(), Disk("other").c_str()), 0);
    EXPECT_EQ(WaitForSingleObject(watch, 0), WAIT_OBJECT_0);
    EXPECT_FALSE(FindNextChangeNotification(watch));
    EXPECT_EQ(GetLastError(), 5u);
    EXPECT_TRUE(FindCloseChangeNotification(watch));
    EXPECT_EQ(FindFirstChangeNotificationA(Name("lib").c_str(), FALSE, libraryFilter), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), 2u);
    ASSERT_EQ(mkdir(Disk("lib").c_str(), 0755), 0);
  }
  Put("file");
  EXPECT_EQ(FindFirstChangeNotificationA(Name("file").c_str(), FALSE, libraryFilter), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), 267u);
  EXPECT_EQ(FindFirstChangeNotificationA(folder.c_str(), FALSE, 0), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), 87u);
}

TEST_F(Changes, ASubtreeIsWatchedAsItGrows) {
  ASSERT_EQ(mkdir(Disk("one").c_str(), 0755), 0);
  Watch(FILE_NOTIFY_CHANGE_FILE_NAME, true);
  Put("one/f");
  EXPECT_TRUE(IsSignalled());
  ASSERT_TRUE(FindNextChangeNotification(change));
  ASSERT_EQ(mkdir(Disk("one/two").c_str(), 0755), 0);
  EXPECT_TRUE(IsSignalled()) << "files may have come with it";
  ASSERT_TRUE(FindNextChangeNotification(change));
  Put("one/two/f");
  EXPECT_TRUE(IsSignalled());
}

// More happens than the system keeps for a reader; a new folder is among what it forgets.
TEST_F(Changes, LostOnesAreMadeUpFor) {
  size_t kept = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> kept;
  if (kept == 0 || kept > 100'000) GTEST_SKIP() << "the system keeps too many";
  Watch(FILE_NOTIFY_CHANGE_FILE_NAME, true);
  for (size_t i = 0; i <= kept / 2; ++i) {
    Put("f");
    ASSERT_EQ(unlink(Disk("f").c_str()), 0);
  }
  ASSERT_EQ(mkdir(Disk("late").c_str(), 0755), 0);
  EXPECT_TRUE(IsSignalled());
  ASSERT_TRUE(FindNextChangeNotification(change));
  EXPECT_FALSE(IsSignalled());
  Put("late/f");
  EXPECT_TRUE(IsSignalled());
}

TEST_F(Changes, AChildDoesNotTakeItsParentsChanges) {
  Watch();
  Put("a");
  EXPECT_EQ(InChild([&]() -> int {
              if (!IsSignalled() || !FindNextChangeNotification(change))
                return 1;  // it cannot know what came before
              if (IsSignalled()) return 2;
              Put("b");
              return IsSignalled() ? 0 : 3;
            }),
            0);
  EXPECT_TRUE(IsSignalled());
}

// Whatever cannot be remembered counts as a change, so that nobody relies on a watch that sees less.
TEST_F(Changes, NoneIsLostForWantOfMemory) {
  ASSERT_EQ(mkdir(Disk("below").c_str(), 0755), 0);
  Watch(FILE_NOTIFY_CHANGE_FILE_NAME, true);
  EXPECT_FALSE(IsSignalled());  // which makes what a thread needs for its waits
  bool isRefused = false;
  for (long at = 0, more = 1; more != 0; ++at) {
    ASSERT_EQ(mkdir(Disk("new").c_str(), 0755), 0);
    more = test::RefuseAllocation(
        at, [&] { EXPECT_TRUE(IsSignalled()) << at; }, isRefused);
    EXPECT_FALSE(isRefused) << at;
    FindCloseChangeNotification(change);
    ASSERT_EQ(rmdir(Disk("new").c_str()), 0);
    Watch(FILE_NOTIFY_CHANGE_FILE_NAME, true);
  }
  for (long at = 0, more = 1; more != 0; ++at) {
    const int result = InChild([&] {
      bool isSignalled = false;
      const bool wasAsked = test::RefuseAllocation(
          at, [&] { isSignalled = IsSignalled(); }, isRefused);
      return (isSignalled ? 0 : 1) | (isRefused ? 2 : 0) | (wasAsked ? 4 : 0);
    });
    EXPECT_EQ(result & ~4, 0) << "a child that watches anew, allocation " << at;
    more = result & 4;
  }
}

TEST_F(Changes, OneChangeWakesAllWhoWaitForIt) {
  Watch();
  const HANDLE other = FindFirstChangeNotificationA(folder.c_str(), FALSE, libraryFilter);
  const HANDLE never = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  for (int round = 0; round < 50; ++round) {
    std::atomic<int> woken{0};
    std::vector<std::thread> waiters;
    for (const HANDLE handle : {change, change, other, other}) {
      waiters.emplace_back([&, handle] {
        const HANDLE both[] = {never, handle};
        woken += WaitForMultipleObjects(2, both, FALSE, 60000) == WAIT_OBJECT_0 + 1;
      });
    }
    Put("a");
    for (std::thread& waiter : waiters) waiter.join();
    ASSERT_EQ(woken, 4) << "round " << round;
    for (const HANDLE handle : {change, other}) {
      while (WaitForSingleObject(handle, 0) == WAIT_OBJECT_0) ASSERT_TRUE(FindNextChangeNotification(handle));
    }
  }
  CloseHandle(never);
  EXPECT_TRUE(FindCloseChangeNotification(other));
}

TEST_F(Changes, NotificationsOfOneFolderAreIndependent) {
  Put("there");
  Watch(FILE_NOTIFY_CHANGE_FILE_NAME);
  const HANDLE content = FindFirstChangeNotificationA(folder.c_str(), FALSE, FILE_NOTIFY_CHANGE_SIZE);
  ASSERT_NE(content, INVALID_HANDLE_VALUE);
  const auto isContentSignalled = [&] { return WaitForSingleObject(content, 0) == WAIT_OBJECT_0; };
  std::ofstream(Disk("there"), std::ios::app) << "more";
  EXPECT_FALSE(IsSignalled()) << "each by its own filter";
  EXPECT_TRUE(isContentSignalled());
  ASSERT_TRUE(FindNextChangeNotification(content));
  Put("a");
  ASSERT_TRUE(IsSignalled());
  Put("b");
  EXPECT_TRUE(isContentSignalled()) << "which sees what the first one has not looked at";
  ASSERT_TRUE(FindNextChangeNotification(change));
  EXPECT_TRUE(IsSignalled()) << "for the second";
  EXPECT_TRUE(FindCloseChangeNotification(content));
  ASSERT_TRUE(FindNextChangeNotification(change));
  Put("c");
  EXPECT_TRUE(IsSignalled()) << "when the other is gone";
}

TEST_F(Changes, AllTakeOneDescriptorAndTellWhenThereIsNone) {
  const auto descriptors = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  };
  Watch();
  const auto before = descriptors();
  std::vector<HANDLE> changes;
  for (int i = 0; i < 300; ++i) {
    const std::string name = "f" + std::to_string(i);
    ASSERT_EQ(mkdir(Disk(name).c_str(), 0755), 0);
    changes.push_back(FindFirstChangeNotificationA(Name(name).c_str(), FALSE, libraryFilter));
    ASSERT_NE(changes.back(), INVALID_HANDLE_VALUE) << i << ": " << GetLastError();
  }
  EXPECT_EQ(descriptors(), before);
  Put("f299/new");
  EXPECT_EQ(WaitForSingleObject(changes[298], 0), WAIT_TIMEOUT);
  EXPECT_EQ(WaitForSingleObject(changes[299], 0), WAIT_OBJECT_0);
  for (const HANDLE handle : changes) EXPECT_TRUE(FindCloseChangeNotification(handle));
  EXPECT_EQ(InChild([&]() -> int {
              const rlimit none{3, 3};
              if (setrlimit(RLIMIT_NOFILE, &none) != 0) return 1;
              if (FindFirstChangeNotificationA(folder.c_str(), FALSE, libraryFilter) != INVALID_HANDLE_VALUE)
                return 2;
              return GetLastError() == ERROR_NO_SYSTEM_RESOURCES ? 0 : 3;
            }),
            0);
}

TEST_F(Changes, NoneIsMissedUnderLoad) {
  Watch();
  std::thread writer([&] {
    for (int i = 0; i < 2000; ++i) Put("f" + std::to_string(i % 50));
    Put("last");
  });
  // What counts is that the end is seen, however many changes were folded into one signal.
  while (!Exists("last")) {
    ASSERT_EQ(WaitForSingleObject(change, INFINITE), WAIT_OBJECT_0);
    ASSERT_TRUE(FindNextChangeNotification(change));
  }
  writer.join();
}

}  // namespace
