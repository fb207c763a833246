// String blocks: sharing, growth, copy on write, and what the wiped memory holds.
#include <ormutil/BaseString.h>

#include <new>
#include <thread>

#include "AssertionLog.h"
#include "WipeWatch.h"

using namespace orm;
using ::testing::ElementsAre;

namespace {

unsigned CapacityFor(size_t size) {
  String text;
  text.PrepareWriting(size, false)[0] = 0;
  return text.GetCapacity();
}

}  // namespace

TEST(String, CapacityFollowsTheGrowthRule) {
  const std::pair<size_t, unsigned> table[] = {{2, 8},     {8, 8},     {9, 16},    {16, 16},    {17, 32},
                                               {33, 64},   {64, 64},   {65, 128},  {128, 128},  {129, 256},
                                               {256, 256}, {257, 384}, {384, 384}, {1000, 1024}};
  for (const auto& [size, capacity] : table) EXPECT_EQ(CapacityFor(size), capacity) << size;
}

TEST(String, RequestOfNothingTakesTheExactSizeOfASharedText) {
  String text("four");
  const String other = text;
  text.PrepareWriting(0, true);
  EXPECT_EQ(text.GetCapacity(), 5u);
  EXPECT_STREQ(text.GetBegin(), "four");
  EXPECT_NE(text.GetBegin(), other.GetBegin());
}

TEST(String, ChangingACopyLeavesTheOriginalAndItsBlock) {
  const String original("shared text");
  const char* block = original.GetBegin();
  for (auto change :
       {+[](String& s) { s += "!"; }, +[](String& s) { s = "x"; }, +[](String& s) { s.Empty(); },
        +[](String& s) { s.MakeUpper(); }, +[](String& s) { s.Trim("s"); },
        +[](String& s) { s.SetRange(s.GetBegin() + 1, s.GetEnd()); },
        +[](String& s) { s.Format("%d", 7); }}) {
    String copy = original;
    EXPECT_EQ(copy.GetBegin(), block);
    change(copy);
    EXPECT_NE(copy.GetBegin(), block);
    EXPECT_EQ(original.GetBegin(), block);
    EXPECT_STREQ(block, "shared text");
  }
}

TEST(String, EmptyStringsShareOneBlock) {
  String a, b(""), c(static_cast<const char*>(nullptr)), d("text");
  const char* empty = a.GetBegin();
  d = String();
  EXPECT_EQ(b.GetBegin(), empty);
  EXPECT_EQ(c.GetBegin(), empty);
  EXPECT_EQ(d.GetBegin(), empty);
  a.PrepareWriting(1, false)[0] = 0;
  EXPECT_NE(a.GetBegin(), empty) << "the shared empty block was handed out for writing";
}

TEST(String, EmptyKeepsTheCapacityOfAnUnsharedBlock) {
  String text("some text to be dropped");
  const char* block = text.GetBegin();
  text.Empty();
  EXPECT_EQ(text.GetBegin(), block);
  EXPECT_EQ(text.GetCapacity(), 32u);
  text = "again";
  const String holder = text;
  text.Empty();
  EXPECT_EQ(text.GetBegin(), String().GetBegin());
  EXPECT_STREQ(holder.GetBegin(), "again");
}

// A move takes the block and leaves the empty text, whose holders nobody counts.
TEST(String, MovesLeaveEmptyStringsBehind) {
  static_assert(std::is_nothrow_move_constructible_v<String> && std::is_nothrow_move_assignable_v<String> &&
                std::is_nothrow_move_constructible_v<WideString>);
  const char* empty = String().GetBegin();
  const auto holders = [&] { return (reinterpret_cast<const StringBlock*>(empty) - 1)->count + 0; };
  String target("target");
  String source("source");
  const char* block = source.GetBegin();
  const LONG before = holders();
  String moved(std::move(source));
  target = std::move(moved);
  String& self = target;
  target = std::move(self);
  EXPECT_EQ(target.GetBegin(), block);
  EXPECT_STREQ(block, "source");
  EXPECT_EQ(holders(), before);
  // What was moved from is a string like any other.
  for (String* left : {&source, &moved}) {
    EXPECT_TRUE(left->IsEmpty());
    EXPECT_EQ(left->GetEnd(), left->GetBegin());
    String copy(*left);
    copy = *left;
    *left = std::move(copy);
    left->Empty();
    left->PrepareWriting(1, true)[0] = 'x';
    EXPECT_TRUE(copy.IsEmpty());
    left->PrepareWriting(2, false)[1] = 0;
    *left += "y";
    EXPECT_STREQ(left->GetBegin(), "xy");
  }
}

