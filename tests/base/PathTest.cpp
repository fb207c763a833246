// Paths: parsing and composition as tables, double-byte text, and what the file system answers.
#include <ormutil/Error.h>
#include <ormutil/Path.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "AssertionLog.h"
#include "files/FailingListing.h"
#include "kernel/CodePage.h"
#include "support/ScarceMemory.h"

using namespace orm;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr const char* kInvalid = "<invalid>";

// The normalised text, checked to be a fixed point where it can be parsed at all.
std::string Parsed(const std::string& text, int* pRoot = nullptr) {
  Path path;
  path.Set("kept");
  if (!path.Set(String(text.c_str()))) {
    EXPECT_STREQ(path.GetText().GetBegin(), "kept") << text;
    return kInvalid;
  }
  if (pRoot) *pRoot = path.GetRootLength();
  return path.GetText().GetBegin();
}

std::string Appended(const char* first, const char* second) {
  Path path, other;
  EXPECT_TRUE(path.Set(first));
  EXPECT_TRUE(other.Set(second));
  const Path before = path;
  Path joined;
  const bool set = joined.Set(path, other);
  EXPECT_EQ(set, path.Append(other));
  if (!set) {
    EXPECT_EQ(path, before);
    return kInvalid;
  }
  EXPECT_EQ(path.GetText(), joined.GetText());
  EXPECT_EQ(path.GetRootLength(), joined.GetRootLength());
  return path.GetText().GetBegin();
}

Path Make(const char* text) {
  Path path;
  EXPECT_TRUE(path.Set(text)) << text;
  return path;
}

DWORD ThrownCode(auto operation) {
  try {
    operation();
  } catch (const Error& error) {
    EXPECT_EQ(error.GetLayerCount(), 1u);
    EXPECT_EQ(error.GetMarkedLayer(), 0);
    return error.GetCode();
  }
  return 0;
}

}  // namespace

TEST(Path, ParsesAndNormalises) {
  struct Row {
    const char *text, *path;
    int root;
  };
  const Row table[] = {
      {"", "", 0},
      {"   ", "", 0},
      {"  C:/dir//sub/./x/../f.dll", "C:\\dir\\sub\\f.dll", 2},
      {"C:", "C:", 2},
      {"z:\\", "z:", 2},
      {"C:\\dir\\..", "C:", 2},
      {"C:\\a\\.\\.\\b\\\\", "C:\\a\\b", 2},
      {"a\\..", "", 0},
      {"a\\..\\..\\b", "..\\b", 0},
      {"a\\b\\..\\c", "a\\c", 0},
      {"..\\x", "..\\x", 0},
      {"..", "..", 0},
      {".", "", 0},
      {"./x", "x", 0},
      {"dir\\.profile", "dir\\.profile", 0},
      {"dir\\...", "dir\\...", 0},
      {"//srv", "\\\\srv", 5},
      {"//srv/share/a", "\\\\srv\\share\\a", 5},
      {"//?/unc/srv/share", "\\\\srv\\share", 5},
      {"\\\\?\\srv\\x", "\\\\srv\\x", 5},
      {"//?/UNC", "\\\\UNC", 5},
      {"C:\\dir\\*.dll", "C:\\dir\\*.dll", 2},
      {"*", "*", 0},
      {"a*\\..\\b", "b", 0},
      {"a b\\ c", "a b\\ c", 0},
  };
  for (const Row& row : table) {
    int root = -1;
    EXPECT_EQ(Parsed(row.text, &root), row.path) << row.text;
    EXPECT_EQ(root, row.root) << row.text;
  }
  for (const char* bad : {"C:\\..",   "C:\\a\\..\\..\\b",
                          "\\dir",    "/",
                          "C:foo",    ".profile",
                          "...",      "C:\\d*r\\x.dll",
                          "a<b",      "a>b",
                          "a|b",      "a\"b",
                          "a:b",      "1:\\x",
                          "//",       "///srv",
                          "//?",      "//?srv",
                          "//?/",     "//?/unc/",
                          "//s|v/x",  "//s*v/x",
                          "//?/C:/x", "C:\\.x",
                          "//srv/.."}) {
    EXPECT_EQ(Parsed(bad), kInvalid) << bad;
  }
}

TEST(Path, Appends) {
  const char* table[][3] = {
      {"lib", "x", "lib\\x"},
      {"C:\\dir", "x", "C:\\dir\\x"},
      {"C:", "x\\y", "C:\\x\\y"},
      {"//srv", "x", "\\\\srv\\x"},
      {"lib", "C:\\y", "C:\\y"},
      {"C:\\dir", "//s/y", "\\\\s\\y"},
      {"", "x", "x"},
      {"C:\\dir", "", "C:\\dir"},
      {"C:\\dir", "..", "C:"},
      {"C:\\dir", "..\\x", "C:\\x"},
      {"C:\\dir", "..\\..\\x", kInvalid},
      {"lib", "..\\..\\x", "..\\x"},
      {"*.dll", "x", kInvalid},
      {"lib", "*.dll", "lib\\*.dll"},
  };
  for (const auto& [first, second, result] : table)
    EXPECT_EQ(Appended(first, second), result) << first << second;
  Path path = Make("C:\\d");
  EXPECT_FALSE(path.Set(Make("C:\\e"), String("a:b")));
  EXPECT_STREQ(path.GetText().GetBegin(), "C:\\d");
}

