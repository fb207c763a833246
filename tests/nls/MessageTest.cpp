// FormatMessage: the insert language, lines and widths, system messages, and texts that mean harm.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "kernel/CodePage.h"
#include "win32.h"

namespace {

using Arguments = std::vector<DWORD_PTR>;
using Wide = std::basic_string<WCHAR>;

// The arguments that are narrow text.
std::set<DWORD_PTR>& Texts() {
  static std::set<DWORD_PTR> texts;
  return texts;
}

DWORD_PTR P(const char* text) {
  return *Texts().insert(reinterpret_cast<DWORD_PTR>(text)).first;
}
DWORD_PTR P(const char16_t* text) {
  return reinterpret_cast<DWORD_PTR>(text);
}
constexpr DWORD_PTR Signed(std::int64_t number) {
  return static_cast<DWORD_PTR>(number);
}

Wide Widen(const std::string& ascii) {
  Wide wide;
  for (const char unit : ascii) wide.push_back(static_cast<unsigned char>(unit));
  return wide;
}

std::string Format(const char* text, const Arguments& arguments, DWORD flags = 0) {
  char buffer[512];
  SetLastError(4711);
  const DWORD length =
      FormatMessageA(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY | flags, text, 0, 0, buffer,
                     sizeof buffer, reinterpret_cast<va_list*>(const_cast<DWORD_PTR*>(arguments.data())));
  if (length == 0 && GetLastError() != 0) return "error " + std::to_string(GetLastError());
  EXPECT_EQ(buffer[length], '\0');
  return std::string(buffer, length);
}

std::string FormatList(const char* text, ...) {
  va_list arguments;
  va_start(arguments, text);
  char buffer[512];
  const DWORD length =
      FormatMessageA(FORMAT_MESSAGE_FROM_STRING, text, 0, 0, buffer, sizeof buffer, &arguments);
  // The list is read through a copy: a second call, as after a buffer that was too small, gets the same
  // arguments.
  char again[512];
  EXPECT_EQ(FormatMessageA(FORMAT_MESSAGE_FROM_STRING, text, 0, 0, again, sizeof again, &arguments), length);
  va_end(arguments);
  const std::string result(buffer, length);
  EXPECT_EQ(result, std::string(again, length));
  return result;
}

struct Row {
  const char* text;
  Arguments arguments;
  const char* result;
};

const Row rows[] = {
    {"plain", {}, "plain"},
    {"", {}, ""},
    {"%1", {P("")}, ""},
    {"%1 %2 %1", {P("Bill"), P("Bob")}, "Bill Bob Bill"},
    {"<%1!s!>", {P("text")}, "<text>"},
    {"<%1>", {0}, "<(null)>"},
    {"%1!8s!|%1!-8s!|%1!.2s!|%1!6.2s!", {P("abcd")}, "    abcd|abcd    |ab|    ab"},
    {"%10%2", {1, P("two"), 3, 4, 5, 6, 7, 8, 9, P("ten")}, "tentwo"},
    {"%1!d!,%1!i!,%1!u!,%1!x!,%1!X!,%1!o!", {Signed(-1)}, "-1,-1,4294967295,ffffffff,FFFFFFFF,37777777777"},
    {"%1!4x!:%1!04x!:%1!-4x!:%1!#x!:%1!#o!", {0xAB}, "  ab:00ab:ab  :0xab:0253"},
    {"%1!+d!% %1! d!%1!.3d!:%1!6.3d!:%1!06.3d!", {7}, "+7  7007:   007:   007"},
    {"%1!+05d!%2!+05d!%2!-5d!|", {7, Signed(-7)}, "+0007-0007-7   |"},
    {"%1!hd!,%1!hu!,%1!ld!,%1!I32d!", {0xFFFFF}, "-1,65535,1048575,1048575"},
    {"%1!I64d!,%1!I64x!,%1!lld!,%1!Id!,%1!u!", {0x100000002}, "4294967298,100000002,4294967298,4294967298,2"},
    {"%1!.0d!|%1!#x!|%1!#o!|%1!03u!", {0}, "|0|0|000"},
    {"%1!c!%2!c!%2!3c!%2!-3c!|%3!c!", {'a', 'b', 0}, "ab  bb  |"},
    {"%1!p!", {0xABCDE}, "00000000000ABCDE"},
    {"%1!S!,%1!ls!,%1!ws!,%1!.2S!,%2!C!,%2!lc!", {P(u"wide"), 0xE9}, "wide,wide,wide,wi,\xE9,\xE9"},
    {"%1!hs!,%1!hS!,%2!hc!", {P("narrow"), 'c'}, "narrow,narrow,c"},
    {"%1!*.*s! %4 %5!*s!", {4, 2, P("Bill"), P("Bob"), 6, P("Bill")}, "  Bi Bob   Bill"},
    {"%1!*u!,%3!-*u!|%5!.*u!", {5, 7, 4, 8, 3, 9}, "    7,8   |009"},
    {"%1!*u!|%3!.*u!", {Signed(-4), 7, Signed(-1), 8}, "7   |8"},
    {"a%nb%rc%td%be", {}, "a\r\nb\rc\td e"},
    {"%%1 %! %. % x%?%A", {}, "%1 ! .  x?A"},
    {"before%0after", {}, "before"},
    {"before%01", {}, "before"},
    {"a\nb\rc\r\nd\n\n", {}, "a\r\nb\r\nc\r\nd\r\n\r\n"},
    {"%1", {P("a\nb%2%n")}, "a\nb%2%n"},  // an insert is text, not a format
    // Malformed: the text may come from anywhere.
    {"%", {}, "error 87"},
    {"x%1!", {1}, "error 87"},
    {"x%1!s", {P("a")}, "error 87"},
    {"x%1!!", {P("a")}, "error 87"},
    {"x%1!5!", {P("a")}, "error 87"},
    {"x%1!n!", {P("a")}, "error 87"},
    {"x%1!f!", {1}, "error 87"},
    {"x%1!ss!", {P("a")}, "error 87"},
    {"x%1!**s!", {1, 1, P("a")}, "error 87"},
    {"x%1!-", {1}, "error 87"},
    {"x%1!\xE9!", {1}, "error 87"},
    {"x%1!I6", {1}, "error 87"},
    // Widths that fit no buffer must not send the caller to look for a larger one.
    {"%1!65536d!", {1}, "error 122"},
    {"%1!.65536d!", {1}, "error 122"},
    {"%1!65537d!", {1}, "error 87"},
    {"%1!65537s!", {P("a")}, "error 87"},
    {"%1!.65537d!", {1}, "error 87"},
    {"%1!999999999999d!", {1}, "error 87"},
    {"%1!.999999999999d!", {1}, "error 87"},
    {"%1!.999999999999s!", {P("whole")}, "whole"},
    {"%1!*d!", {0x80000000, 1}, "error 87"},
};

TEST(Message, InsertsFromAnArray) {
  ASSERT_TRUE(orm::platform::SetAnsiCodePage(1252));
  for (const Row& row : rows) EXPECT_EQ(Format(row.text, row.arguments), row.result) << row.text;
}

// The 16-bit form gives the same, apart from inserts that name a width of text.
TEST(Message, TheWideFormAgrees) {
  ASSERT_TRUE(orm::platform::SetAnsiCodePage(1252));
  for (const Row& row : rows) {
    if (std::string(row.text).find_first_of("sScC?") != std::string::npos) continue;
    const bool hasText = std::any_of(row.arguments.begin(), row.arguments.end(),
                                     [](DWORD_PTR argument) { return Texts().contains(argument); });
    if (hasText || std::string(row.result).find("error") != std::string::npos) continue;
    WCHAR buffer[512];
    const Wide text = Widen(row.text);
    const DWORD length =
        FormatMessageW(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY, text.c_str(), 0, 0, buffer,
                       512, reinterpret_cast<va_list*>(const_cast<DWORD_PTR*>(row.arguments.data())));
    EXPECT_EQ(Wide(buffer, length), Widen(row.result)) << row.text;
  }
  const DWORD_PTR arguments[] = {P(u"wide"), P("narrow\xE9"), 0xE9};
  const Wide text = Widen("%1 %1!.2s! %2!S! %2!hs! %3!C! %3!c!");
  WCHAR buffer[64];
  const DWORD length =
      FormatMessageW(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY, text.c_str(), 0, 0, buffer,
                     64, reinterpret_cast<va_list*>(const_cast<DWORD_PTR*>(arguments)));
  EXPECT_EQ(Wide(buffer, length), Widen("wide wi narrow\xE9 narrow\xE9 \xE9 \xE9"));
}

TEST(Message, InsertsFromAList) {
  EXPECT_EQ(FormatList("%1 %2!d! %3!I64x! %1", "one", -2, std::int64_t{1} << 40), "one -2 10000000000 one");
  EXPECT_EQ(FormatList("%8 %7!u! %1", "a", 2, 3, 4, 5, 6, 7, "eight"), "eight 7 a");
  // The value after an asterisk has no number in a list.
  EXPECT_EQ(FormatList("%1!*.*s! %3 %4!*s!", 4, 2, "Bill", "Bob", 6, "Bill"), "  Bi Bob   Bill");
  EXPECT_EQ(FormatList("%1!*u!%2!u!", 3, 7, 8), "  78");
}

TEST(Message, TheTraceHeader) {
  EXPECT_EQ(Format("%1!-8s!|%2!-8s!|%3!c!|%4!4x!:%5!4x!|%6!6u!.%7!03u!|%8!8s!|%9!12s!|%10!4u!|",
                   {P("ormutil"), P("string"), 'e', 0x1F, 0xABCDE, 12, 7, P("5:07 PM"), P("BaseString"), 42},
                   FORMAT_MESSAGE_MAX_WIDTH_MASK),
            "ormutil |string  |e|  1f:abcde|    12.007| 5:07 PM|  BaseString|  42|");
}

TEST(Message, LinesAndWidths) {
  const struct {
    DWORD width;
    const char* text;
    const char* result;
  } widths[] = {
      {0xFF, "one\ntwo\r\nthree%nfour\r\n", "one two three\r\nfour "},
      {10, "the quick brown fox", "the quick\r\nbrown fox"},
      {9, "the quick brown fox", "the quick\r\nbrown fox"},
      {8, "the quick brown fox", "the\r\nquick\r\nbrown\r\nfox"},
      {4, "unbreakable word", "unbreakable\r\nword"},
      {5, "ab\ncd\nef", "ab cd\r\nef"},
      {5, "ab%ncd ef gh", "ab\r\ncd ef\r\ngh"},
      {6, "%1 end", "an in\r\nsert\r\nend"},
  };
  for (const auto& row : widths)
    EXPECT_EQ(Format(row.text, {P("an in sert")}, row.width), row.result) << row.width << ' ' << row.text;
}

TEST(Message, IgnoredInsertsStay) {
  EXPECT_EQ(Format("%1 %23!d! a%n100%%%.", {}, FORMAT_MESSAGE_IGNORE_INSERTS), "%1 %23!d! a\r\n100%.");
  EXPECT_EQ(Format("%", {}, FORMAT_MESSAGE_IGNORE_INSERTS), "error 87");
  EXPECT_EQ(Format("a%0b", {}, FORMAT_MESSAGE_IGNORE_INSERTS), "a");
  char buffer[32];
  EXPECT_EQ(FormatMessageA(FORMAT_MESSAGE_FROM_STRING, "%1", 0, 0, buffer, 32, nullptr), 0u);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(Message, PrecisionAndConversionKeepCharactersWhole) {
  ASSERT_TRUE(orm::platform::SetAnsiCodePage(932));
  EXPECT_EQ(Format("%1!.3s!|%1!4.3s!", {P("\x83\x5C\x95\x5C")}), "\x83\x5C|  \x83\x5C");
  EXPECT_EQ(Format("%1!S!", {P(u"ソ表\\")}), "\x83\x5C\x95\x5C\\");
  EXPECT_EQ(Format("\x83\x5C%1\x95\x5C", {P("\\")}), "\x83\x5C\\\x95\x5C");
  ASSERT_TRUE(orm::platform::SetAnsiCodePage(65001));
  EXPECT_EQ(Format("%1!.4s!", {P("a\xE2\x82\xAC\xE2\x82\xAC")}), "a\xE2\x82\xAC");
  EXPECT_EQ(Format("%1!.3s!", {P("a\xE2\x82\xAC\xE2\x82\xAC")}), "a");
  EXPECT_EQ(Format("%1!S!", {P(u"😀")}), "\xF0\x9F\x98\x80");
}

TEST(Message, BufferSizes) {
  char buffer[8];
  const auto call = [&](DWORD size) {
    buffer[0] = 'x';
    return FormatMessageA(FORMAT_MESSAGE_FROM_STRING, "seven..", 0, 0, buffer, size, nullptr);
  };
  EXPECT_EQ(call(8), 7u);
  EXPECT_STREQ(buffer, "seven..");
  for (const DWORD size : {7u, 1u, 0u}) {
    EXPECT_EQ(call(size), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(buffer[0], size == 0 ? 'x' : '\0');
  }
}

TEST(Message, AllocatedBuffers) {
  char* text = nullptr;
  const Arguments arguments = {P("insert")};
  auto* list = reinterpret_cast<va_list*>(const_cast<DWORD_PTR*>(arguments.data()));
  constexpr DWORD flags =
      FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY | FORMAT_MESSAGE_ALLOCATE_BUFFER;
  EXPECT_EQ(FormatMessageA(flags, "%1!60000s!", 0, 0, reinterpret_cast<char*>(&text), 0, list), 60000u);
  EXPECT_EQ(std::string(text).size(), 60000u);
  EXPECT_EQ(LocalFree(text), nullptr);
  EXPECT_EQ(FormatMessageA(flags, "%1", 0, 0, reinterpret_cast<char*>(&text), 5000, list), 6u);
  text[4999] = 'x';  // at least so much was asked for
  LocalFree(text);
  EXPECT_EQ(FormatMessageA(flags, "%1!65536s!", 0, 0, reinterpret_cast<char*>(&text), 0, list), 0u);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(text, nullptr);
}

std::string System(DWORD code, DWORD flags = FORMAT_MESSAGE_IGNORE_INSERTS, DWORD language = 0) {
  char buffer[512];
  const DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | flags, nullptr, code, language, buffer,
                                      sizeof buffer, nullptr);
  return length == 0 ? "error " + std::to_string(GetLastError()) : std::string(buffer, length);
}

TEST(Message, SystemMessages) {
  EXPECT_EQ(System(2), "The system cannot find the file specified.\r\n");
  EXPECT_EQ(System(2, 0x2FF), "The system cannot find the file specified. ");
  EXPECT_EQ(System(0x80070005, 0x2FF), "Access is denied. ");
  EXPECT_EQ(System(193), "%1 is not a valid Win32 application.\r\n");
  EXPECT_EQ(System(193, 0), "error 87");
  EXPECT_EQ(System(4711), "error 317");
  EXPECT_EQ(System(0xE7210001), "error 317");
  EXPECT_EQ(System(2, 0x200, 0x409), "The system cannot find the file specified.\r\n");
  EXPECT_EQ(System(2, 0x200, 0x407), "error 1815");
  char buffer[64];
  EXPECT_EQ(FormatMessageA(0, nullptr, 2, 0, buffer, 64, nullptr), 0u);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(FormatMessageA(FORMAT_MESSAGE_FROM_HMODULE, nullptr, 2, 0, buffer, 64, nullptr), 0u);
  EXPECT_EQ(GetLastError(), ERROR_RESOURCE_TYPE_NOT_FOUND);
  EXPECT_GT(FormatMessageA(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 2, 0, buffer,
                           64, nullptr),
            0u);
}

// Every number that this platform's own code reports has a text.
TEST(Message, EveryErrorNumberInUseHasAText) {
  for (const DWORD code :
       {0u,    1u,    2u,    3u,    4u,    5u,    6u,    8u,    11u,   13u,   14u,   15u,   18u,
        19u,   29u,   30u,   31u,   32u,   38u,   39u,   50u,   80u,   87u,   89u,   112u,  120u,
        122u,  123u,  126u,  127u,  131u,  145u,  161u,  170u,  183u,  193u,  206u,  234u,  259u,
        267u,  288u,  298u,  317u,  487u,  1004u, 1009u, 1010u, 1011u, 1012u, 1013u, 1018u, 1020u,
        1113u, 1114u, 1400u, 1444u, 1450u, 1460u, 1812u, 1813u, 1814u, 1815u})
    EXPECT_NE(System(code).substr(0, 6), "error ") << code;
}

// Any text whatever gives a message or an error, in any buffer, and touches nothing else; the sanitizers
// watch.
TEST(Message, RandomTexts) {
  std::mt19937 random(20261124);
  const std::string alphabet = "%%%%%123456789!!!!*.-+0# hlIwcCsSdiuxXop\n\r ab\x83\x5C";
  std::vector<DWORD_PTR> arguments(102, P("insert"));
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    for (std::size_t i = random() % 24; i > 0; --i) text.push_back(alphabet[random() % alphabet.size()]);
    const std::size_t room = random() % 40;
    // Exactly as large as it says, and the text exactly as long, so that a step beyond either is seen.
    const std::unique_ptr<char[]> buffer(new char[room]);
    const std::vector<char> exact(text.c_str(), text.c_str() + text.size() + 1);
    const DWORD flags =
        FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY | (random() % 2 ? random() % 256 : 0);
    const DWORD length = FormatMessageA(flags, exact.data(), 0, 0, buffer.get(), static_cast<DWORD>(room),
                                        reinterpret_cast<va_list*>(arguments.data()));
    ASSERT_TRUE(length == 0 || length < room) << text;
    if (length != 0) {
      ASSERT_EQ(buffer[length], '\0') << text;
    }
  }
}

}  // namespace
