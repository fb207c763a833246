// Text operations of the three traits, over code pages with and without multibyte characters.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ormutil/BaseString.h>

#include <string>
#include <vector>

#include "kernel/CodePage.h"

using namespace orm;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

// Runs with another ANSI code page.
class WithCodePage {
 public:
  explicit WithCodePage(UINT page) { EXPECT_TRUE(platform::SetAnsiCodePage(page)); }
  ~WithCodePage() { platform::SetAnsiCodePage(1252); }
};

std::string Text(const String& text) {
  return text.GetBegin();
}

WideString Wide(const char16_t* text) {
  return WideString(reinterpret_cast<const unsigned short*>(text));
}

template <class Operation>
std::string Changed(const char* text, Operation operation) {
  String string(text);
  operation(string);
  return string.GetBegin();
}

}  // namespace

TEST(StringText, TrimsCharactersOfASet) {
  struct Row {
    const char *text, *set, *left, *right, *both;
  };
  const Row table[] = {
      {"", " ", "", "", ""},
      {"  a b  ", " ", "a b  ", "  a b", "a b"},
      {"xyx", "xy", "", "", ""},
      {"abc", "", "abc", "abc", "abc"},
      {"\t a", " \t", "a", "\t a", "a"},
  };
  for (const Row& row : table) {
    EXPECT_EQ(Changed(row.text, [&](String& s) { s.TrimLeft(row.set); }), row.left);
    EXPECT_EQ(Changed(row.text, [&](String& s) { s.TrimRight(row.set); }), row.right);
    EXPECT_EQ(Changed(row.text, [&](String& s) { s.Trim(row.set); }), row.both);
  }
  EXPECT_EQ(Changed("--a-b--", [](String& s) { s.Trim('-'); }), "a-b");
  EXPECT_EQ(Changed("\xE9\xE9", [](String& s) { s.Trim(static_cast<unsigned>('\xE9')); }), "");
}

TEST(StringText, SplitsWithoutEmptyTokens) {
  EXPECT_THAT(String(";;a; b;;c;").Split("; "), ElementsAre("a", "b", "c"));
  EXPECT_THAT(String("abc").Split(";"), ElementsAre("abc"));
  EXPECT_THAT(String(";;;").Split(";"), IsEmpty());
  EXPECT_THAT(String("").Split(";"), IsEmpty());
}

TEST(StringText, FindsFromBothEnds) {
  const String text("a.b.c");
  EXPECT_EQ(text.Find('.') - text.GetBegin(), 1);
  EXPECT_EQ(text.Find('.', text.GetBegin() + 2) - text.GetBegin(), 3);
  EXPECT_EQ(text.FindLast('.') - text.GetBegin(), 3);
  EXPECT_EQ(text.FindText("b.") - text.GetBegin(), 2);
  EXPECT_EQ(text.Find('x'), text.GetEnd());
  EXPECT_EQ(text.Find('.', text.GetEnd()), text.GetEnd());
  EXPECT_EQ(text.FindLast('x'), text.GetEnd());
  EXPECT_EQ(text.FindText("cb"), text.GetEnd());
  EXPECT_EQ(text.GetAt(4), unsigned{'c'});
  EXPECT_EQ(Text(text.Mid(text.Find('b'), text.FindLast('c'))), "b.");
}

TEST(StringText, ComparesAndFoldsLettersOfTheCodePage) {
  EXPECT_LT(String("a"), "b");
  EXPECT_EQ("a" + String("b") + "c", "abc");
  EXPECT_EQ(String("STRASSE \xC4").CompareNoCase("strasse \xE4"), 0);
  EXPECT_EQ(String("abX").CompareNoCase("ABy", 2), 0);
  EXPECT_NE(String("abX").CompareNoCase("ABy", 3), 0);
  EXPECT_EQ(Changed("\xC4x", [](String& s) { s.MakeLower(); }), "\xE4x");
  EXPECT_EQ(Changed("\xE4x", [](String& s) { s.MakeUpper(); }), "\xC4X");
  BaseString<SbcsTraits> single("\xC4X");
  single.MakeLower();
  EXPECT_STREQ(single.GetBegin(), "\xC4x");
}

