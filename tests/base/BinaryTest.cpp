// The byte buffer: growth, sharing, and each operation's corner cases.
#include <ormutil/Binary.h>

#include <new>
#include <string>

#include "AssertionLog.h"
#include "support/BinaryBytes.h"
#include "support/TraceConfig.h"

using namespace orm;
using namespace test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {}  // namespace

TEST(Binary, AllocatesByTheGrowthRule) {
  const std::pair<unsigned, unsigned> table[] = {{0, 0},     {1, 8},     {8, 8},     {9, 16},
                                                 {33, 64},   {128, 128}, {129, 256}, {256, 256},
                                                 {257, 512}, {300, 512}, {512, 512}, {513, 768}};
  for (const auto& [size, allocated] : table) {
    Binary reserved, sized;
    reserved.Reserve(size);
    EXPECT_EQ(reserved.GetAllocated(), allocated) << size;
    EXPECT_EQ(reserved.GetSize(), 0u);
    sized.SetSize(size, false);
    EXPECT_EQ(sized.GetAllocated(), allocated) << size;
    EXPECT_EQ(sized.GetSize(), size);
    EXPECT_EQ(BinaryOf(std::string(size, 'x')).GetAllocated(), allocated);
  }
}

TEST(Binary, WritersNeverTouchASharedBlock) {
  for (auto write : {+[](Binary& b) { b.Set(0xFF, 2, 2); }, +[](Binary& b) { b.SetSize(3, true); },
                     +[](Binary& b) { b.GetBuffer(6)[0] = 'X'; }, +[](Binary& b) { b.Append("g", 1); },
                     +[](Binary& b) { b.Assign("z", 1); }, +[](Binary& b) { b.Clear(); },
                     +[](Binary& b) { b.Reserve(1000); }}) {
    const Binary original = BinaryOf("abcdef");
    Binary copy = original;
    EXPECT_EQ(copy.GetData(), original.GetData());
    write(copy);
    EXPECT_NE(copy.GetData(), original.GetData());
    EXPECT_EQ(BytesOf(original), "abcdef");
  }
  // A holder fewer and the block may be written in place again.
  Binary only = BinaryOf("abcdef");
  { const Binary guest = only; }
  const unsigned char* block = only.GetData();
  only.Set('x', 0, 1);
  EXPECT_EQ(only.GetData(), block);
}

TEST(Binary, ShrinkingAndClearingKeepAnUnsharedBlock) {
  Binary data = BinaryOf(std::string(300, 'x'));
  const unsigned char* block = data.GetData();
  data.SetSize(5, true);
  EXPECT_EQ(BytesOf(data), "xxxxx");
  data.Assign("ab", 2);
  EXPECT_EQ(BytesOf(data), "ab");
  EXPECT_EQ(data.GetData(), block);
  data.Clear();
  EXPECT_EQ(data.GetAllocated(), 512u);
  EXPECT_EQ(data.GetData(), block);
  const Binary holder = data;
  data.Clear();
  EXPECT_EQ(data.GetData(), nullptr);
  // Reserving less than a shared buffer holds keeps what it holds.
  Binary full = BinaryOf("123456789");
  const Binary second = full;
  full.Reserve(2);
  EXPECT_EQ(BytesOf(full), "123456789");
}

TEST(Binary, SetFillsARangeAndKeepsTheRest) {
  Binary data = BinaryOf("abcdef");
  data.Set('-', 2, 0xFFFFFFFF);
  EXPECT_EQ(BytesOf(data), "ab----");
  data.Set('+', 1, 1);
  EXPECT_EQ(BytesOf(data), "a+----");
  data.Set('!', 5, 3);
  EXPECT_EQ(BytesOf(data), "a+---!!!");
  Binary shared = data;
  shared.Set('#', 0, 2);
  EXPECT_EQ(BytesOf(shared), "##---!!!");
  Binary none;
  none.Set('x', 0, 0xFFFFFFFF);
  EXPECT_EQ(none.GetData(), nullptr);
}

