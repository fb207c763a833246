// The shared block's bytes, and which records stay when room is short.
#include <gtest/gtest.h>

#include <string>

#include "GuardedBlock.h"

namespace {

using orm::Binary;
using orm::CacheBlock;
using orm::CacheKey;
using orm::String;

class CacheBlockTest : public testing::Test {
 protected:
  CacheBlockTest() { mMemory.GetBlock().Initialize(); }

  bool Store(const std::string& path, ULONGLONG stamp, size_t payload, ULONGLONG now) {
    const std::string bytes(payload, static_cast<char>(stamp));
    const Binary binary(bytes.data(), static_cast<unsigned>(bytes.size()));
    const bool stored = mMemory.GetBlock().Store(CacheKey(path.c_str()), stamp, binary, now);
    EXPECT_TRUE(mMemory.IsSound()) << path;
    return stored;
  }
  // Stamp of the record, 0 when it is not there.
  ULONGLONG Find(const std::string& path) const {
    const CacheBlock::Place place = mMemory.GetBlock().Find(CacheKey(path.c_str()));
    return place.found ? place.record.stamp : 0;
  }
  DWORD OffsetOf(const std::string& path) const {
    return mMemory.GetBlock().Find(CacheKey(path.c_str())).record.offset;
  }
  DWORD At(DWORD offset) const { return orm::CacheBytes(mMemory.GetBytes()).Load32(offset); }
  std::string Bytes(DWORD offset, DWORD size) const {
    return {reinterpret_cast<const char*>(mMemory.GetBytes()) + offset, size};
  }

