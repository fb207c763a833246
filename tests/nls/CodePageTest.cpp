// Code pages: which there are, what each of them means by its bytes, and how conversions fail.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "kernel/CodePage.h"
#include "support/ScarceMemory.h"
#include "win32.h"

namespace {

using Wide = std::basic_string<WCHAR>;

Wide W(const char16_t* text) {
  return Wide(reinterpret_cast<const WCHAR*>(text));
}

Wide Decode(UINT page, const std::string& text, DWORD flags = 0) {
  const int size = static_cast<int>(text.size());
  Wide wide(static_cast<std::size_t>(MultiByteToWideChar(page, flags, text.data(), size, nullptr, 0)), 0);
  EXPECT_EQ(MultiByteToWideChar(page, flags, text.data(), size, wide.data(), static_cast<int>(wide.size())),
            static_cast<int>(wide.size()));
  return wide;
}

std::string Encode(UINT page, const Wide& wide, BOOL* usedDefault = nullptr,
                   const char* defaultChar = nullptr) {
  const int size = static_cast<int>(wide.size());
  std::string text(static_cast<std::size_t>(
                       WideCharToMultiByte(page, 0, wide.data(), size, nullptr, 0, defaultChar, usedDefault)),
                   '\0');
  EXPECT_EQ(WideCharToMultiByte(page, 0, wide.data(), size, text.data(), static_cast<int>(text.size()),
                                defaultChar, usedDefault),
            static_cast<int>(text.size()));
  return text;
}

constexpr UINT singleBytePages[] = {874, 1250, 1251, 1252, 1253, 1254, 1255, 1256, 1257, 1258};
constexpr UINT doubleBytePages[] = {932, 936, 949, 950};

TEST(CodePage, EachPageReadsAndWritesItsOwnLetters) {
  const struct {
    UINT page;
    const char* bytes;
    const char16_t* text;
  } rows[] = {
      {1250, "\x8A\xE6\xB3\x80", u"Šćł€"},
      {1251, "\xC6\xF3\xEA\xB8", u"Жукё"},
      {1252, "\xE9\xFC\x80\x9F\x85", u"éü€Ÿ…"},
      {1253, "\xC1\xE8\xDE\xFE", u"Αθήώ"},
      {1254, "\xD0\xFD\xDE", u"ĞıŞ"},
      {1255, "\xF9\xEC\xE5\xED", u"שלום"},
      {1256, "\xD3\xE1\xC7\xE3", u"سلام"},
      {1257, "\xE0\xE8\xF0\xFE", u"ąčšž"},
      {1258, "\xD5\xFD\xF0\xFE", u"Ơưđ₫"},
      {874, "\xA1\xD2\xC3\x80", u"การ€"},
      {932, "\x83\x5C\xB1\x95\x5C\\", u"ソｱ表\\"},  // two characters end in the byte of a backslash
      {936, "\xD6\xD0\x81\x5C\x80", u"中乗€"},
      {949, "\xC7\xD1\xB1\xDB\x81\x41", u"한글갂"},
      {950, "\xA4\xA4\xB3\x5C", u"中許"},
      {65001, "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", u"aé€😀"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.page);
    EXPECT_EQ(Decode(row.page, row.bytes, MB_ERR_INVALID_CHARS), W(row.text));
    EXPECT_EQ(Encode(row.page, W(row.text)), row.bytes);
  }
}

// Nothing that a page holds is lost on the way to UTF-16 and back, whatever the bytes: undefined ones too.
TEST(CodePage, EveryByteSurvivesTheRoundTrip) {
  for (const UINT page : singleBytePages) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte) all.push_back(static_cast<char>(byte));
    BOOL usedDefault = TRUE;
    EXPECT_EQ(Encode(page, Decode(page, all), &usedDefault), all) << page;
    EXPECT_FALSE(usedDefault) << page;
  }
}

TEST(CodePage, EveryPairKeepsItsMeaning) {
  for (const UINT page : doubleBytePages) {
    int meanings = 0;
    for (int code = 0x8100; code < 0xFF00; ++code) {
      const std::string pair = {static_cast<char>(code >> 8), static_cast<char>(code)};
      if (!IsDBCSLeadByteEx(page, static_cast<BYTE>(code >> 8))) continue;
      const char* text = pair.data();
      WCHAR unit[2];
      if (MultiByteToWideChar(page, MB_ERR_INVALID_CHARS, text, 2, unit, 2) != 1) continue;
      ++meanings;
      // Some characters have several codes; each leads to the preferred one, which means the same.
      ASSERT_EQ(Decode(page, Encode(page, Wide(1, unit[0]))), Wide(1, unit[0])) << page << ' ' << code;
    }
    EXPECT_GT(meanings, 9000) << page;
  }
}

TEST(CodePage, AsciiIsAsciiInEveryPage) {
  std::string ascii;
  Wide wide;
  for (char letter = 1; letter > 0; letter = static_cast<char>(letter + 1)) {
    ascii.push_back(letter);
    wide.push_back(static_cast<WCHAR>(letter));
    if (letter == 127) break;
  }
  for (const UINT page : {874u, 932u, 936u, 949u, 950u, 1252u, 1258u, 65001u}) {
    EXPECT_EQ(Decode(page, ascii), wide) << page;
    EXPECT_EQ(Encode(page, wide), ascii) << page;
  }
}

