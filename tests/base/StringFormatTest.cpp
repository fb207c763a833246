// printf-style and message-insert formatting, system messages.
#include <ormutil/BaseString.h>

#include <functional>
#include <string>

#include "AssertionLog.h"
#include "WipeWatch.h"

using namespace orm;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

std::string Narrow(const WideString& text) {
  std::string result;
  for (const unsigned short* unit = text.GetBegin(); *unit != 0; ++unit) {
    result += *unit < 0x80 ? static_cast<char>(*unit) : '?';
  }
  return result;
}

// Counts the tries, and the bytes of room that they were given.
struct CountingTraits : MbcsTraits {
  static inline size_t tries = 0, room = 0;
  static int FormatMessageV(Char* buffer, const Char* format, unsigned size, char* arguments) {
    ++tries;
    room += size;
    return MbcsTraits::FormatMessageV(buffer, format, size, arguments);
  }
  static int FormatV(Char* buffer, size_t size, const Char* format, va_list arguments) {
    ++tries;
    room += size;
    return MbcsTraits::FormatV(buffer, size, format, arguments);
  }
};

template <class... Args>
std::string FormatWide(const char16_t* format, Args... args) {
  WideString text;
  text.Format(reinterpret_cast<const unsigned short*>(format), args...);
  return Narrow(text);
}

}  // namespace

TEST(StringFormat, GrowsToTheTextAndNoFurther) {
  for (int length : {0, 1, 7, 8, 127, 128, 255, 256, 5000}) {
    String text;
    text.Format("%0*d", length, 0);
    EXPECT_EQ(text.GetSize(), std::max<size_t>(1, static_cast<size_t>(length)));
    EXPECT_EQ(text.GetCapacity(), string_detail::RoundCapacity(std::max<size_t>(text.GetSize(), 4) + 1));
  }
  for (int length : {10, 120, 300, 1025, 5000}) {
    const std::string insert(static_cast<size_t>(length), 'i');
    const String message = String::FormatInserts("%1", insert.c_str());
    EXPECT_EQ(message.GetCapacity(), string_detail::RoundCapacity(insert.size() + 1));
    EXPECT_STREQ(message.GetBegin(), insert.c_str());
  }
  String text("kept capacity: a text of more than forty bytes");
  text.Format("%s:%d:%s", String("a"), -1, "b");
  EXPECT_STREQ(text.GetBegin(), "a:-1:b");
  EXPECT_EQ(text.GetCapacity(), 64u);
}

// Long texts take a handful of tries, whose work together is a small multiple of the text.
TEST(StringFormat, TriesGrowWithTheTextNotItsSquare) {
  using Counted = BaseString<CountingTraits>;
  const std::string large(1 << 20, 'x');
  const std::function<Counted()> operations[] = {
      [&] { return Counted::FormatInserts("%1", large.c_str()); },
      [&] {
        Counted text;
        text.Format("%s", large.c_str());
        return text;
      },
  };
  for (const auto& operation : operations) {
    CountingTraits::tries = CountingTraits::room = 0;
    EXPECT_EQ(operation().GetSize(), large.size());
    EXPECT_LE(CountingTraits::tries, 20u);
    EXPECT_LE(CountingTraits::room, 4 * large.size() + 128);
  }
}