TEST(Binary, CopiesOutWhatFits) {
  const Binary data = BinaryOf("0123456789");
  struct Row {
    unsigned offset;
    bool complete;
    std::string copied;
  };
  for (const Row& row :
       {Row{4, false, "4567"}, Row{6, true, "6789"}, Row{8, true, "89"}, Row{12, true, ""}}) {
    char dest[5] = {};
    EXPECT_EQ(data.CopyTo(dest, 4, row.offset), row.complete);
    EXPECT_EQ(dest, row.copied);
  }
  EXPECT_TRUE(Binary().CopyTo(nullptr, 4, 0));
}

TEST(Binary, OrdersByBytesThenBySize) {
  EXPECT_LT(BinaryOf("\1\2").RawCompare("\1\2\3", 3), 0);
  EXPECT_EQ(BinaryOf("\1\2").RawCompare("\1\2\3", 2), 0);
  EXPECT_EQ(BinaryOf("\1\2").RawCompare("\1", 1), 1);
  EXPECT_EQ(BinaryOf("\xFF").RawCompare("\x01\x01", 2), 1) << "bytes are unsigned";
  EXPECT_EQ(Binary().RawCompare(nullptr, 0), 0);
  EXPECT_EQ(Binary().RawCompare("x", 1), -1);
  EXPECT_EQ(BinaryOf("abcd").Compare(BinaryOf("abcx"), 3), 0);
  EXPECT_LT(BinaryOf("abcd").Compare(BinaryOf("abcx"), 0xFFFFFFFF), 0);
  EXPECT_EQ(BinaryOf("abcd").Compare(BinaryOf("ab"), 0xFFFFFFFF), 2);
  EXPECT_EQ(BinaryOf("abcd").Compare(Binary(), 3), 3);
}

TEST(Binary, OwnBytesAreASourceLikeAnyOther) {
  Binary data = BinaryOf("01234567");
  data.Append(data.GetData() + 4, 4);
  EXPECT_EQ(BytesOf(data), "012345674567");
  data.Assign(data.GetData() + 2, 3);
  EXPECT_EQ(BytesOf(data), "234");
}

TEST(Binary, MisuseIsAssertedAndHarmsNothing) {
  test::AssertionLog log;
  Binary data = BinaryOf("abc");
  const auto failure = [](int line, const char* text) {
    return test::Failure("src/shared/Binary", line, text);
  };
  EXPECT_FALSE(data.CopyTo(nullptr, 2, 0));
  EXPECT_THAT(log.Take(),
              ElementsAre(failure(125, "maxSize == 0 || !mpData || mpData->mSize == 0 || dest != 0")));
  EXPECT_LT(data.RawCompare(nullptr, 4), 0);
  EXPECT_THAT(log.Take(), ElementsAre(failure(148, "otherSize == 0 || pOther != 0")));
  data.Set('x', 4, 0xFFFFFFFF);
  EXPECT_THAT(log.Take(), ElementsAre(failure(176, "offset <= GetSize()")));
  EXPECT_EQ(BytesOf(data), "abc");
}

TEST(Binary, ReportsWhatItCannotAllocate) {
  test::SetRegistryText(test::TRACE_KEY + "\\test_binary", "binary", "e");
  test::AssertionLog log;
  Binary data = BinaryOf("abc");
  EXPECT_THROW(data.SetSize(0xFFFFFFFF, true), std::bad_alloc);
  const std::string report =
      "an attempt to allocate 0 bytes for binary (requested -1 bytes) failed, about to crash now";
  EXPECT_THAT(log.Take(), ElementsAre(report, test::Failure("src/shared/Binary", 59, "forced assert")));
  EXPECT_THROW(data.Set(0, 0xFFFFFFF0, 0x20), std::bad_alloc);
  log.Take();
  EXPECT_THROW(Binary("", 0xFFFFFFFF), std::bad_alloc);
  EXPECT_THAT(log.Take(), ElementsAre(report, test::Failure("src/shared/Binary", 95, "forced assert")));
  EXPECT_EQ(BytesOf(data), "abc");
}