TEST(Path, TakesApart) {
  const char* table[][3] = {{"C:\\dir\\f.dll", "C:\\dir", "f.dll"},
                            {"C:\\f", "C:", "f"},
                            {"C:", "C:", ""},
                            {"\\\\srv\\share", "\\\\srv", "share"},
                            {"\\\\srv", "\\\\srv", ""},
                            {"a\\b", "a", "b"},
                            {"a", "", "a"},
                            {"", "", ""}};
  for (const auto& [text, directory, name] : table) {
    const Path path = Make(text);
    EXPECT_STREQ(path.GetDirectory().GetText().GetBegin(), directory) << text;
    EXPECT_EQ(path.GetDirectory().GetRootLength(), path.GetRootLength()) << text;
    EXPECT_STREQ(path.GetName().GetBegin(), name) << text;
  }
  EXPECT_TRUE(Make("C:\\dir\\?.dll").HasWildcards());
  EXPECT_FALSE(Make("C:\\dir\\x.dll").HasWildcards());
}

// In 0x83 0x5C and 0x83 0x7C the trail byte looks like a backslash and like a bar; in 0x83 0x2A it is no
// trail byte of the page, but still part of the character.
TEST(Path, TrailBytesAreNoSeparators) {
  ASSERT_TRUE(platform::SetAnsiCodePage(932));
  EXPECT_EQ(Parsed("C:/\x83\x5C/\x83\x7C\\f"), "C:\\\x83\x5C\\\x83\x7C\\f");
  const Path path = Make("//\x83\x5C/\x83\x5C");
  EXPECT_EQ(path.GetRootLength(), 3);
  EXPECT_STREQ(path.GetName().GetBegin(), "\x83\x5C");
  EXPECT_STREQ(path.GetDirectory().GetText().GetBegin(), "\\\\\x83\x5C");
  EXPECT_EQ(Appended("\x83\x5C", "x"), "\x83\x5C\\x");
  EXPECT_EQ(Parsed("\x83\x5C.\\x"), "\x83\x5C.\\x");
  // Half a character at the end.
  EXPECT_EQ(Parsed("dir\\\x83"), "dir\\\x83");
  // Behind it no separator can stand.
  for (const char* half : {"dir\\\x83", "\x83", "\x83\x5C\x83", "//\x83"}) {
    EXPECT_EQ(Appended(half, "x"), kInvalid);
    EXPECT_EQ(Appended(half, ".."), kInvalid);
    EXPECT_EQ(Appended("dir", half), half[0] == '/' ? Parsed(half) : std::string("dir\\") + half);
    std::vector<String> names;
    EXPECT_EQ(ThrownCode([&] { Make(half).Enumerate("*", 0, 0, names); }), ERROR_INVALID_NAME);
  }
  platform::SetAnsiCodePage(1252);
}

// What has been accepted is accepted again and stays as it is, but for two texts that cannot begin a path by
// themselves: a leading blank, and a leading name that starts with a full stop.
TEST(Path, NormalisedTextIsAFixedPoint) {
  const char alphabet[] = "ab.\\/:*? \x83\x5C";
  std::mt19937 random(20260818);
  for (UINT page : {1252u, 932u, 65001u}) {
    ASSERT_TRUE(platform::SetAnsiCodePage(page));
    for (int round = 0; round < 20000; ++round) {
      std::string text = random() % 4 == 0 ? "C:\\" : "";
      for (auto length = random() % 14; length > 0; --length)
        text += alphabet[random() % (sizeof alphabet - 1)];
      Path path, again;
      if (!path.Set(String(text.c_str()))) continue;
      const char* normal = path.GetText().GetBegin();
      if (*normal == ' ' || (*normal == '.' && std::strncmp(normal, "..", 2) != 0)) continue;
      if (!again.Set(path.GetText())) {
        EXPECT_EQ(std::strncmp(normal, "..", 2), 0) << text;
        continue;
      }
      EXPECT_EQ(again.GetText(), path.GetText()) << text;
      EXPECT_EQ(again.GetRootLength(), path.GetRootLength()) << text;
      EXPECT_EQ(std::strstr(page == 932 ? "" : normal, "\\\\") > normal, false) << text;
    }
  }
  platform::SetAnsiCodePage(1252);
}

