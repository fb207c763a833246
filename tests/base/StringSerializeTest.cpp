// The serialized form of strings: its bytes, conversions, and bytes that are not one.
#include <ormutil/BaseString.h>

#include <functional>
#include <memory>
#include <string>

#include "AssertionLog.h"
#include "WipeWatch.h"
#include "kernel/CodePage.h"

using namespace orm;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::string_literals;

namespace {

struct Outcome {
  std::string text;
  size_t consumed;
};

// Wide text is its UTF-16 bytes.
template <class Traits>
std::string Bytes(const BaseString<Traits>& text) {
  return std::string(reinterpret_cast<const char*>(text.GetBegin()), text.GetSize());
}

// Reads from a heap block of exactly these bytes, at both parities of the address.
template <class StringType>
Outcome Read(const std::string& bytes, unsigned codePage = 0) {
  Outcome outcome{};
  for (size_t shift : {1u, 0u}) {
    const std::unique_ptr<unsigned char[]> memory(new unsigned char[bytes.size() + shift]);
    std::copy(bytes.begin(), bytes.end(), memory.get() + shift);
    StringType text;
    text.PrepareWriting(40, false)[0] = 'x';
    text.PrepareWriting(40, false)[1] = 0;
    outcome.consumed = text.Deserialize(memory.get() + shift, bytes.size(), codePage);
    outcome.text = Bytes(text);
  }
  return outcome;
}

std::string Number(uint32_t value) {
  unsigned char bytes[4];
  string_detail::Store32(bytes, value);
  return std::string(reinterpret_cast<char*>(bytes), 4);
}

std::string Stored(uint32_t codePage, const std::string& text) {
  return Number(static_cast<uint32_t>(text.size())) + Number(codePage) + text;
}

std::string Serialized(const auto& text, unsigned codePage) {
  std::string bytes(text.GetSerializedSize(codePage), 0);
  text.Serialize(reinterpret_cast<unsigned char*>(bytes.data()), codePage);
  return bytes;
}

const WideString kWide(reinterpret_cast<const unsigned short*>(u"\u00E4b"));

}  // namespace

TEST(StringSerialize, HasFixedBytes) {
  EXPECT_EQ(Serialized(String(), 0), Number(0));
  EXPECT_EQ(Serialized(String("abc"), 0), "\x04\0\0\0\xE4\x04\0\0abc\0"s);
  EXPECT_EQ(Serialized(String("abc"), 932), Stored(932, "abc\0"s));
  EXPECT_EQ(Serialized(kWide, 0), Stored(1200, "\xE4\0b\0\0\0"s));
}

TEST(StringSerialize, ReadsAndConverts) {
  struct Row {
    std::string bytes;
    unsigned target;
    std::string narrow, wide;
  };
  const Row table[] = {
      {Number(0), 0, "", ""},
      {Stored(1252, "\xE4\0"s), 0, "\xE4", "\xE4\0"s},
      {Stored(1200, "\xE4\0b\0\0\0"s), 0,
       "\xE4"
       "b",
       "\xE4\0b\0"s},
      {Stored(1200, "\xE4\0b\0\0\0"s), 65001,
       "\xC3\xA4"
       "b",
       "\xE4\0b\0"s},
      // Text of another 8-bit page is taken as it is; wide text is made from it.
      {Stored(932, "\x83\x5C\0"s), 0, "\x83\x5C", "\xBD\x30"},
      // A page that the system does not know is taken for the ANSI page.
      {Stored(4711, "\xE4\0"s), 0, "\xE4", "\xE4\0"s},
      // The text ends at its first zero, the form where it says.
      {Stored(1252, "ab\0cd\0"s), 0, "ab", "a\0b\0"s},
      {Stored(1200, "a\0\0\0b\0\0\0"s), 0, "a", "a\0"s},
      {Stored(1200, "a\0\0\0x"s), 0, "a", "a\0"s},
      {Stored(1252, "\0"s), 0, "", ""},
  };
  test::AssertionLog log;
  for (const Row& row : table) {
    const Outcome narrow = Read<String>(row.bytes, row.target);
    EXPECT_EQ(narrow.text, row.narrow);
    EXPECT_EQ(narrow.consumed, row.bytes.size());
    const Outcome single = Read<BaseString<SbcsTraits>>(row.bytes, row.target);
    EXPECT_EQ(single.text, row.narrow);
    EXPECT_EQ(single.consumed, row.bytes.size());
    const Outcome wide = Read<WideString>(row.bytes, row.target);
    EXPECT_EQ(wide.text, row.wide);
    EXPECT_EQ(wide.consumed, row.bytes.size());
  }
  EXPECT_THAT(log.Take(), IsEmpty());
}

TEST(StringSerialize, ConsumesNothingOfBrokenForms) {
  const std::string tooShort = test::Failure("src/include/BaseString", 2495, "forced assert");
  const std::string cutOff = test::Failure("src/include/BaseString", 2514, "forced assert");
  struct Row {
    std::string bytes;
    std::vector<std::string> assertions;
  };
  const Row table[] = {
      {"", {tooShort}},
      {"\1\0\0"s, {tooShort}},
      {Number(4), {cutOff}},
      {Stored(1252, "abc\0"s).substr(0, 11), {cutOff}},
      {Number(0xFFFFFFFF) + Number(1252) + "abc\0"s, {cutOff}},
      {Number(0xFFFFFFF8) + Number(1252) + "abc\0"s, {cutOff}},
      {Stored(1252, "abc"), {}},
      {Stored(1200, "ab"), {}},
      {Stored(1200, "ab\0"s), {}},
      {Stored(1200, "a\0\0b\0"s), {}},
  };
  test::AssertionLog log;
  for (const Row& row : table) {
    const Outcome narrow = Read<String>(row.bytes);
    EXPECT_EQ(narrow.consumed, 0u);
    EXPECT_EQ(narrow.text, "");
    // Two parities, so each assertion twice.
    std::vector<std::string> twice = row.assertions;
    twice.insert(twice.end(), row.assertions.begin(), row.assertions.end());
    EXPECT_EQ(log.Take(), twice);
    EXPECT_EQ(Read<WideString>(row.bytes).consumed, 0u);
    EXPECT_EQ(Read<BaseString<SbcsTraits>>(row.bytes).consumed, 0u);
    log.Take();
  }
}

