// Transactions of tools, and the check of a store.
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

}  // namespace
