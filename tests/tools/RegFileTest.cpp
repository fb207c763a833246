// Settings files: what is read, what is refused and where, what is written.
#include <gmock/gmock.h>

#include "RegDocument.h"
#include "Text.h"

namespace orm::tool {
namespace {

using testing::HasSubstr;

std::string Utf16(std::string_view text) {
  std::string bytes = "\xFF\xFE";
  for (const char16_t unit : WideFromText(text)) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

const std::string HEAD4 = "REGEDIT4\r\n\r\n";
const std::string HEAD5 = "Windows Registry Editor Version 5.00\r\n\r\n";
const std::string KEY = "[HKEY_CURRENT_USER\\Software\\A]\r\n";

RegEntry OnlyEntry(const std::string& bytes) {
  const RegDocument document = ReadRegFile(bytes);
  EXPECT_EQ(document.size(), 1u);
  EXPECT_EQ(document.at(0).entries.size(), 1u);
  return document.at(0).entries.at(0);
}

struct DataCase {
  const char* line;
  DWORD type;
  std::string bytes;
};

TEST(RegFile, ReadsEveryTypeOfData) {
  using namespace std::string_literals;
  const DataCase cases[] = {
      {"\"n\"=\"text\"", REG_SZ, "text\0"s},
      {"\"n\"=\"\"", REG_SZ, "\0"s},
      {"\"n\" = \"c:\\\\dir \\\"q\\\"\" ; a comment", REG_SZ, "c:\\dir \"q\"\0"s},
      {"\"n\"=\"two\r\nlines\"", REG_SZ, "two\r\nlines\0"s},
      {"\"n\"=dword:0000002A", REG_DWORD, "\x2A\0\0\0"s},
      {"\"n\"=dword:7", REG_DWORD, "\x07\0\0\0"s},
      {"\"n\"=hex:", REG_BINARY, ""},
      {"\"n\"=hex:01,fF,\\\r\n  02", REG_BINARY, "\x01\xFF\x02"},
      {"\"n\"=hex:01,\\\r\n ; between\r\n  02,", REG_BINARY, "\x01\x02"},
      {"\"n\"=hex(0):", REG_NONE, ""},
      {"\"n\"=hex(4):01", REG_DWORD, "\x01"},
      {"\"n\"=hex(b):01,00,00,00,00,00,00,80", REG_QWORD, "\x01\0\0\0\0\0\0\x80"s},
      {"\"n\"=hex(ffff0001):aa", 0xFFFF0001, "\xAA"},
      {"@=\"default\"", REG_SZ, "default\0"s},
  };
  for (const DataCase& item : cases) {
    SCOPED_TRACE(item.line);
    for (const std::string& head : {HEAD4, HEAD5}) {
      const RegEntry entry = OnlyEntry(head + KEY + item.line + "\r\n");
      EXPECT_EQ(entry.data, (RegData{item.type, item.bytes}));
      EXPECT_EQ(entry.name, item.line[0] == '@' ? "" : "n");
    }
  }
}

TEST(RegFile, TextsAsBytesAreUtf16InVersion5Only) {
  using namespace std::string_literals;
  EXPECT_EQ(OnlyEntry(HEAD4 + KEY + "\"n\"=hex(2):61,00\r\n").data->bytes, "a\0"s);
  EXPECT_EQ(OnlyEntry(HEAD5 + KEY + "\"n\"=hex(2):61,00,e4,00,00,00\r\n").data->bytes, "a\xE4\0"s);
  EXPECT_EQ(OnlyEntry(HEAD5 + KEY + "\"n\"=hex(7):61,00,00,00,62,00,00,00,00,00").data->bytes, "a\0b\0\0"s);
}

TEST(RegFile, ReadsEveryEncoding) {
  const std::string text = HEAD5 + KEY + "\"\xC3\xA4\"=\"\xE2\x82\xAC\"\r\n";  // in UTF-8: a umlaut, euro
  for (const std::string& bytes :
       {Utf16(text), text, "\xEF\xBB\xBF" + text, HEAD4 + KEY + "\"\xE4\"=\"\x80\"\r\n"}) {
    const RegEntry entry = OnlyEntry(bytes);
    EXPECT_EQ(entry.name, "\xE4");
    EXPECT_EQ(entry.data->bytes, std::string("\x80\0", 2));
  }
}

TEST(RegFile, ReadsKeysAndDeletions) {
  const RegDocument document = ReadRegFile(HEAD4 +
                                           "; comment\r\n[-HKEY_LOCAL_MACHINE\\Old]\r\n\r\n"
                                           "[hklm\\A [x] b] ; [note\r\n\"gone\"=-\r\n@=-\r\n"
                                           "[HKEY_CLASSES_ROOT\\.txt]\r\n");
  ASSERT_EQ(document.size(), 3u);
  EXPECT_TRUE(document[0].isDeleted);
  EXPECT_EQ(document[0].key.GetName(), "HKEY_LOCAL_MACHINE\\Old");
  EXPECT_EQ(document[1].key.GetName(), "HKEY_LOCAL_MACHINE\\A [x] b");
  ASSERT_EQ(document[1].entries.size(), 2u);
  EXPECT_FALSE(document[1].entries[0].data);
  EXPECT_EQ(document[2].key.GetName(), "HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes\\.txt");
}

struct FaultCase {
  std::string text;  // behind the head, whose two lines count
  unsigned line, column;
  const char* message;
};

TEST(RegFile, NamesThePlaceOfEveryFault) {
  const FaultCase cases[] = {
      {"\"n\"=\"x\"\r\n", 3, 1, "before the first [key]"},
      {"nonsense\r\n", 3, 1, "expected a [key]"},
      {"[HKEY_LOCAL_MACHINE\\A\r\n", 3, 22, "] that ends"},
      {"[HKEY_USERS\\A]\r\n", 3, 2, "none of this machine's roots"},
      {"[HKLM\\A\\\\B]\r\n", 3, 9, "missing between"},
      {"[HKLM\\" + std::string(256, 'k') + "]\r\n", 3, 7, "longer than 255"},
      {"[-HKLM]\r\n", 3, 3, "a root cannot be deleted"},
      {"[HKLM\\A] x\r\n", 3, 10, "unexpected text"},
      {KEY + "\"n\"\r\n", 4, 4, "expected ="},
      {KEY + "\"n\"=\"open\r\n\r\n", 4, 5, "not closed"},
      {KEY + "\"n\"=\"c:\\temp\"\r\n", 4, 8, "written twice"},
      {KEY + "\"n\"=dword:\r\n", 4, 11, "a number of up to eight"},
      {KEY + "\"n\"=dword:123456789\r\n", 4, 19, "a number of up to eight"},
      {KEY + "\"n\"=hex:01,\\\r\n  0g\r\n", 5, 4, "unexpected text"},
      {KEY + "\"n\"=hex:01,,02\r\n", 4, 12, "before the comma"},
      {KEY + "\"n\"=hex:001\r\n", 4, 11, "a byte of two"},
      {KEY + "\"n\"=hex:01,\\ 02\r\n", 4, 12, "must end its line"},
      {KEY + "\"n\"=hex(2:00\r\n", 4, 10, "expected ):"},
      {KEY + "\"n\"=float:1\r\n", 4, 5, "expected \"text\", dword:"},
      {"[-HKLM\\A]\r\n\"n\"=\"x\"\r\n", 4, 1, "a key that is deleted"},
      {KEY + "\"" + std::string(16384, 'v') + "\"=\"x\"\r\n", 4, 1, "longer than 16383"},
  };
  for (const FaultCase& item : cases) {
    SCOPED_TRACE(item.text.substr(0, 60));
    for (const std::string& file : {HEAD4 + item.text, HEAD5 + item.text, Utf16(HEAD5 + item.text)}) {
      try {
        ReadRegFile(file);
        ADD_FAILURE() << "was accepted";
      } catch (const RegSyntaxError& error) {
        EXPECT_EQ(error.at.line, item.line);
        EXPECT_EQ(error.at.column, item.column);
        EXPECT_THAT(error.what(), HasSubstr(item.message));
      }
    }
  }
}

TEST(RegFile, RefusesWhatIsNoTextOfTheCodePage) {
  struct {
    std::string bytes;
    unsigned line, column;
    const char* message;
  } const cases[] = {
      {"", 1, 1, "begins with"},
      {"REGEDIT5\r\n", 1, 1, "begins with"},
      {"\xFE\xFF", 1, 1, "big-endian"},
      {HEAD5 + KEY + "\"n\"=\"a\xFFz\"\r\n", 4, 7, "not UTF-8"},
      {HEAD5 + KEY + "\"n\"=\"a\\\\\xD0\x96\"\r\n", 4, 9, "U+0416 is not in code page 1252"},
      {HEAD5 + KEY + "\"n\"=hex(1):16,04\r\n", 4, 12, "U+0416 is not in code page 1252 (byte 0"},
      {HEAD5 + KEY + "\"n\"=hex(7):61\r\n", 4, 12, "odd number of bytes"},
      {Utf16(HEAD5 + KEY) + "x", 4, 1, "middle of a character"},
      {Utf16(HEAD5) + std::string("\x00\xDC", 2), 3, 1, "surrogate"},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.message);
    try {
      ReadRegFile(item.bytes);
      ADD_FAILURE() << "was accepted";
    } catch (const RegSyntaxError& error) {
      EXPECT_EQ(error.at.line, item.line);
      EXPECT_EQ(error.at.column, item.column);
      EXPECT_THAT(error.what(), HasSubstr(item.message));
    }
  }
}

RegDocument EveryKindOfValue() {
  using namespace std::string_literals;
  std::string bytes;
  for (int i = 0; i < 60; ++i) bytes += static_cast<char>(i * 7);
  RegSection section{{HKEY_CURRENT_USER, "Software\\\xE4 [x]"}, false, {}, {}};
  const auto add = [&](const std::string& name, DWORD type, const std::string& data) {
    section.entries.push_back({name, RegData{type, data}, {}});
  };
  add("", REG_SZ, "default\0"s);
  add("bytes", REG_BINARY, bytes);
  add("c:\\\"q\"", REG_SZ, "\x80 c:\\ \"q\"\0"s);
  add("empty", REG_BINARY, "");
  add("expand", REG_EXPAND_SZ, "%TEMP%\\\xE4\0"s);
  add("inner", REG_SZ, "a\0b\0"s);
  add("line", REG_SZ, "a\r\nb\0"s);
  add("list", REG_MULTI_SZ, "one\0two\0\0"s);
  add("none", REG_NONE, "");
  add("number", REG_DWORD, "\x2A\0\0\x80"s);
  add("odd number", REG_DWORD, "\x2A"s);
  add("open", REG_SZ, "no end");
  add("quad", REG_QWORD, "\1\2\3\4\5\6\7\x08"s);
  add("void", REG_SZ, "");
  section.entries.push_back({"gone", std::nullopt, {}});
  return {section, {{HKEY_LOCAL_MACHINE, "Old"}, true, {}, {}}};
}

TEST(RegFile, WhatIsWrittenReadsBackTheSame) {
  const RegDocument document = EveryKindOfValue();
  for (const auto& [form, utf8] : {std::pair(RegForm::Version4, false), std::pair(RegForm::Version5, false),
                                   std::pair(RegForm::Version5, true)}) {
    const std::string bytes = WriteRegFile(document, form, utf8);
    const RegDocument read = ReadRegFile(bytes);
    ASSERT_EQ(read.size(), document.size());
    for (std::size_t i = 0; i < read.size(); ++i) {
      EXPECT_EQ(read[i].key.GetName(), document[i].key.GetName());
      EXPECT_EQ(read[i].isDeleted, document[i].isDeleted);
      ASSERT_EQ(read[i].entries.size(), document[i].entries.size());
      for (std::size_t j = 0; j < read[i].entries.size(); ++j) {
        EXPECT_EQ(read[i].entries[j].name, document[i].entries[j].name);
        EXPECT_EQ(read[i].entries[j].data, document[i].entries[j].data) << document[i].entries[j].name;
      }
    }
    EXPECT_EQ(WriteRegFile(read, form, utf8), bytes);
  }
}

TEST(RegFile, WritesListsAsTheOriginalEditorBreaksThem) {
  RegSection section{{HKEY_CURRENT_USER, "A"}, false, {}, {}};
  section.entries.push_back({"b", RegData{REG_BINARY, std::string(50, '\x11')}, {}});
  const std::string first =
      "\"b\"=hex:11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,\\\r\n";
  const std::string next =
      "  11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,11,\\\r\n";
  EXPECT_EQ(WriteRegFile({section}, RegForm::Version4),
            "REGEDIT4\r\n\r\n[HKEY_CURRENT_USER\\A]\r\n" + first + next + "  11,11\r\n\r\n");
}

TEST(RegFile, SaysWhatAFormCannotSay) {
  RegSection section{{HKEY_CURRENT_USER, "A\nB"}, false, {}, {}};
  EXPECT_THROW(WriteRegFile({section}, RegForm::Version4), std::runtime_error);
}

}  // namespace
}  // namespace orm::tool
