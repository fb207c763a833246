// Transactions of tools, and the check of a store.
#include <future>
#include <thread>

#include "registry/Registry.h"

using namespace registrytest;

namespace {

TEST(Transactions, AreSeenByOthersAsOneStep) {
  Key key(HKEY_LOCAL_MACHINE, "K");
  ASSERT_EQ(OrmRegBeginTransaction(HKEY_LOCAL_MACHINE, 0), 0);
  EXPECT_EQ(OrmRegBeginTransaction(key, 0), LSTATUS{ERROR_BUSY});
  Key open;
  ASSERT_EQ(
      RegCreateKeyExA(key, "Open", 0, nullptr, 0, KEY_ALL_ACCESS, NullAccessList(), open.Out(), nullptr), 0);
  EXPECT_EQ(SetNumber(key, "a", 1), 0);
  EXPECT_EQ(SetNumber(open, "b", 2), 0);
  EXPECT_EQ(GetNumber(key, "a"), 1u) << "its own thread sees it";
  std::thread([&] { EXPECT_EQ(GetNumber(key, "a"), 0xDEADBEEF); }).join();
  EXPECT_EQ(InChild([&] { return GetNumber(key, "a") == 0xDEADBEEF ? 0 : 1; }), 0);
  ASSERT_EQ(OrmRegCommitTransaction(HKEY_LOCAL_MACHINE), 0);
  EXPECT_EQ(GetNumber(key, "a"), 1u);
  EXPECT_EQ(InChild([&] { return GetNumber(key, "a") == 1 && GetNumber(open, "b") == 2 ? 0 : 1; }), 0);
  EXPECT_EQ(OrmRegCommitTransaction(HKEY_LOCAL_MACHINE), 1);
}

TEST(Transactions, LeaveNothingWhenAborted) {
  Key key(HKEY_CURRENT_USER, "K");
  ASSERT_EQ(SetNumber(key, "a", 1), 0);
  ASSERT_EQ(OrmRegBeginTransaction(key, 0), 0);
  EXPECT_EQ(SetNumber(key, "a", 2), 0);
  EXPECT_EQ(RegDeleteKeyA(HKEY_CURRENT_USER, "K\\missing"), 2);  // a failed call ends nothing
  Key made(key, "New");
  EXPECT_EQ(ValueNames(key).size(), 1u);
  ASSERT_EQ(OrmRegAbortTransaction(key), 0);
  EXPECT_EQ(GetNumber(key, "a"), 1u);
  EXPECT_EQ(SetNumber(made, "v", 1), LSTATUS{ERROR_KEY_DELETED});
}

TEST(Transactions, ThatOutgrowTheirEstimateFailAndLeaveTheRestUsable) {
  Key key(HKEY_CURRENT_USER, "K");
  ASSERT_EQ(OrmRegBeginTransaction(key, 0), 0);
  LSTATUS code = 0;
  for (int i = 0; i < 100 && code == 0; ++i)
    code = SetBytes(key, std::to_string(i), REG_BINARY, std::string(1 << 20, 'x'));
  EXPECT_EQ(code, LSTATUS{ERROR_NO_SYSTEM_RESOURCES});
  ASSERT_EQ(OrmRegAbortTransaction(key), 0);
  EXPECT_EQ(ValueNames(key).size(), 0u);
  ASSERT_EQ(OrmRegBeginTransaction(key, 100 << 20), 0);
  for (int i = 0; i < 100; ++i)
    ASSERT_EQ(SetBytes(key, std::to_string(i), REG_BINARY, std::string(1 << 20, 'x')), 0);
  ASSERT_EQ(OrmRegCommitTransaction(key), 0);
  EXPECT_EQ(ValueNames(key).size(), 100u);
}

TEST(Transactions, EndWithTheirThread) {
  Key user(HKEY_CURRENT_USER, "K"), machine(HKEY_LOCAL_MACHINE, "K");
  for (const HKEY key : {HKEY{user}, HKEY{machine}}) {
    std::thread([key] {
      ASSERT_EQ(OrmRegBeginTransaction(key, 0), 0);
      EXPECT_EQ(SetNumber(key, "a", 1), 0);
    }).join();
    // The thread may be followed by one of the same identity.
    std::thread([key] { EXPECT_EQ(OrmRegCommitTransaction(key), 1); }).join();
    EXPECT_EQ(GetNumber(key, "a"), 0xDEADBEEF);
    EXPECT_EQ(SetNumber(key, "b", 2), 0) << "nobody is locked out";
    EXPECT_EQ(InChild([key] { return SetNumber(key, "c", 3); }), 0);
  }
}

TEST(Transactions, StayTheParentsOverFork) {
  Key key(HKEY_CURRENT_USER, "K");
  ASSERT_EQ(OrmRegBeginTransaction(key, 0), 0);
  ASSERT_EQ(SetNumber(key, "a", 1), 0);
  EXPECT_EQ(
      InChild([&] { return OrmRegCommitTransaction(key) == 1 && GetNumber(key, "a") == 0xDEADBEEF ? 0 : 1; }),
      0);
  ASSERT_EQ(OrmRegCommitTransaction(key), 0);
  EXPECT_EQ(GetNumber(key, "a"), 1u);
}

// Neither a transaction of another thread nor a writer that waits for another process is waited for.
TEST(Transactions, OfOthersDoNotHoldUpAFork) {
  Key user(HKEY_CURRENT_USER, "K"), machine(HKEY_LOCAL_MACHINE, "K");
  ASSERT_EQ(SetNumber(user, "v", 1), 0);
  ASSERT_EQ(SetNumber(machine, "v", 1), 0);
  // Another process has the machine's store, and a thread of this one waits for it.
  int ready[2], end[2];
  ASSERT_EQ(pipe(ready), 0);
  ASSERT_EQ(pipe(end), 0);
  const pid_t other = StartForked([&]() -> int {
    close(end[1]);
    char c = 0;
    if (OrmRegBeginTransaction(HKEY_LOCAL_MACHINE, 0) != 0 || write(ready[1], "r", 1) != 1) return 1;
    return read(end[0], &c, 1) == 0 && OrmRegCommitTransaction(HKEY_LOCAL_MACHINE) == 0 ? 0 : 2;
  });
  char c = 0;
  ASSERT_EQ(read(ready[0], &c, 1), 1);
  std::thread waiting([&] { EXPECT_EQ(SetNumber(machine, "waited", 2), 0); });
  std::promise<void> begun, done;
  std::thread batch([&] {
    ASSERT_EQ(OrmRegBeginTransaction(user, 0), 0);
    EXPECT_EQ(SetNumber(user, "a", 3), 0);
    begun.set_value();
    done.get_future().wait();
    EXPECT_EQ(OrmRegCommitTransaction(user), 0);
  });
  begun.get_future().wait();
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(InChild([&] {
                if (OrmRegCommitTransaction(user) != 1) return 1;
                if (GetNumber(user, "a") != 0xDEADBEEF || GetNumber(user, "v") != 1) return 2;
                if (GetNumber(machine, "v") != 1) return 3;
                return InChild([&] { return GetNumber(user, "v") == 1 ? 0 : 4; });  // and its child
              }),
              0);
  }
  const pid_t writer = StartForked([&] {
    close(end[1]);
    return SetNumber(user, "child", 4) == 0 && SetNumber(machine, "child", 4) == 0 ? 0 : 1;
  });
  done.set_value();
  close(end[1]);
  batch.join();
  waiting.join();
  EXPECT_EQ(WaitFor(writer), 0);
  EXPECT_EQ(WaitFor(other), 0);
  EXPECT_EQ(GetNumber(user, "a"), 3u);
  EXPECT_EQ(GetNumber(user, "child"), 4u);
  EXPECT_EQ(GetNumber(machine, "waited"), 2u);
}

}  // namespace