// The work for a text that comes from outside grows with its length and not faster, which its allocations
// tell.
TEST(Path, ManyComponentsAreJoinedInOneGo) {
  std::string text = "C:";
  for (int i = 0; i < 10000; ++i) text += "\\component";
  Path path;
  bool isRefused = false;
  EXPECT_FALSE(test::RefuseAllocation(
      100, [&] { EXPECT_TRUE(path.Set(String(text.c_str()))); }, isRefused));
  EXPECT_EQ(path.GetText().GetBegin(), text);
}

TEST(Path, AsksTheFileSystem) {
  const std::filesystem::path folder = std::filesystem::path(std::getenv("ORM_MACHINE")) / "files";
  std::filesystem::create_directories(folder / "Sub");
  for (const char* name : {"b.DLL", "a.dll", "c.txt"}) std::ofstream(folder / name) << name;
  const Path directory = Make(("z:" + folder.string()).c_str());
  Path file;
  ASSERT_TRUE(file.Set(directory, String("a.dll")));
  EXPECT_EQ(directory.GetAttributes() & FILE_ATTRIBUTE_DIRECTORY, FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(file.GetAttributes() & FILE_ATTRIBUTE_DIRECTORY, 0u);
  Path missing;
  ASSERT_TRUE(missing.Set(directory, String("none")));
  EXPECT_EQ(missing.GetAttributes(), 0xFFFFFFFF);
  EXPECT_EQ(ThrownCode([&] { missing.GetLastWriteTime(); }), ERROR_FILE_NOT_FOUND);
  // 116444736000000000 ticks lie between 1601 and 1970.
  const auto now = static_cast<ULONGLONG>(time(nullptr)) * 10000000 + 116444736000000000;
  EXPECT_LT(now - 36000000000, file.GetLastWriteTime());
  EXPECT_GT(now + 36000000000, file.GetLastWriteTime());

  std::vector<String> names = {"old"};
  directory.Enumerate("*.dll", 0, 0, names);
  EXPECT_THAT(names, ElementsAre("a.dll", "b.DLL"));
  directory.Enumerate("*", 0, FILE_ATTRIBUTE_DIRECTORY, names);
  EXPECT_THAT(names, ElementsAre("a.dll", "b.DLL", "c.txt"));
  directory.Enumerate("*", FILE_ATTRIBUTE_DIRECTORY, 0, names);
  EXPECT_THAT(names, ElementsAre(".", "..", "Sub"));
  EXPECT_EQ(ThrownCode([&] { directory.Enumerate("*.none", 0, 0, names); }), ERROR_FILE_NOT_FOUND);
  EXPECT_THAT(names, IsEmpty());
  EXPECT_EQ(ThrownCode([&] { missing.Enumerate("*", 0, 0, names); }), ERROR_PATH_NOT_FOUND);
  names = {"old"};
  const filestest::FailingListing failing(3, EIO);
  EXPECT_EQ(ThrownCode([&] { directory.Enumerate("*", 0, 0, names); }), ERROR_GEN_FAILURE);
  EXPECT_THAT(names, IsEmpty());
}

TEST(Path, BecomesAbsoluteAgainstTheCurrentDirectory) {
  ASSERT_TRUE(SetCurrentDirectoryA("c:\\Windows"));
  Path path = Make("System32\\..\\x");
  path.MakeAbsolute();
  EXPECT_EQ(path.GetText().CompareNoCase("c:\\Windows\\x"), 0) << path.GetText().GetBegin();
  EXPECT_TRUE(path.IsAbsolute());
  const Path before = path;
  path.MakeAbsolute();
  EXPECT_EQ(path, before);
  Path outside = Make("..\\..\\x");
  EXPECT_EQ(ThrownCode([&] { outside.MakeAbsolute(); }), ERROR_BAD_PATHNAME);
  EXPECT_STREQ(outside.GetText().GetBegin(), "..\\..\\x");
}

TEST(Path, TheCurrentDirectoryHasAtMost260Characters) {
  std::filesystem::path folder = std::getenv("ORM_MACHINE");
  const auto enter = [&](size_t length) {
    folder /= std::string(length, 'd');
    std::filesystem::create_directory(folder);
    std::filesystem::current_path(folder);
  };
  enter(200);
  enter(257 - folder.string().size());  // with the drive's two characters
  char buffer[300];
  ASSERT_EQ(GetCurrentDirectoryA(sizeof buffer, buffer), 260u);
  Path path = Make("x");
  path.MakeAbsolute();
  EXPECT_EQ(path.GetText().GetLength(), 262u);
  enter(1);
  Path kept = Make("x");
  EXPECT_EQ(ThrownCode([&] { kept.MakeAbsolute(); }), ERROR_FILENAME_EXCED_RANGE);
  EXPECT_STREQ(kept.GetText().GetBegin(), "x");
  // By their whole names files are reached at any depth.
  EXPECT_EQ(path.GetAttributes(), INVALID_FILE_ATTRIBUTES);
  std::ofstream("x") << "x";
  EXPECT_EQ(Make(("z:" + (folder / "x").string()).c_str()).GetAttributes(), FILE_ATTRIBUTE_ARCHIVE);
}