// Whatever the code page: a byte is a character, and only ASCII has letters.
TEST(StringText, SingleByteTextIsBytes) {
  using Single = BaseString<SbcsTraits>;
  WithCodePage page(932);
  Single text("-\x83\x5C\\aZ[`{\xE4-");
  EXPECT_EQ(text.GetLength(), 11u);
  EXPECT_EQ(text.GetAt(1), 0x83u);
  EXPECT_EQ(text.Find('\\') - text.GetBegin(), 2);
  EXPECT_EQ(text.FindLast('\\') - text.GetBegin(), 3);
  EXPECT_EQ(text.FindText("\\a") - text.GetBegin(), 3);
  EXPECT_EQ(text.Find(0x835C), text.GetEnd());
  EXPECT_EQ(text.FindLast(0x15C), text.GetEnd());
  EXPECT_THAT(text.Split("\\"), ElementsAre(Single("-\x83"), Single("aZ[`{\xE4-")));
  EXPECT_EQ(text.CompareNoCase("-\x83\x5C\\Az[`{\xE4-"), 0);
  EXPECT_LT(text.CompareNoCase("-\x83\x5C\\az{`{\xE4-"), 0);
  EXPECT_LT(text.CompareNoCase("-\xA1"), 0);
  EXPECT_EQ(Single("aBx").CompareNoCase("Aby", 2), 0);
  EXPECT_LT(Single("aB").CompareNoCase("AbC", 3), 0);
  EXPECT_LT(Single("Z"), Single("a"));
  text.Trim("-");
  text.MakeUpper();
  EXPECT_STREQ(text.GetBegin(), "\x83\x5C\\AZ[`{\xE4");
  text.MakeLower();
  EXPECT_STREQ(text.GetBegin(), "\x83\x5C\\az[`{\xE4");
}

namespace {

// The places of the characters, from the front; from the back they are the same.
template <class Traits>
std::vector<std::ptrdiff_t> Places(const BaseString<Traits>& text) {
  std::vector<std::ptrdiff_t> places, back;
  const auto* const begin = text.GetBegin();
  for (const auto* pos = begin; *pos != 0; pos = Traits::Next(pos)) places.push_back(pos - begin);
  for (const auto* pos = text.GetEnd(); pos != begin;) {
    pos = Traits::Previous(begin, pos);
    back.insert(back.begin(), pos - begin);
  }
  EXPECT_EQ(back, places);
  return places;
}

// Counts the characters and bytes that the traits are made to look at.
struct CountingTraits : MbcsTraits {
  static inline size_t looks = 0;
  static const Char* Next(const Char* pos) {
    ++looks;
    return MbcsTraits::Next(pos);
  }
  static const Char* Previous(const Char* begin, const Char* pos) {
    looks += static_cast<size_t>(pos - begin);
    return MbcsTraits::Previous(begin, pos);
  }
  static unsigned Decode(const Char* pos) {
    ++looks;
    return MbcsTraits::Decode(pos);
  }
  static size_t Span(const Char* text, const Char* set) {
    const size_t size = MbcsTraits::Span(text, set);
    looks += size + 1;
    return size;
  }
};

}  // namespace

// The pairs of code page 932 are lead bytes throughout, so that no byte tells where its character begins.
TEST(StringText, TrimmingLooksAtEachCharacterOnce) {
  const size_t count = 1000;
  std::string pairs, blanks(count, ' ');
  for (size_t i = 0; i < count; ++i) pairs += "\x81\x81";
  const struct {
    UINT page;
    std::string text, set;
    unsigned character;
  } rows[] = {{932, "a" + pairs, "\x81\x81", 0x8181},
              {932, pairs + "a" + blanks, " ", ' '},
              {65001, "\xC3\xA4" + blanks, " ", ' '},
              {1252, "a" + blanks, " ", ' '}};
  for (const auto& row : rows) {
    WithCodePage page(row.page);
    BaseString<CountingTraits> both(row.text.c_str()), right(both), one(both);
    CountingTraits::looks = 0;
    both.Trim(row.set.c_str());
    right.TrimRight(row.set.c_str());
    one.Trim(row.character);
    EXPECT_LE(CountingTraits::looks, 3 * 5 * count) << row.page << row.set;
    const std::string expected = row.text.substr(0, row.text.size() - count * row.set.size());
    EXPECT_EQ(both.GetBegin(), expected);
    EXPECT_EQ(right.GetBegin(), expected);
    EXPECT_EQ(one.GetBegin(), expected);
  }
}

