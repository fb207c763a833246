// orm reg as a user meets it: files in and out, one transaction, undo, comparison, watching.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "RunOrm.h"

namespace orm::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* KEY = "HKCU\\SOFTWARE\\Sample";

// Everything that a settings file can say.
const std::string SAMPLE =
    "REGEDIT4\r\n\r\n"
    "[HKEY_CURRENT_USER\\SOFTWARE\\Sample]\r\n"
    "@=\"default\"\r\n"
    "\"Bytes\"=hex:00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,15,\\\r\n"
    "  16,17,18,19,1a,1b,1c,1d,1e,1f,20\r\n"
    "\"Expand\"=hex(2):25,54,45,4d,50,25,5c,e4,00\r\n"
    "\"List\"=hex(7):61,00,62,00,00\r\n"
    "\"Number\"=dword:0000002a\r\n"
    "\"Quad\"=hex(b):01,02,03,04,05,06,07,08\r\n"
    "\"Text\"=\"c:\\\\dir \\\"q\\\" \xE4\"\r\n\r\n"
    "[HKEY_CURRENT_USER\\SOFTWARE\\Sample\\Sub]\r\n\r\n"
    "[HKEY_CURRENT_USER\\SOFTWARE\\Sample\\Sub\\Deep]\r\n"
    "\"None\"=hex(0):\r\n\r\n";

void Succeeds(const std::vector<std::string>& arguments) {
  const Outcome outcome = RunOrm(arguments);
  EXPECT_EQ(outcome.code, 0) << outcome.err;
}

std::string Export(const std::string& form) {
  const std::string file = TestFile("export.reg");
  Succeeds({"reg", "export", KEY, "--form", form, "-o", file});
  return ReadFileBytes(file);
}

TEST(RegCommand, ExportImportExportGivesTheSameBytes) {
  Succeeds({"reg", "import", WriteFileBytes("in.reg", SAMPLE)});
  EXPECT_EQ(Export("4"), SAMPLE);
  for (const char* form : {"4", "5"}) {
    const std::string first = Export(form);
    Succeeds({"reg", "delete", KEY});
    EXPECT_EQ(RunOrm({"reg", "query", KEY}).code, 1);
    Succeeds({"reg", "import", WriteFileBytes("again.reg", first)});
    EXPECT_EQ(Export(form), first);
  }
  EXPECT_THAT(Export("5"), testing::StartsWith(std::string("\xFF\xFEW\0i\0", 6)));
}

TEST(RegCommand, AFaultAnywhereChangesNothing) {
  Succeeds({"reg", "import", WriteFileBytes("in.reg", SAMPLE)});
  const std::string before = Export("4");
  std::string file =
      "REGEDIT4\r\n\r\n[-HKEY_CURRENT_USER\\SOFTWARE\\Sample]\r\n[HKEY_CURRENT_USER\\SOFTWARE\\Other]\r\n";
  for (int i = 0; i < 895; ++i) file += "\"v" + std::to_string(i) + "\"=dword:00000001\r\n";
  file += "\"last\"=dword:zz\r\n";
  const Outcome outcome = RunOrm({"reg", "import", WriteFileBytes("bad.reg", file)});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.err, HasSubstr("bad.reg:900:14: expected a number"));
  EXPECT_EQ(Export("4"), before);
  EXPECT_EQ(RunOrm({"reg", "query", "HKCU\\SOFTWARE\\Other"}).code, 1);
}

TEST(RegCommand, UndoTakesBackImportAndDelete) {
  Succeeds({"reg", "import", WriteFileBytes("in.reg", SAMPLE)});
  const std::string before = Export("4");
  const std::string change =
      "REGEDIT4\r\n\r\n[HKEY_CURRENT_USER\\SOFTWARE\\Sample]\r\n\"Number\"=\"text\"\r\n\"Text\"=-\r\n\"New\"="
      "dword:1\r\n"
      "\"Number\"=dword:2\r\n[-HKEY_CURRENT_USER\\SOFTWARE\\Sample\\Sub]\r\n"
      "[HKEY_CURRENT_USER\\SOFTWARE\\Sample\\Sub\\Other]\r\n\"x\"=\"y\"\r\n[HKEY_CURRENT_"
      "USER\\SOFTWARE\\Sample\\P\\Q]\r\n";
  Succeeds({"reg", "import", WriteFileBytes("change.reg", change)});
  const std::string after = Export("4");
  EXPECT_NE(after, before);
  Succeeds({"reg", "undo"});
  EXPECT_EQ(Export("4"), before);
  Succeeds({"reg", "undo"});
  EXPECT_EQ(Export("4"), after);

  Succeeds({"reg", "delete", KEY});
  Succeeds({"reg", "undo"});
  EXPECT_EQ(Export("4"), after);
}