TEST(CodePage, ACharacterThatThePageLacksBecomesTheDefault) {
  BOOL used = FALSE;
  EXPECT_EQ(Encode(1252, W(u"a→b"), &used), "a?b");
  EXPECT_TRUE(used);
  EXPECT_EQ(Encode(1252, W(u"a→b"), &used, "#"), "a#b");
  EXPECT_EQ(Encode(932, W(u"aéb"), &used, "\x81\x48"),
            "a\x81\x48"
            "b");
  EXPECT_EQ(Encode(1252, W(u"é"), &used), "\xE9");
  EXPECT_FALSE(used);
  // No letter is taken for one that looks like it.
  EXPECT_EQ(Encode(1252, W(u"Ā"), &used), "?");
}

TEST(CodePage, IllFormedUtf8) {
  const struct {
    const char* bytes;
    const char16_t* text;
  } rows[] = {
      {"\x80", u"\xFFFD"},                                // continuation alone
      {"\xC0\xAF", u"\xFFFD\xFFFD"},                      // overlong slash
      {"\xE0\x80\xAF", u"\xFFFD\xFFFD\xFFFD"},            // overlong
      {"\xED\xA0\x80", u"\xFFFD\xFFFD\xFFFD"},            // surrogate
      {"\xF4\x90\x80\x80", u"\xFFFD\xFFFD\xFFFD\xFFFD"},  // above U+10FFFF
      {"\xE2\x82", u"\xFFFD"},                            // cut short: one mark for what was good so far
      {"\xE2\x82"
       "A",
       u"\xFFFD"
       u"A"},
      {"\xF0\x9F\x98"
       "\xC3\xA9",
       u"\xFFFDé"},
      {"\xFF\xFE", u"\xFFFD\xFFFD"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Decode(65001, row.bytes), W(row.text)) << row.bytes;
    SetLastError(0);
    EXPECT_EQ(MultiByteToWideChar(65001, MB_ERR_INVALID_CHARS, row.bytes, -1, nullptr, 0), 0);
    EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
  }
  const WCHAR lone[] = {'a', 0xD83D, 'b', 0xDE00};
  EXPECT_EQ(Encode(65001, Wide(lone, 4)),
            "a\xEF\xBF\xBD"
            "b\xEF\xBF\xBD");
  EXPECT_EQ(WideCharToMultiByte(65001, WC_ERR_INVALID_CHARS, lone, 4, nullptr, 0, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
}

TEST(CodePage, PairsWithoutMeaning) {
  EXPECT_EQ(Decode(932, "\x85\x40z"), W(u"・z"));
  EXPECT_EQ(Decode(936, "\xFF\x30"), Wide({0xF8F5, '0'}));
  EXPECT_EQ(Decode(950, "\x81"), W(u"?"));                                    // lead byte at the end
  EXPECT_EQ(Decode(932, std::string("\x81\0z", 3)), Wide({0x30FB, 0, 'z'}));  // the terminator is never eaten
  EXPECT_EQ(MultiByteToWideChar(932, MB_ERR_INVALID_CHARS, "\x85\x40", 2, nullptr, 0), 0);
  EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
}

TEST(CodePage, LengthsAndFailures) {
  WCHAR wide[8] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
  char text[8];
  const WCHAR abc[] = {'a', 'b', 'c', 0};
  EXPECT_EQ(MultiByteToWideChar(1252, 0, "abc", -1, nullptr, 0), 4);
  EXPECT_EQ(MultiByteToWideChar(1252, 0, "abc", 2, wide, 8), 2);
  EXPECT_EQ(wide[2], 'x');  // a counted text gets no terminator
  EXPECT_EQ(WideCharToMultiByte(1252, 0, abc, -1, text, 4, nullptr, nullptr), 4);
  EXPECT_STREQ(text, "abc");

  const struct {
    std::function<int()> call;
    DWORD error;
  } rows[] = {
      {[&] { return MultiByteToWideChar(1252, 0, "abc", -1, wide, 3); }, ERROR_INSUFFICIENT_BUFFER},
      {[&] { return MultiByteToWideChar(1252, 0, "abc", 0, wide, 8); }, ERROR_INVALID_PARAMETER},
      {[&] { return MultiByteToWideChar(1252, 0, "abc", -2, wide, 8); }, ERROR_INVALID_PARAMETER},
      {[&] { return MultiByteToWideChar(1252, 0, nullptr, -1, wide, 8); }, ERROR_INVALID_PARAMETER},
      {[&] { return MultiByteToWideChar(1252, 0, "abc", -1, nullptr, 8); }, ERROR_INVALID_PARAMETER},
      {[&] { return MultiByteToWideChar(1200, 0, "abc", -1, wide, 8); }, ERROR_INVALID_PARAMETER},
      {[&] { return MultiByteToWideChar(4711, 0, "abc", -1, wide, 8); }, ERROR_INVALID_PARAMETER},
      {[&] { return MultiByteToWideChar(1252, 0x4000, "abc", -1, wide, 8); }, ERROR_INVALID_FLAGS},
      {[&] { return WideCharToMultiByte(932, 0, abc, -1, text, 3, nullptr, nullptr); },
       ERROR_INSUFFICIENT_BUFFER},
      {[&] { return WideCharToMultiByte(65001, 0, abc, -1, text, 8, "?", nullptr); },
       ERROR_INVALID_PARAMETER},
      {[&] { return WideCharToMultiByte(1252, 0, abc, -1, text, -1, nullptr, nullptr); },
       ERROR_INVALID_PARAMETER},
      {[&] { return WideCharToMultiByte(1252, WC_ERR_INVALID_CHARS, abc, -1, text, 8, nullptr, nullptr); },
       ERROR_INVALID_FLAGS},
  };
  int index = 0;
  for (const auto& row : rows) {
    SetLastError(0);
    EXPECT_EQ(row.call(), 0) << index;
    EXPECT_EQ(GetLastError(), row.error) << index++;
  }
}

TEST(CodePage, Descriptions) {
  CPINFO info;
  ASSERT_TRUE(GetCPInfo(932, &info));
  EXPECT_EQ(info.MaxCharSize, 2u);
  const BYTE leads[] = {0x81, 0x9F, 0xE0, 0xFC, 0, 0};
  EXPECT_TRUE(std::equal(std::begin(leads), std::end(leads), info.LeadByte));
  ASSERT_TRUE(GetCPInfo(65001, &info));
  EXPECT_EQ(info.MaxCharSize, 4u);
  EXPECT_EQ(info.LeadByte[0], 0);
  EXPECT_FALSE(GetCPInfo(1200, &info));
  EXPECT_TRUE(IsDBCSLeadByteEx(949, 0xFE));
  EXPECT_FALSE(IsDBCSLeadByteEx(932, 0xA0));
  EXPECT_FALSE(IsDBCSLeadByteEx(65001, 0xE2));
  for (const UINT page : {1200u, 0u, 1u, 3u, 437u, 65000u, 99999u})
    EXPECT_FALSE(IsValidCodePage(page)) << page;
  for (const UINT page : {874u, 932u, 950u, 1250u, 1258u, 65001u}) EXPECT_TRUE(IsValidCodePage(page)) << page;
}

TEST(CodePage, Utf8AndAnsi) {
  ASSERT_TRUE(orm::platform::SetAnsiCodePage(932));
  EXPECT_EQ(GetACP(), 932u);
  EXPECT_EQ(orm::platform::Utf8FromAnsi("\x83\x5C\\"), "ソ\\");
  EXPECT_EQ(orm::platform::AnsiFromUtf8("ソ\\é\xFFz"), "\x83\x5C\\??z");
  ASSERT_TRUE(orm::platform::SetAnsiCodePage(65001));
  EXPECT_EQ(orm::platform::AnsiFromUtf8("bad \xFF name"), "bad \xFF name");
  EXPECT_EQ(orm::platform::Utf8FromAnsi("bad \xFF name"), "bad \xFF name");
  EXPECT_FALSE(orm::platform::SetAnsiCodePage(1200));
  EXPECT_EQ(GetACP(), 65001u);
}

// Each call is the first to ask for its page's tables.
TEST(CodePage, TablesThatLackMemoryAreAFailure) {
  CPINFO info;
  WCHAR wide[] = {'x', 0};
  const SYSTEMTIME day{2026, 11, 3, 25, 0, 0, 0, 0};
  const struct {
    std::function<int()> call;
    int result;
  } rows[] = {
      {[&] { return MultiByteToWideChar(1257, 0, "x", -1, nullptr, 0); }, 2},
      {[&] { return WideCharToMultiByte(1258, 0, wide, -1, nullptr, 0, nullptr, nullptr); }, 2},
      {[&] { return GetCPInfo(874, &info); }, TRUE},
      {[&] { return IsDBCSLeadByteEx(936, 0x81); }, TRUE},
      {[&] {
         return GetDateFormatA(0x409, 0, &day, "'a text that is too long for its own object'", nullptr, 0);
       },
       43},
  };
  for (const auto& row : rows) {
    bool isRefused = false;
    int result = -1;
    SetLastError(0);
    if (test::RefuseAllocation(
            0, [&] { result = row.call(); }, isRefused)) {
      EXPECT_FALSE(isRefused);
      EXPECT_EQ(result, 0) << &row - rows;
      EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
    }
    EXPECT_EQ(row.call(), row.result) << &row - rows;
  }
  bool isRefused = false;
  test::RefuseAllocation(
      0, [] { EXPECT_TRUE(IsValidCodePage(1256)); }, isRefused);
  EXPECT_FALSE(isRefused);
}

// Also the question for the process's own page, which is asked here for the first time.
TEST(CodePage, TablesMayBeBuiltByManyThreadsAtOnce) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([] {
      EXPECT_TRUE(IsValidCodePage(GetACP()));
      for (const UINT page : doubleBytePages) EXPECT_EQ(Decode(page, "a\x81"), Decode(page, "a\x81"));
    });
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