// 0x83 0x5C is one character of code page 932 whose trail byte looks like a backslash; 0x81 alone is half a
// character.
TEST(StringText, DoubleByteCharactersStayWhole) {
  WithCodePage page(932);
  const String text("\x83\x5C\\\x83\x5C");
  EXPECT_EQ(text.GetLength(), 3u);
  EXPECT_EQ(text.GetSize(), 5u);
  EXPECT_EQ(text.Find('\\') - text.GetBegin(), 2);
  EXPECT_EQ(text.FindLast('\\') - text.GetBegin(), 2);
  EXPECT_EQ(text.Find(0x835C) - text.GetBegin(), 0);
  EXPECT_EQ(text.GetAt(2), 0x835Cu);
  EXPECT_EQ(text.FindText("\\") - text.GetBegin(), 2);
  EXPECT_THAT(text.Split("\\"), ElementsAre("\x83\x5C", "\x83\x5C"));
  EXPECT_EQ(Changed("\\\x83\x5C\\", [](String& s) { s.Trim("\\"); }), "\x83\x5C");
  EXPECT_EQ(Changed("\\\x83\x5C", [](String& s) { s.Trim('\\'); }), "\x83\x5C");
  EXPECT_EQ(Changed("\x83\x5C-\x83\x5C", [](String& s) { s.Trim(0x835C); }), "-");
  EXPECT_THAT(Places(text), ElementsAre(0, 2, 3));
  EXPECT_THAT(Places(BaseString<SbcsTraits>("\x83\x5C")), ElementsAre(0, 1));
  const String half("a\x81");
  EXPECT_EQ(half.GetLength(), 2u);
  EXPECT_EQ(half.GetAt(1), 0x81u);
  EXPECT_EQ(Changed("a\x81", [](String& s) { s.Trim("a"); }), "\x81");
}

TEST(StringText, Utf8CharactersStayWhole) {
  WithCodePage page(65001);
  const String text("\xC3\xA4x\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_EQ(text.GetLength(), 4u);
  EXPECT_THAT(Places(text), ElementsAre(0, 2, 3, 6));
  EXPECT_EQ(text.CompareNoCase("\xC3\x84X\xE2\x82\xAC\xF0\x9F\x98\x80"), 0);
  EXPECT_THAT(text.Split("\xE2\x82\xAC"), ElementsAre("\xC3\xA4x", "\xF0\x9F\x98\x80"));
  EXPECT_EQ(Changed("\xC3\xA4\xC3\xA5\xC3\xA4", [](String& s) { s.Trim("\xC3\xA4"); }), "\xC3\xA5");
}

TEST(StringText, WideTextIsTextToo) {
  WideString text = Wide(u"  \u0416a\u00FF;b ");
  EXPECT_EQ(text.GetLength(), 8u);
  EXPECT_EQ(text.GetSize(), 16u);
  const WideString copy = text;
  text.Trim(Wide(u" ").GetBegin());
  text.MakeLower();
  EXPECT_EQ(text, Wide(u"\u0436a\u00FF;b"));
  text.MakeUpper();
  EXPECT_EQ(text, Wide(u"\u0416A\u0178;B"));
  EXPECT_EQ(text.CompareNoCase(Wide(u"\u0436a\u00FF;b").GetBegin()), 0);
  EXPECT_LT(text.CompareNoCase(Wide(u"\u0436b").GetBegin(), 2), 0);
  EXPECT_EQ(text.CompareNoCase(Wide(u"\u0436b").GetBegin(), 1), 0);
  EXPECT_EQ(text.Find(0x178) - text.GetBegin(), 2);
  const WideString twice = text + text;
  EXPECT_EQ(twice.FindLast('A') - twice.GetBegin(), 6);
  EXPECT_EQ(twice.FindLast('x'), twice.GetEnd());
  EXPECT_EQ(text.FindText(Wide(u";B").GetBegin()) - text.GetBegin(), 3);
  EXPECT_EQ(text.FindText(Wide(u";BC").GetBegin()), text.GetEnd());
  EXPECT_THAT(text.Split(Wide(u";").GetBegin()), ElementsAre(Wide(u"\u0416A\u0178"), Wide(u"B")));
  EXPECT_LT(Wide(u"a"), Wide(u"\u0100"));
  EXPECT_EQ((text + Wide(u"!")).GetLength(), 6u);
  EXPECT_EQ(copy.GetLength(), 8u);
  EXPECT_THAT(Places(Wide(u"\U0001F600x")), ElementsAre(0, 1, 2));
}