TEST(RegCommand, UndoWithoutAChangeFails) {
  const Outcome outcome = RunOrm({"reg", "undo"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.err, HasSubstr("no change to undo"));
}

// Somebody else's file would be applied with this user's rights.
TEST(RegCommand, UndoRefusesAPlantedFile) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs a second user";
  Succeeds({"reg", "add", KEY, "-v", "v", "-d", "x"});
  const std::string file = TestFile("undo/0.reg");
  ASSERT_EQ(::chown(file.c_str(), 65534, 65534), 0);
  EXPECT_THAT(RunOrm({"reg", "undo"}).err, HasSubstr("not this user's own file"));
  EXPECT_EQ(RunOrm({"reg", "query", KEY, "-v", "v"}).out, "x\n");
  EXPECT_THAT(RunOrm({"reg", "delete", KEY}).err, HasSubstr("will not be undoable"));
}

TEST(RegCommand, ComparesAFileWithTheStore) {
  const std::string file = WriteFileBytes("in.reg", SAMPLE);
  Succeeds({"reg", "import", file});
  EXPECT_EQ(RunOrm({"reg", "compare", file}).code, 0);

  Succeeds({"reg", "add", KEY, "-v", "number", "-t", "dword", "-d", "0x2b"});
  Succeeds({"reg", "add", KEY, "-v", "Extra", "-d", "x"});
  Succeeds({"reg", "add", std::string(KEY) + "\\Sub\\More"});
  Succeeds({"reg", "delete", std::string(KEY) + "\\Sub\\Deep", "-v", "None"});
  const Outcome outcome = RunOrm({"reg", "compare", file});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_EQ(outcome.out,
            "~ HKEY_CURRENT_USER\\SOFTWARE\\Sample \"Number\"  REG_DWORD 42 (0x2a)  ->  REG_DWORD 43 (0x2b)\n"
            "+ HKEY_CURRENT_USER\\SOFTWARE\\Sample \"Extra\"  REG_SZ x\n"
            "+ HKEY_CURRENT_USER\\SOFTWARE\\Sample\\Sub\\More\n"
            "- HKEY_CURRENT_USER\\SOFTWARE\\Sample\\Sub\\Deep \"None\"  REG_NONE \n");
  const auto json = nlohmann::json::parse(RunOrm({"reg", "compare", "--subset", "--json", file}).out);
  ASSERT_EQ(json.size(), 2u);
  EXPECT_EQ(json[0]["after"]["number"], 43);
  EXPECT_EQ(
      RunOrm({"reg", "compare", WriteFileBytes("no.reg", "REGEDIT4\r\n[-HKCU\\SOFTWARE\\Sample]\r\n")}).code,
      2);
}

TEST(RegCommand, AddsEveryType) {
  struct {
    std::vector<std::string> arguments;
    const char* shown;
  } const cases[] = {
      {{"-v", "v", "-d", "text \xC3\xA4"}, "text \xC3\xA4"},
      {{"-v", "v", "-t", "REG_DWORD", "-d", "4294967295"}, "4294967295 (0xffffffff)"},
      {{"-v", "v", "-t", "REG_QWORD", "-d", "0xffffffffffffffff"},
       "18446744073709551615 (0xffffffffffffffff)"},
      {{"-v", "v", "-t", "REG_DWORD_BIG_ENDIAN", "-d", "1"}, "1 (0x1)"},
      {{"-v", "v", "-t", "multi_sz", "-d", "a", "-d", "b"}, "\"a\", \"b\""},
      {{"-v", "v", "-t", "REG_BINARY", "-d", "01 ff"}, "01 ff"},
      {{"-v", "v", "-t", "0x1234", "-d", "aa"}, "aa"},
      {{"-d", "-5"}, ""},
  };
  for (const auto& item : cases) {
    std::vector<std::string> arguments = {"reg", "add", KEY};
    arguments.insert(arguments.end(), item.arguments.begin(), item.arguments.end());
    const Outcome added = RunOrm(arguments);
    if (*item.shown == '\0') continue;
    EXPECT_EQ(added.code, 0) << added.err;
    EXPECT_EQ(RunOrm({"reg", "query", KEY, "-v", "v"}).out, std::string(item.shown) + "\n");
  }
}