TEST(StringFormat, WideTextIsFormattedLikeNarrowText) {
  const unsigned short word[] = {'w', 'o', 'r', 'd', 0};
  EXPECT_EQ(FormatWide(u"%d|%5u|%-4x|%+03d|%#o", -7, 42u, 255u, 5, 8u), "-7|   42|ff  |+05|010");
  EXPECT_EQ(FormatWide(u"%lld %I64x %hhd %zu", 1LL << 40, 1ULL << 36, 257, size_t{9}),
            "1099511627776 1000000000 1 9");
  EXPECT_EQ(FormatWide(u"%ld %hd %lu %hu %hhu", -1L, 0x1FFFE, 2UL, 65'537u, 258u), "-1 -2 2 1 2");
  EXPECT_EQ(FormatWide(u"%.3f %g %Lf", 1.5, 0.25, 2.0L), "1.500 0.25 2.000000");
  EXPECT_EQ(FormatWide(u"%.1e %E %A %p", 1.5, 0.0, 1.0, reinterpret_cast<void*>(0x1F)),
            "1.5e+00 0.000000E+00 0X1P+0 0x1f");
  EXPECT_EQ(FormatWide(u"[%s|%6s|%-6s|%.2s|%hs|%S]", word, word, word, word, "ab", "cd"),
            "[word|  word|word  |wo|ab|cd]");
  EXPECT_EQ(FormatWide(u"%c%hc%*d%%", 'x', 'y', 3, 1), "xy  1%");
  EXPECT_EQ(FormatWide(u"[%*d]", -4, 7), "[7   ]") << "a negative width aligns to the left";
  EXPECT_EQ(FormatWide(u"%s", static_cast<const unsigned short*>(nullptr)), "(null)");
  EXPECT_EQ(FormatWide(u"%.2hs|%.*s", "abc", -1, word), "ab|word");
  // Not conversions: the result is empty.
  for (const char16_t* bad : {u"%", u"%q", u"%99999999999d", u"%n"}) EXPECT_EQ(FormatWide(bad, 0), "");
  WideString holder(word);
  static const unsigned short twice[] = {'%', 's', '%', 's', 0};
  holder.Format(twice, holder, holder);
  EXPECT_EQ(Narrow(holder), "wordword");
}

TEST(StringFormat, InsertsTakeStringsAndNumbers) {
  test::AssertionLog log;
  const String name("x");
  EXPECT_EQ(String::FormatInserts("'%2' then '%1'", name, "plain"), "'plain' then 'x'");
  EXPECT_EQ(String::FormatInserts("0x%1!x! %2!d! %3!u!", 0xE7210001, -5, true), "0xe7210001 -5 1");
  EXPECT_EQ(String::FormatInserts("100%%"), "100%");
  EXPECT_EQ(String::FormatInserts("%0"), "");
  EXPECT_EQ(String::FormatInserts(""), "");
  EXPECT_EQ(String::FormatInserts(nullptr), "");
  std::string large(3000, 'y');
  EXPECT_EQ(String::FormatInserts("%1%1", large.c_str()).GetSize(), 6000u);
  EXPECT_THAT(log.Take(), IsEmpty());
  EXPECT_EQ(String::FormatInserts("%1!", name), "");
  EXPECT_THAT(log.Take(), ElementsAre(test::Failure("src/include/BaseString", 2402, "forced assert")));
  static const unsigned short wide[] = {'<', '%', '1', '>', 0};
  static const unsigned short insert[] = {0x416, 'z', 0};
  EXPECT_EQ(Narrow(WideString::FormatInserts(wide, insert)), "<?z>");
  static const unsigned short nothing[] = {'%', '0', 0};
  EXPECT_TRUE(WideString::FormatInserts(nothing).IsEmpty());
  EXPECT_THAT(log.Take(), IsEmpty());
  static const unsigned short open[] = {'%', '1', '!', 0};
  EXPECT_TRUE(WideString::FormatInserts(open, insert).IsEmpty());
  EXPECT_THAT(log.Take(), ElementsAre(test::Failure("src/include/BaseString", 2402, "forced assert")));
}

// An insert that is not there would be whatever the stack holds.
TEST(StringFormat, InsertsThatAreNotThereAreNotRead) {
  test::AssertionLog log;
  const struct {
    const char* format;
    size_t taken;
  } table[] = {
      {"", 0},
      {"100%% %n%! %", 0},
      {"%0%9", 0},
      {"%%1", 0},
      {"%1", 1},
      {"%2 %1", 2},
      {"%12%3", 12},
      {"%123", 12},
      {"%1!-8s! 2*", 1},
      {"%1!*d!", 2},
      {"%1!*.*s!", 3},
      {"%1!*.*s! %3 %4!*s!", 6},
      {"%1!*d!%1!*d!", 3},
      {"%2!*d! %5!u!", 6},
      {"%7!", 7},
      {"%99!*.*d!", 101},
  };
  for (const auto& [format, taken] : table) EXPECT_EQ(string_detail::CountInserts(format), taken) << format;
  EXPECT_EQ(String::FormatInserts("%1!*d! %2!u!", 3, 7, 8), "  7 8") << "as many as there are";
  static const unsigned short wide[] = {'%', '2', 0};
  const std::function<bool()> operations[] = {
      [] { return String::FormatInserts("%1").IsEmpty(); },
      [] { return String::FormatInserts("%1 %3!u!", 1, 2).IsEmpty(); },
      [] { return String::FormatInserts("%1!*d!", 1).IsEmpty(); },
      [] { return WideString::FormatInserts(wide, 1).IsEmpty(); },
      // Nor is room looked for that no message has.
      [] { return String::FormatInserts("%1!2147483647d!", 1).IsEmpty(); },
  };
  for (const auto& isEmpty : operations) {
    EXPECT_TRUE(isEmpty());
    EXPECT_THAT(log.Take(), ElementsAre(test::Failure("src/include/BaseString", 2402, "forced assert")));
  }
}

TEST(StringFormat, WithoutMemoryThereIsNoText) {
  test::AssertionLog log;
  const String prefix(std::string(100, 'p').c_str());
  const auto format = [](String* pText, ...) {
    va_list arguments;
    va_start(arguments, pText);
    pText->FormatMessage("a message of many words", arguments);
    va_end(arguments);
  };
  const std::function<void(String&)> operations[] = {
      [](String& text) { text.Format("%s", "a text of many words"); },
      [&](String& text) { format(&text); },
      [&](String& text) { text.SetSystemError(ERROR_ACCESS_DENIED, prefix.GetBegin()); },
  };
  for (const auto& operation : operations) {
    String text("old");
    const String holder(text);
    test::blocksLeft = 0;
    operation(text);
    test::blocksLeft = test::kNoEnd;
    EXPECT_TRUE(text.IsEmpty());
    EXPECT_STREQ(holder.GetBegin(), "old");
    EXPECT_THAT(log.Take(), ElementsAre(testing::HasSubstr("assert fail:pNew != 0")));
  }
  // Nor half of one when the memory ends on the way.
  const std::function<std::string()> halves[] = {[] { return FormatWide(u"a %08d", 7); },
                                                 [] { return FormatWide(u"a %hs", "text"); },
                                                 [] { return FormatWide(u"a %f", 0.5); }};
  for (const auto& half : halves) {
    test::blocksLeft = 1;
    EXPECT_EQ(half(), "");
    test::blocksLeft = test::kNoEnd;
    EXPECT_THAT(log.Take(), ElementsAre(testing::HasSubstr("assert fail:pNew != 0")));
  }
}

TEST(StringFormat, SystemMessages) {
  String text;
  text.SetSystemError(ERROR_ACCESS_DENIED, nullptr);
  EXPECT_EQ(text.FindText("denied") != text.GetEnd(), true);
  String longer;
  const std::string prefix(500, 'p');
  longer.SetSystemError(ERROR_ACCESS_DENIED, prefix.c_str());
  EXPECT_EQ(longer, String(prefix.c_str()) + text);
  longer.SetSystemError(0x2FFFFFFF, "prefix");
  EXPECT_TRUE(longer.IsEmpty());
  WideString wide;
  wide.SetSystemError(ERROR_ACCESS_DENIED, nullptr);
  EXPECT_EQ(Narrow(wide), text.GetBegin());
}

// Whoever builds a report may ask for the error number afterwards, or as another argument of the same call.
TEST(StringFormat, TheLastErrorStaysTheCallers) {
  test::AssertionLog log;
  const std::string large(3000, 'y');
  const WideString wide(reinterpret_cast<const unsigned short*>(u"wide"));
  // Wide text at an odd address, a page that does not exist, and a text of ANSI for wide strings.
  const unsigned char stored[] = {4, 0, 0, 0, 0xB0, 4, 0, 0, 'a', 0, 0, 0};
  const unsigned char narrow[] = {2, 0, 0, 0, 0xE4, 4, 0, 0, 'a', 0};
  const std::function<void()> operations[] = {
      [&] { String::FormatInserts("%1", "text"); },
      [&] { String::FormatInserts("%1%1", large.c_str()); },
      [&] { String::FormatInserts("%0"); },
      [&] { String::FormatInserts("%1!", "malformed"); },
      [&] { WideString::FormatInserts(reinterpret_cast<const unsigned short*>(u"%1%1!"), wide); },
      [&] { String().SetSystemError(ERROR_ACCESS_DENIED, large.c_str()); },
      [&] { String().SetSystemError(0x2FFFFFFF, "no such message"); },
      [&] { WideString().SetSystemError(0x2FFFFFFF, nullptr); },
      [&] { String().Format("%s", large.c_str()); },
      [&] { FormatWide(u"%hs", "text"); },
      [&] { String().Deserialize(stored, sizeof stored, 4711); },
      [&] { WideString().Deserialize(narrow, sizeof narrow, 0); },
      [&] { WcsTraits::GetSerializedSize("a", 4711, 0, 2); },
      [&] {
        unsigned short room[2];
        WcsTraits::SerializeFrom(room, "longer", 1252, 0, sizeof room);
      },
  };
  for (size_t i = 0; i < std::size(operations); ++i) {
    SetLastError(4711);
    operations[i]();
    EXPECT_EQ(GetLastError(), 4711u) << "operation " << i;
  }
}