  GuardedBlock mMemory;
};

TEST_F(CacheBlockTest, HasTheAgreedBytes) {
  using namespace std::string_literals;
  EXPECT_EQ(Bytes(0, 32),
            "\x41\0\0\0\x85\xA0\x06\x1D\x8F\x41\x46\x8C\0\0\1\0\0\0\0\0\x20\x0C\0\0\0\1\0\0"
            "\xFF\xFF\xFF\xFF"s);

  ASSERT_TRUE(Store("C:\\AB.dll", 0x0102030405060708, 4, 0x1112131415161718));
  EXPECT_EQ(Bytes(28, 4), "\0\0\0\0"s);
  // Slot 0: the record lies at 3104 and owns 48 bytes; the first key is its.
  EXPECT_EQ(Bytes(32, 12), "\x20\x0C\0\0\x30\0\0\0\0\0\0\0"s);
  // "c:\ab.dll" has 9 bytes, whose sum is 0x326.
  EXPECT_EQ(Bytes(3104, 48),
            "\x18\x17\x16\x15\x14\x13\x12\x11\x08\x07\x06\x05\x04\x03\x02\x01"
            "\x2A\0\0\0\x04\0\0\0\x09\0\x26\x03"
            "c:\\ab.dll\0\0\0\0\0\x08\x08\x08\x08\0\0"s);

  const CacheBlock::Place place = mMemory.GetBlock().Find(CacheKey("c:\\Ab.DLL"));
  ASSERT_TRUE(place.found);
  const Binary payload = mMemory.GetBlock().ReadPayload(place, 0x21);
  EXPECT_EQ(payload.RawCompare("\x08\x08\x08\x08", 4), 0);
  EXPECT_EQ(Bytes(3104, 8), "\x21\0\0\0\0\0\0\0"s) << "a read notes the use";
}

TEST_F(CacheBlockTest, UpdatesInPlaceWhenItFitsAndMovesWhenNot) {
  Store("a", 1, 100, 1);
  Store("b", 2, 100, 2);
  const DWORD first = OffsetOf("a"), second = OffsetOf("b");
  EXPECT_EQ(second - first, orm::CacheRecord::GetSize(1, 100));

  Store("a", 3, 10, 3);
  EXPECT_EQ(OffsetOf("a"), first) << "smaller: in place";
  Store("a", 4, 100, 4);
  EXPECT_EQ(OffsetOf("a"), first) << "up to the next record: in place";
  Store("a", 5, 200, 5);
  EXPECT_EQ(OffsetOf("a"), second + orm::CacheRecord::GetSize(1, 100)) << "larger: behind the others";
  Store("c", 6, 20, 6);
  EXPECT_EQ(OffsetOf("c"), first) << "the first gap that is large enough";
  Store("a", 7, 40000, 7);
  EXPECT_EQ(OffsetOf("a"), second + orm::CacheRecord::GetSize(1, 100)) << "the last record grows to the end";
  EXPECT_EQ(Find("b"), 2u);
}

TEST_F(CacheBlockTest, OrdersKeysByHashAndThenText) {
  for (const char* path : {"zz", "b", "ba", "ab", "a", "c", "aab", "aba", "baa"}) Store(path, 1, 0, 1);
  std::vector<std::string> order;
  for (DWORD i = 0; i < mMemory.GetCount(); ++i) {
    const DWORD slot = At(32 + 12 * i + 8);
    order.push_back(reinterpret_cast<const char*>(mMemory.GetBytes()) + At(32 + 12 * slot) + 28);
  }
  EXPECT_EQ(order, (std::vector<std::string>{"a", "b", "c", "ab", "ba", "zz", "aab", "aba", "baa"}));
}

TEST_F(CacheBlockTest, ALackOfSlotsEvictsTheOneLongestUnused) {
  for (unsigned i = 0; i < 256; ++i) Store("lib" + std::to_string(i), 1, 0, 1000 + i);
  EXPECT_EQ(mMemory.GetCount(), 256u);
  const CacheBlock::Place place = mMemory.GetBlock().Find(CacheKey("lib0"));
  mMemory.GetBlock().ReadPayload(place, 5000);

  Store("one more", 9, 0, 6000);
  EXPECT_EQ(mMemory.GetCount(), 256u);
  EXPECT_EQ(Find("one more"), 9u);
  EXPECT_EQ(Find("lib0"), 1u) << "was used";
  EXPECT_EQ(Find("lib1"), 0u);
  for (unsigned i = 2; i < 256; ++i) EXPECT_EQ(Find("lib" + std::to_string(i)), 1u) << i;
}

TEST_F(CacheBlockTest, OfEquallyOldOnesTheFirstByKeyGoes) {
  for (unsigned i = 0; i < 256; ++i) Store("lib" + std::to_string(i), 1, 0, 7);
  Store("zzz", 2, 0, 8);
  EXPECT_EQ(Find("lib0"), 0u) << "the smallest sum among the shortest names";
}

TEST_F(CacheBlockTest, ALackOfBytesEvictsAndMovesTogether) {
  for (unsigned i = 0; i < 60; ++i) Store("lib" + std::to_string(10 + i), 1, 1000 - 37, 100 + i);
  const DWORD count = mMemory.GetCount();
  ASSERT_EQ(count, 60u);
  // 60 records of 1008 bytes leave 1952: two must go, and they are not neighbours of the end.
  Store("big", 2, 3500, 900);
  EXPECT_EQ(Find("big"), 2u);
  EXPECT_EQ(Find("lib10"), 0u);
  EXPECT_EQ(Find("lib11"), 0u);
  EXPECT_EQ(Find("lib12"), 1u);
  EXPECT_EQ(OffsetOf("lib12"), 3104u) << "moved to the start";
  const CacheBlock::Place place = mMemory.GetBlock().Find(CacheKey("lib69"));
  EXPECT_EQ(mMemory.GetBlock().ReadPayload(place, 0).GetSize(), 963u);
}

TEST_F(CacheBlockTest, TheLargestRecordTakesTheWholeDataAreaAndALargerOneNone) {
  Store("a", 1, 10, 1);
  const size_t largest = 62432 - 33 - 3;  // with a name of three letters
  EXPECT_TRUE(Store("big", 2, largest, 2));
  EXPECT_EQ(Find("big"), 2u);
  EXPECT_EQ(Find("a"), 0u);
  EXPECT_FALSE(Store("big", 3, largest + 1, 3));
  EXPECT_FALSE(Store("other", 3, 70000, 3));
  EXPECT_EQ(mMemory.GetCount(), 0u);
}

TEST_F(CacheBlockTest, AForgottenRecordIsFoundForNoVersion) {
  Store("a", 5, 10, 1);
  mMemory.GetBlock().Forget(mMemory.GetBlock().Find(CacheKey("a")));
  EXPECT_EQ(Find("a"), 0u);
  Store("a", 5, 10, 2);
  EXPECT_EQ(Find("a"), 5u);
}

TEST_F(CacheBlockTest, RepairKeepsWholeRecords) {
  for (unsigned i = 0; i < 20; ++i) Store("lib" + std::to_string(i), 1 + i, 50, i);
  const orm::CacheBytes bytes(mMemory.GetBytes());
  const DWORD damaged = OffsetOf("lib3");
  bytes.Store32(32 + 12 * 4 + 8, 77);                      // a key-order index that no slot has
  bytes.Store32(damaged + 20, 0x7FFFFFFF);                 // a payload beyond the block
  bytes.Store32(32 + 12 * 10, bytes.Load32(32 + 12 * 9));  // a slot twice, another lost
  bytes.Store32(20, 0);                                    // the start of the data area
  ASSERT_FALSE(mMemory.IsSound());
  mMemory.GetBlock().RepairIfDamaged();
  EXPECT_TRUE(mMemory.IsSound());
  for (unsigned i = 0; i < 20; ++i) {
    const ULONGLONG expected = i == 3 || i == 10 ? 0 : 1u + i;
    EXPECT_EQ(Find("lib" + std::to_string(i)), expected) << i;
  }
}

}  // namespace
