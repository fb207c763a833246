// Paths of the interfaces and of the disk.
#include <random>

#include "files/Files.h"

#include "kernel/CodePage.h"
#include "kernel/Machine.h"
#include "kernel/Paths.h"

using namespace filestest;
using orm::platform::AnsiPath;
using orm::platform::MachinePath;
using orm::platform::UnixPath;

namespace {

TEST(Paths, NameWhatTheyNameOnDisk) {
  const std::string c = MachinePath("drives/drive_c");
  ASSERT_EQ(chdir("/usr"), 0);
  const struct {
    const char *text, *path;
  } table[] = {
      {"Z:\\usr\\lib", "/usr/lib"},
      {"z:/usr//lib\\", "/usr/lib"},
      {"Z:", "/"},
      {"Z:\\", "/"},
      {"Z:\\a\\..\\..\\b", "/b"},
      {"lib", "/usr/lib"},
      {".\\lib\\.", "/usr/lib"},
      {"..\\etc", "/etc"},
      {"\\\\?\\Z:\\usr", "/usr"},
      {"//./z:/usr", "/usr"},
      {"/usr/lib", "/usr/lib"},
      {"\\usr", "/usr"},
      {"Z:\\USR\\LiB", "/usr/lib"},
      {"Z:\\no\\SUCH", "/no/SUCH"},
      {"Z:\\USR\\no\\SUCH", "/usr/no/SUCH"},
  };
  for (const auto& row : table) EXPECT_EQ(UnixPath(row.text), row.path) << row.text;
  EXPECT_EQ(UnixPath("C:"), c);
  EXPECT_EQ(UnixPath("c:\\WINDOWS\\system32"), c + "/Windows/System32");
  EXPECT_EQ(UnixPath("C:\\Windows\\..\\..\\x"), c + "/x") << "the root of a drive is its end";
}

TEST(Paths, ThatNameNothingTellWhy) {
  const struct {
    const char* text;
    DWORD error;
  } table[] = {{"", 3},
               {"Q:\\x", 3},
               {"\\\\server\\share\\x", 53},
               {"//server/x", 53},
               {"\\\\?\\UNC\\s\\x", 53},
               {"Z:\\a|b", 123},
               {"Z:\\a:b", 123},
               {"Z:\\*", 123},
               {"C:relative", 123},
               {"Z:\\a\tb", 123}};
  for (const auto& row : table) {
    DWORD error = 0;
    EXPECT_EQ(UnixPath(row.text, &error), "") << row.text;
    EXPECT_EQ(error, row.error) << row.text;
  }
  EXPECT_EQ(UnixPath(nullptr), "");
}

TEST(Paths, GoBackToTheLongestDrive) {
  EXPECT_EQ(AnsiPath("/"), "Z:\\");
  EXPECT_EQ(AnsiPath("/tmp/x"), "Z:\\tmp\\x");
  EXPECT_EQ(AnsiPath(MachinePath("drives/drive_c")), "C:\\");
  EXPECT_EQ(AnsiPath(MachinePath("drives/drive_c/Windows")), "C:\\Windows");
  EXPECT_EQ(
      AnsiPath(MachinePath("drives/drive_cx")), "Z:" + [] {
        std::string text = MachinePath("drives/drive_cx");
        for (char& ch : text) ch = ch == '/' ? '\\' : ch;
        return text;
      }());
  ASSERT_EQ(symlink("/usr", MachinePath("drives/u:").c_str()), 0);
  EXPECT_EQ(AnsiPath("/usr/lib"), "U:\\lib");
  EXPECT_EQ(UnixPath("u:\\lib"), "/usr/lib");
}

TEST(Paths, KeepDoubleByteCharactersWhole) {
  ASSERT_TRUE(orm::platform::SetAnsiCodePage(932));
  EXPECT_EQ(UnixPath("Z:\\\x83\x5C\\\x83\x5C.txt"), "/\xE3\x82\xBD/\xE3\x82\xBD.txt");  // U+30BD
  EXPECT_EQ(AnsiPath("/\xE3\x82\xBD/a"), "Z:\\\x83\x5C\\a");
  DWORD error = 0;
  EXPECT_EQ(UnixPath("Z:\\a\x83/b", &error), "") << "the separator is taken for a trail byte";
  EXPECT_EQ(error, 123u);
}

// Whatever a name on disk is: its path in the interfaces is its own or, holding a '?', nobody's.
TEST(Paths, ComeBackFromTheInterfacesAsTheyWere) {
  const char* const parts[] = {"a",  " ", ".", "\xC3\xA4", "\xE3\x82\xBD",    "\xFF",
                               "\\", ":", "*", "\t",       "\xF0\x9F\x98\x80"};
  std::mt19937 random(11);
  int wholes = 0;
  for (const UINT page : {1252u, 932u, 936u, 65001u}) {
    ASSERT_TRUE(orm::platform::SetAnsiCodePage(page));
    for (int round = 0; round < 3000; ++round) {
      std::string path;
      for (auto names = 1 + random() % 3; names > 0; --names) {
        path += "/x";
        for (auto length = random() % 4; length > 0; --length) path += parts[random() % std::size(parts)];
      }
      const std::string text = AnsiPath(path);
      DWORD error = 0;
      const std::string back = UnixPath(text.c_str(), &error);
      const bool isWhole = text.find('?') == std::string::npos;
      wholes += isWhole;
      ASSERT_EQ(back, isWhole ? path : "") << text;
      ASSERT_EQ(error, isWhole ? ERROR_SUCCESS : ERROR_INVALID_NAME) << text;
    }
  }
  EXPECT_GT(wholes, 1000);
}

using PathFiles = Files;

TEST_F(PathFiles, PreferTheExactSpelling) {
  Put("name");
  Put("NAME");
  EXPECT_EQ(UnixPath(Name("name").c_str()), Disk("name"));
  EXPECT_EQ(UnixPath(Name("NAME").c_str()), Disk("NAME"));
  EXPECT_EQ(UnixPath(Name("Name").c_str()), Disk("NAME")) << "the first in byte order, always the same";
  Put("\xC3\x84rger");
  EXPECT_EQ(UnixPath(Name("\xE4RGER").c_str()), Disk("\xC3\x84rger"));
}

}  // namespace