// The text that is assigned, appended or formatted lies in the string that changes.
TEST(String, OwnTextIsASourceLikeAnyOther) {
  String text("0123456789");
  text = text.GetBegin() + 3;
  EXPECT_STREQ(text.GetBegin(), "3456789");
  text += text.GetBegin() + 5;
  EXPECT_STREQ(text.GetBegin(), "345678989");
  for (int i = 0; i < 5; ++i) text += text;
  EXPECT_EQ(text.GetLength(), 9u * 32);
  text = "ab";
  text.Format("<%s%s>", text, text);
  EXPECT_STREQ(text.GetBegin(), "<abab>");
  text = "a block of its own, with room for more: %s";
  text.Format(text.GetBegin(), text.GetBegin() + 34);
  EXPECT_STREQ(text.GetBegin(), "a block of its own, with room for more: more: %s");
  text.Format("%.7s|%s", text.GetBegin(), text.GetEnd() - 2);
  EXPECT_STREQ(text.GetBegin(), "a block|%s");
  text = "%1!s! is %2";
  const auto format = [](String* pText, ...) {
    va_list arguments;
    va_start(arguments, pText);
    pText->FormatMessage(pText->GetBegin(), arguments);
    va_end(arguments);
  };
  format(&text, text.GetBegin(), text.GetBegin() + 6);
  EXPECT_STREQ(text.GetBegin(), "%1!s! is %2 is is %2");
  text = " x ";
  text.Trim(text.GetBegin());
  EXPECT_TRUE(text.IsEmpty());
  text = "<abab>";
  text.SetSystemError(5, text.GetBegin() + 1);
  EXPECT_EQ(text.Compare("abab>") > 0, true);
  String first;
  first += text;
  EXPECT_EQ(first.GetBegin(), text.GetBegin()) << "added to nothing a text is shared";
  first = static_cast<const char*>(nullptr);
  EXPECT_TRUE(first.IsEmpty());
  const String& self = text;
  text = self;
  EXPECT_STREQ(text.Left(text.GetBegin() + 5).GetBegin(), "abab>");
}

TEST(String, FreedBlocksAreWiped) {
  test::watchedCapacity = 48 * 128;
  {
    String text;
    std::memset(text.PrepareWriting(48 * 128 - 5, false), 'x', 48 * 128);
    text.PrepareWriting(0, false)[48 * 128 - 1] = 0;
    String copy = text;
    text = "gone";
    EXPECT_EQ(test::wipedBlocks + test::dirtyBlocks, 0);
  }
  test::watchedCapacity = 0;
  EXPECT_EQ(test::wipedBlocks, 1);
  EXPECT_EQ(test::dirtyBlocks, 0);
}

TEST(String, BlocksAreSharedBetweenThreads) {
  const String text("passed from hand to hand");
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([copy = text]() mutable {
      for (int round = 0; round < 20000; ++round) {
        String mine = copy;
        if (round % 100 == 0) mine += "!";
        copy = round % 2 ? String() : mine;
        copy = mine;
        copy.SetRange(copy.GetBegin(), copy.GetBegin() + 24);
      }
      EXPECT_STREQ(copy.GetBegin(), "passed from hand to hand");
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_STREQ(text.GetBegin(), "passed from hand to hand");
}

TEST(String, MisuseIsAssertedAndThenCountsAsEmptyText) {
  test::AssertionLog log;
  const String text("abc");
  const char* none = nullptr;
  const auto header = [](int line, const char* condition) {
    return test::Failure("src/include/BaseString", line, condition);
  };
  EXPECT_GT(text.Compare(none), 0);
  EXPECT_THAT(log.Take(), ElementsAre(header(1258, "pOther != 0")));
  EXPECT_GT(text.CompareNoCase(none), 0);
  EXPECT_THAT(log.Take(), ElementsAre(header(1271, "pOther != 0")));
  EXPECT_GT(text.CompareNoCase(none, 2), 0);
  EXPECT_THAT(log.Take(), ElementsAre(header(1299, "pOther != 0")));
  EXPECT_EQ(text.Find('a', text.GetEnd() + 1), text.GetEnd());
  EXPECT_THAT(log.Take(), ElementsAre(header(1395, "pos >= GetBegin() && pos <= GetEnd()")));
  EXPECT_THAT(text.Split(none), ElementsAre(text));
  EXPECT_THAT(log.Take(),
              ElementsAre(header(1488, "pCharacterSet != 0"), header(1461, "pCharacterSet != 0")));
  const std::string range = "index >= 0 && static_cast<size_t>(index) < GetLength()";
  for (int index : {3, -1}) {
    EXPECT_EQ(text.GetAt(index), 0u);
    EXPECT_THAT(log.Take(), ElementsAre(header(1096, range.c_str())));
  }
  String changed(text);
  changed.TrimLeft(none);
  EXPECT_THAT(log.Take(), ElementsAre(header(2194, "pCharacterSet != 0")));
  changed.Trim(none);
  EXPECT_THAT(log.Take(), ElementsAre(header(2249, "pCharacterSet != 0")));
  EXPECT_EQ(changed, text);
  changed.FormatV(none, {});
  EXPECT_THAT(log.Take(), ElementsAre(header(2295, "formatString != 0")));
  EXPECT_TRUE(changed.IsEmpty());
  EXPECT_THROW(changed.PrepareWriting(size_t{1} << 33, false), std::bad_alloc);
  EXPECT_THAT(log.Take(), ElementsAre(header(1924, "pNew != 0")));
}

TEST(String, HashAddsSignedBytesAboveTheSize) {
  const std::pair<const char*, DWORD> table[] = {
      {"", 0}, {"abc", 0x01260003}, {"\xE9", 0xFFE90001}, {"IID_Thread", 0x038D000A}};
  for (const auto& [text, hash] : table) EXPECT_EQ(GetSimpleStringHash(text), hash) << text;
}