TEST(StringSerialize, FailedConversionsAreAssertedAndGiveNoText) {
  test::AssertionLog log;
  EXPECT_EQ(Read<String>(Stored(1200, "a\0\0\0"s), 4711).text, "");
  const std::vector<std::string> lines = log.Take();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[0], test::Failure("src/shared/BaseString", 58, "result != 0"));
  EXPECT_EQ(lines[1].rfind(
                test::Failure("src/shared/BaseString", 76, "::WideCharToMultiByte(destCodePage, 0, "), 0),
            0u);
  EXPECT_EQ(WcsTraits::GetSerializedSize("a", 4711, 0, 2), 0u);
  unsigned short wide[4] = {};
  WcsTraits::SerializeFrom(wide, "a", 4711, 0, sizeof wide);
  const std::vector<std::string> wideLines = log.Take();
  ASSERT_EQ(wideLines.size(), 2u);
  EXPECT_EQ(wideLines[0], test::Failure("src/shared/BaseString", 120, "result != 0"));
  EXPECT_EQ(wideLines[1].rfind(test::Failure("src/shared/BaseString", 138, "::MultiByteToWideChar("), 0), 0u);
}

TEST(StringSerialize, RoundTripsInEveryCodePage) {
  for (UINT page : {1252u, 932u, 936u, 65001u}) {
    ASSERT_TRUE(platform::SetAnsiCodePage(page));
    for (const String text : {"", "plain", "\x83\x5C\\", "\xC3\xA4\xF0\x9F\x98\x80", "\x81"}) {
      const Outcome outcome = Read<String>(Serialized(text, 0));
      EXPECT_EQ(outcome.text, text.GetBegin());
      EXPECT_EQ(outcome.consumed, text.IsEmpty() ? 4u : text.GetSize() + 9);
    }
    EXPECT_EQ(Read<WideString>(Serialized(kWide, 0)).text, Bytes(kWide));
  }
  platform::SetAnsiCodePage(1252);
}

// In static memory: what the test itself frees must not hold the text.
TEST(StringSerialize, ConversionLeavesNoTextInFreedMemory) {
  static const char narrow[] = "Quartz-7x/Kelp, the words that nothing else says";
  static const char16_t units[] = u"Quartz-7x/Kelp, the words that nothing else says";
  static const auto* wide = reinterpret_cast<const unsigned short*>(units);
  alignas(2) static unsigned char wideForm[9 + sizeof units], narrowForm[8 + sizeof narrow];
  static unsigned char* const oddForm = wideForm + 1;
  string_detail::Store32(oddForm, sizeof units);
  string_detail::Store32(oddForm + 4, CODE_PAGE_UTF16);
  std::memcpy(oddForm + 8, units, sizeof units);
  string_detail::Store32(narrowForm, sizeof narrow);
  string_detail::Store32(narrowForm + 4, 1252);
  std::memcpy(narrowForm + 8, narrow, sizeof narrow);

  static constexpr auto W = [](const char16_t* text) {
    return reinterpret_cast<const unsigned short*>(text);
  };
  static const std::function<void()> operations[] = {
      [] { EXPECT_NE(String().Deserialize(oddForm, sizeof units + 8, 0), 0u); },
      [] { EXPECT_NE(WideString().Deserialize(oddForm, sizeof units + 8, 0), 0u); },
      [] { EXPECT_NE(WideString().Deserialize(narrowForm, sizeof narrowForm, 0), 0u); },
      [] { EXPECT_GT(String::FormatInserts("%1 %2!80S! %2!ls!", narrow, wide).GetSize(), 100u); },
      [] { EXPECT_GT(WideString::FormatInserts(W(u"%1 %2!80S! %2!hs!"), wide, narrow).GetSize(), 100u); },
      [] {
        WideString text;
        text.Format(W(u"%s %60hs %S"), wide, narrow, narrow);
        text += wide;
        text.Trim(W(u"Q"));
        EXPECT_GT(text.GetSize(), 100u);
      },
      [] {
        String text(narrow);
        for (int i = 0; i < 4; ++i) text += text;
        text.SetSystemError(ERROR_ACCESS_DENIED, text.GetBegin());
        text.Format(text.GetBegin(), 0);
        text.MakeLower();
      },
  };
  // What is built at its first use is built, and of no text that is looked for.
  for (const auto& operation : operations) operation();
  test::TextWatch watch("Quartz-7x");
  for (size_t i = 0; i < std::size(operations); ++i) {
    operations[i]();
    EXPECT_EQ(watch.Take(), 0) << "operation " << i;
  }
  // The watch sees what it is there for.
  void* block = ::operator new(sizeof narrow);
  std::memcpy(block, narrow, sizeof narrow);
  ::operator delete(block);
  EXPECT_EQ(watch.Take(), 1);
}