TEST(RegCommand, RefusesWhatCannotBe) {
  const std::vector<std::vector<std::string>> cases = {
      {"reg", "query", "HKXX\\A"},
      {"reg", "query", "HKCU\\A\\\\B"},
      {"reg", "query", "HKCU\\NotThere"},
      {"reg", "add", KEY, "-v", "v", "-t", "REG_DWORD", "-d", "4294967296"},
      {"reg", "add", KEY, "-v", "v", "-t", "REG_WORD", "-d", "1"},
      {"reg", "add", KEY, "-v", "\xD0\x96", "-d", "1"},
      {"reg", "add", KEY, "-v", "\xFF", "-d", "1"},
      {"reg", "delete", "HKCU"},
      {"reg", "export", "HKCU\\NotThere"},
      {"reg", "import", "/does/not/exist"},
  };
  for (const auto& arguments : cases) {
    const Outcome outcome = RunOrm(arguments);
    EXPECT_EQ(outcome.code, 1) << testing::PrintToString(arguments);
    EXPECT_THAT(outcome.err, testing::StartsWith("orm: "));
    EXPECT_THAT(outcome.out, IsEmpty());
  }
}

TEST(RegCommand, CopiesATree) {
  Succeeds({"reg", "import", WriteFileBytes("in.reg", SAMPLE)});
  Succeeds({"reg", "copy", KEY, std::string(KEY) + "\\Sub\\Copy"});
  const auto json =
      nlohmann::json::parse(RunOrm({"reg", "query", std::string(KEY) + "\\Sub\\Copy", "-r", "--json"}).out);
  ASSERT_EQ(json.size(), 3u);
  EXPECT_EQ(json[0]["values"].size(), 7u);
  EXPECT_EQ(json[2]["values"][0]["type"], "REG_NONE");
}

TEST(RegCommand, WatchSeesChangesOfAnotherProcess) {
  Succeeds({"reg", "add", KEY, "-v", "v", "-d", "old"});
  RunningOrm watch({"reg", "watch", KEY, "--count", "1", "--json"});
  EXPECT_THAT(watch.ReadErrorLine(), HasSubstr("watching"));
  Succeeds({"reg", "add", "HKCU\\SOFTWARE\\Elsewhere", "-v", "v", "-d", "x"});
  Succeeds({"reg", "add", KEY, "-v", "v", "-d", "new"});
  const auto json = nlohmann::json::parse(watch.Finish().out);
  EXPECT_EQ(json["change"], "value-changed");
  EXPECT_EQ(json["before"]["text"], "old");
  EXPECT_EQ(json["after"]["text"], "new");
}

TEST(RegCommand, WatchSeesTheTraceConfigurationToo) {
  RunningOrm watch({"reg", "watch", "HKLM", "--count", "1"});
  EXPECT_THAT(watch.ReadErrorLine(), HasSubstr("watching"));
  Succeeds({"trace", "set", "ormutil", "thread", "w"});
  EXPECT_THAT(watch.Finish().out, HasSubstr("\"thread\"  REG_SZ n  ->  REG_SZ w"));
}

TEST(RegCommand, ChecksTheStore) {
  Succeeds({"reg", "import", WriteFileBytes("in.reg", SAMPLE)});
  const Outcome outcome = RunOrm({"reg", "check"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out, "HKEY_LOCAL_MACHINE: sound\nHKEY_CURRENT_USER: sound\n");
  EXPECT_EQ(nlohmann::json::parse(RunOrm({"reg", "check", "--json"}).out)[1]["sound"], true);
}

}  // namespace
}  // namespace orm::test
