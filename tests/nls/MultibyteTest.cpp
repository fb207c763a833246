// The multibyte string functions in the three kinds of code page.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kernel/CodePage.h"
#include "win32.h"

namespace {

using Byte = unsigned char;

const Byte* U(const char* text) {
  return reinterpret_cast<const Byte*>(text);
}

class Multibyte : public testing::Test {
 protected:
  static void Use(UINT page) { ASSERT_TRUE(orm::platform::SetAnsiCodePage(page)); }
};

struct TextRow {
  UINT page;
  std::string text;
  std::vector<unsigned> codes;
};

// The byte 0x5C ends a character in the second row and is a backslash in the last place.
const TextRow texts[] = {
    {1252, "a\xE9\\", {'a', 0xE9, '\\'}},
    {932, "a\x83\x5C\xB1\\", {'a', 0x835C, 0xB1, '\\'}},
    {932, "\x81\x81\x81\x81", {0x8181, 0x8181}},
    {932, "a\x83", {'a', 0x83}},  // a lead byte before the terminator is a character
    {949, "\xC7\xD1!\xB1\xDB", {0xC7D1, '!', 0xB1DB}},
    {65001, "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z", {'a', 0xC3A9, 0xE282AC, 0xF09F9880, 'z'}},
    {65001, "\xC3\xE2\x82z\xBF", {0xC3, 0xE2, 0x82, 'z', 0xBF}},  // nothing well-formed: byte by byte
    {65001, "\xC3", {0xC3}},
    {1252, "", {}},
};

TEST_F(Multibyte, WalkForwardAndBackward) {
  for (const TextRow& row : texts) {
    SCOPED_TRACE(testing::Message() << row.page << ' ' << row.text);
    Use(row.page);
    const Byte* const start = U(row.text.c_str());
    const Byte* const end = start + row.text.size();
    EXPECT_EQ(_mbslen(start), row.codes.size());
    EXPECT_EQ(_mbsnccnt(start, row.text.size()), row.codes.size());
    std::vector<const Byte*> places;
    const Byte* at = start;
    for (const unsigned code : row.codes) {
      EXPECT_EQ(_mbsnextc(at), code);
      EXPECT_EQ(_mbschr(start, code) <= at, true);
      EXPECT_EQ(_mbsrchr(start, code) >= at, true);
      places.push_back(at);
      at = _mbsinc(at);
    }
    EXPECT_EQ(at, end);
    EXPECT_EQ(_mbsninc(start, row.codes.size()), end);
    EXPECT_EQ(_mbsninc(start, 1000), end);
    for (; !places.empty(); places.pop_back()) {
      EXPECT_EQ(_mbsdec(start, at), places.back());
      at = places.back();
    }
    EXPECT_EQ(_mbsdec(start, start), nullptr);
  }
}

TEST_F(Multibyte, ATrailByteIsNoCharacter) {
  Use(932);
  const Byte* path = U("\x83\x5C\x95\x5C\\file");
  EXPECT_EQ(_mbschr(path, '\\'), path + 4);
  EXPECT_EQ(_mbsrchr(path, '\\'), path + 4);
  EXPECT_EQ(_mbschr(path, 0x5C95), nullptr);
  EXPECT_EQ(_mbsstr(path, U("\\")), path + 4);
  EXPECT_EQ(_mbsstr(path, U("\x95\x5C")), path + 2);
  EXPECT_EQ(_mbscspn(path, U("\\/")), 4u);
  EXPECT_EQ(_mbsspn(path, U("\x95\x5C\x83\x5C")), 4u);
  EXPECT_EQ(_mbspbrk(path + 2, U("\x83\\")), nullptr);  // the set is one character, not two
  EXPECT_EQ(_mbsspnp(path, U("\x83\x5C")), path + 2);
  EXPECT_EQ(_mbschr(path, 0), path + 9);
  EXPECT_EQ(_ismbslead(path, path), -1);
  EXPECT_EQ(_ismbstrail(path, path + 1), -1);
  EXPECT_EQ(_ismbstrail(path, path + 4), 0);
  EXPECT_EQ(_ismbslead(path, path + 4), 0);
  Use(65001);
  EXPECT_EQ(_mbsstr(U("\xE2\x82\xAC"), U("\x82")), nullptr);
  Use(932);
  EXPECT_TRUE(_ismbblead(0x83));
  EXPECT_TRUE(_ismbbtrail(0x5C));
  EXPECT_FALSE(_ismbbtrail(0x7F));
}

TEST_F(Multibyte, Comparisons) {
  const struct {
    UINT page;
    const char* left;
    const char* right;
    int exact;
    int folded;
  } rows[] = {
      {1252, "abc", "abc", 0, 0},
      {1252, "abc", "ABC", 1, 0},
      {1252, "ab", "abc", -1, -1},
      {1252, "", "a", -1, -1},
      {1252, "\xE9t\xE9", "\xC9T\xC9", 1, 0},  // é, É
      {1252, "\xFF", "\x9F", 1, 0},            // ÿ, Ÿ
      {1252, "z", "\xE9", -1, -1},             // bytes are unsigned
      {1252, "\xD7", "\xF7", -1, -1},          // signs have no case
      {1251, "\xE6", "\xC6", 1, 0},            // Cyrillic
      {1254, "i", "\xDD", -1, -1},             // a dotted capital I is no I
      {932, "\xB1", "\x88\x9F", -1, -1},       // by codes: the single byte first, though its byte is larger
      {932, "\x82\x60", "\x82\x81", -1, 0},    // full-width A and a
      {932, "\x83\xBF", "\x83\x9F", 1, 0},     // Greek
      {932, "\x83\x41", "\x83\x61", -1, -1},   // the trail byte of a kana is no letter
      {65001, "\xC3\xA9", "\xC3\x89", 1, 0},
      {65001, "\xE2\x82\xAC", "\xF0\x9F\x98\x80", -1, -1},
      {65001, "\xF0\x90\x90\xA8", "\xF0\x90\x90\x80", 1, 0},  // beyond the basic plane
      {65001, "K", "\xE2\x84\xAA", -1, -1},                   // the Kelvin sign is no K
      {65001, "\xC3", "\xC3\x89", -1, -1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.page << ' ' << row.left << ' ' << row.right);
    Use(row.page);
    EXPECT_EQ(_mbscmp(U(row.left), U(row.right)), row.exact);
    EXPECT_EQ(_mbscmp(U(row.right), U(row.left)), -row.exact);
    EXPECT_EQ(_mbsicmp(U(row.left), U(row.right)), row.folded);
    EXPECT_EQ(_mbsncmp(U(row.left), U(row.right), 100), row.exact);
    EXPECT_EQ(_mbsnicmp(U(row.left), U(row.right), 100), row.folded);
    EXPECT_EQ(_mbsnbcmp(U(row.left), U(row.right), 100), row.exact);
    EXPECT_EQ(_mbsnbicmp(U(row.left), U(row.right), 100), row.folded);
  }
}

TEST_F(Multibyte, CountedComparisonsCountCharactersOrBytes) {
  Use(932);
  const Byte* left =
      U("\x83\x5C"
        "abc");
  const Byte* right =
      U("\x83\x5C"
        "abD");
  EXPECT_EQ(_mbsncmp(left, right, 3), 0);
  EXPECT_EQ(_mbsncmp(left, right, 4), 1);
  EXPECT_EQ(_mbsnicmp(left, right, 4), -1);  // c before d
  EXPECT_EQ(_mbsnbcmp(left, right, 4), 0);
  EXPECT_EQ(_mbsnbcmp(left, right, 5), 1);
  EXPECT_EQ(_mbsnbcmp(U("\x83\x5C"), U("\x83\x5D"), 1), 0);  // half a character
  EXPECT_EQ(_mbsncmp(left, right, 0), 0);
}

TEST_F(Multibyte, LetterCaseInPlace) {
  const struct {
    UINT page;
    const char* text;
    const char* lower;
    const char* upper;
  } rows[] = {
      {1252, "C:\\Dir\xC9.DLL\xDF", "c:\\dir\xE9.dll\xDF", "C:\\DIR\xC9.DLL\xDF"},
      {932,
       "\x83\x41"
       "A\x82\x60z",
       "\x83\x41"
       "a\x82\x81z",
       "\x83\x41"
       "A\x82\x60Z"},
      {65001, "\xC3\x89Z\xC8\xBA", "\xC3\xA9z\xC8\xBA",
       "\xC3\x89Z\xC8\xBA"},  // the last one's partner is longer
  };
  for (const auto& row : rows) {
    Use(row.page);
    std::string text = row.text;
    _mbslwr(reinterpret_cast<Byte*>(text.data()));
    EXPECT_EQ(text, row.lower) << row.page;
    text = row.text;
    _mbsupr(reinterpret_cast<Byte*>(text.data()));
    EXPECT_EQ(text, row.upper) << row.page;
  }
}

TEST_F(Multibyte, Copies) {
  Use(932);
  Byte room[8];
  std::memset(room, 'x', sizeof room);
  _mbsnbcpy(room,
            U("a\x83\x5C"
              "b"),
            2);  // half a character does not fit
  EXPECT_EQ(std::memcmp(room, "a\0x", 3), 0);
  std::memset(room, 'x', sizeof room);
  _mbsncpy(room,
           U("\x83\x5C"
             "b"),
           2);
  EXPECT_EQ(std::memcmp(room,
                        "\x83\x5C"
                        "bx",
                        4),
            0);
  _mbscpy(room, U("ab"));
  _mbscat(room, U("cd"));
  EXPECT_STREQ(reinterpret_cast<char*>(room), "abcd");
  EXPECT_EQ(_mbsnbcnt(U("\x83\x5C"
                        "b"),
                      1),
            2u);
}

int Print(char* buffer, std::size_t size, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = _vsnprintf(buffer, size, format, arguments);
  va_end(arguments);
  return length;
}

TEST_F(Multibyte, PrintfTellsWhenTheTextDoesNotFit) {
  char room[6] = "zzzzz";
  EXPECT_EQ(Print(room, 5, "%d", 1234), 4);
  EXPECT_STREQ(room, "1234");
  EXPECT_EQ(Print(room, 5, "%d", 12345), 5);  // no room for a terminator, and none written
  EXPECT_EQ(std::string(room, 6), std::string("12345\0", 6));
  std::memcpy(room, "zzzzz", 6);
  EXPECT_EQ(Print(room, 4, "%d", 98765), -1);
  EXPECT_EQ(std::string(room, 5), "9876z");
  EXPECT_EQ(Print(nullptr, 0, "%d", 1), -1);
}

}  // namespace
