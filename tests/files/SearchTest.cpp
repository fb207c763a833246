// Searches: patterns, order, errors.
#include "files/FailingListing.h"
#include "files/Files.h"

#include "kernel/CodePage.h"
#include "kernel/NameMatch.h"

using namespace filestest;

namespace {

std::vector<std::string> Find(const std::string& pattern, DWORD* end) {
  std::vector<std::string> names;
  WIN32_FIND_DATAA data;
  const HANDLE search = FindFirstFileA(pattern.c_str(), &data);
  if (search == INVALID_HANDLE_VALUE) {
    *end = GetLastError();
    return names;
  }
  do names.emplace_back(data.cFileName);
  while (FindNextFileA(search, &data));
  *end = GetLastError();
  EXPECT_TRUE(FindClose(search));
  EXPECT_FALSE(FindClose(search));
  return names;
}

TEST(NamePatterns, MeanWhatASearchMeans) {
  const struct {
    const char *pattern, *name;
    bool matches;
  } table[] = {
      {"*", "a.b", true},
      {"*", ".", true},
      {"*.*", "noext", true},
      {"*.dll", "A.DLL", true},
      {"*.DLL", "a.b.dll", true},
      {"*.dll", "a.dllx", false},
      {"*.dll", "dll", false},
      {"*.dll", ".dll", true},
      {"a?c", "abc", true},
      {"a?c", "ac", false},
      {"a??", "a", true},
      {"a?.b", "a.b", true},
      {"?", "ab", false},
      {"?", "a", true},
      {"a.*", "a", true},
      {"a.*", "ab", false},
      {"a.*", "a.b.c", true},
      {"*.", "abc", true},
      {"*.", "a.b", false},
      {"*.", ".", true},
      {"*.", "..", true},
      {"*.", "a.", true},
      {"*.", ".a", false},
      {"a*.", "ab", true},
      {"*a*b*c*", "xaybzc", true},
      {"*a*b*c*", "xaybz", false},
      {"exact.txt", "EXACT.TXT", true},
      {"", "a", false},
      {"*.?", "a.b", true},
      {"*.?", "a.bc", false},
      {"*.b*", "a.bx.c", true},
      {"\xC3\x84*", "\xC3\xA4x", true},
      {"?", "\xE3\x82\xBD", true},
  };
  for (const auto& row : table) {
    EXPECT_EQ(orm::platform::NamePattern(row.pattern).Matches(orm::platform::FoldName(row.name)), row.matches)
        << row.pattern << " : " << row.name;
  }
  // A pattern of many signs takes no longer than its length for each character.
  std::string hard;
  for (int i = 0; i < 120; ++i) hard += "*a";
  EXPECT_FALSE(
      orm::platform::NamePattern(hard + "b").Matches(orm::platform::FoldName(std::string(255, 'a'))));
}

TEST_F(Files, SearchesListInOrderAndEndWithTheirCodes) {
  for (const char* name : {"b.dll", "A.dll", "C.DLL", "readme", "zz.txt"}) Put(name);
  ASSERT_EQ(mkdir(Disk("sub.dll").c_str(), 0755), 0);
  ASSERT_EQ(symlink("nowhere", Disk("broken.dll").c_str()), 0);
  DWORD end = 0;
  using Names = std::vector<std::string>;
  EXPECT_EQ(Find(Name("*"), &end),
            Names({".", "..", "A.dll", "b.dll", "broken.dll", "C.DLL", "readme", "sub.dll", "zz.txt"}));
  EXPECT_EQ(end, 18u);
  EXPECT_EQ(Find(Name("*.*"), &end).size(), 9u);
  EXPECT_EQ(Find(Name("*.Dll"), &end), Names({"A.dll", "b.dll", "broken.dll", "C.DLL", "sub.dll"}));
  EXPECT_EQ(Find(Name("README"), &end), Names({"readme"}));
  EXPECT_EQ(Find(Name("*.exe"), &end), Names());
  EXPECT_EQ(end, 2u);
  EXPECT_EQ(Find(Name("none\\*"), &end), Names());
  EXPECT_EQ(end, 3u);
  EXPECT_EQ(Find(Name("readme\\*"), &end), Names());
  EXPECT_EQ(end, 3u);
  EXPECT_EQ(Find(Name(""), &end), Names());
  EXPECT_EQ(end, 2u);
  EXPECT_EQ(Find("", &end), Names());
  EXPECT_EQ(end, 3u);
  EXPECT_EQ(Find(Name("*."), &end), Names({".", "..", "readme"}));
  EXPECT_EQ(end, 18u);
  for (const char* pattern : {"*\\x", "a|*", "a:*", "<*", "\t*"}) {
    EXPECT_EQ(Find(Name(pattern), &end), Names()) << pattern;
    EXPECT_EQ(end, 123u) << pattern;
  }
  EXPECT_EQ(Find(Name(std::string(300, 'x') + "\\*"), &end), Names());
  EXPECT_EQ(end, 206u);
  EXPECT_EQ(Find(Name(std::string(300, 'x')), &end), Names());
  EXPECT_EQ(end, 2u);
  EXPECT_EQ(Find("\\\\srv\\*", &end), Names());
  EXPECT_EQ(end, 53u);
  ASSERT_EQ(chdir(disk.c_str()), 0);
  EXPECT_EQ(Find("A*", &end), Names({"A.dll"}));
  WIN32_FIND_DATAA data;
  const HANDLE search = FindFirstFileA(Name("sub*").c_str(), &data);
  ASSERT_NE(search, INVALID_HANDLE_VALUE);
  EXPECT_EQ(data.dwFileAttributes, FILE_ATTRIBUTE_DIRECTORY);
  FindClose(search);
  EXPECT_FALSE(FindNextFileA(search, &data));
  EXPECT_EQ(GetLastError(), 6u);
}

// Half a listing must not be taken for all of it, nor a name that was not come to for one that is not there.
TEST_F(Files, AFolderThatCannotBeReadToItsEndIsAnError) {
  for (const char* name : {"a", "b", "File.txt"}) Put(name);
  ASSERT_EQ(mkdir(Disk("Sub").c_str(), 0755), 0);
  const std::string present = Name("FILE.TXT"), moved = Name("B");
  DWORD end = 0;
  const struct {
    const char* what;
    std::function<bool()> fails;
  } table[] = {
      {"search", [&] { return Find(Name("*"), &end).empty(); }},
      {"attributes", [&] { return GetFileAttributesA(present.c_str()) == INVALID_FILE_ATTRIBUTES; }},
      {"create", [&] { return !Opened(present, GENERIC_WRITE, 0, CREATE_ALWAYS).IsOpen(); }},
      {"create new", [&] { return !Opened(present, GENERIC_WRITE, 0, CREATE_NEW).IsOpen(); }},
      {"create below", [&] { return !Opened(Name("SUB\\x"), GENERIC_WRITE, 0, CREATE_NEW).IsOpen(); }},
      {"make a folder", [&] { return !CreateDirectoryA(Name("SUB").c_str(), nullptr); }},
      {"move", [&] { return !MoveFileExA(moved.c_str(), Name("c").c_str(), 0); }},
      {"move onto", [&] { return !MoveFileExA(Name("a").c_str(), present.c_str(), 0); }},
      {"enter", [&] { return !SetCurrentDirectoryA(Name("SUB").c_str()); }},
      {"load", [&] { return LoadLibraryA(present.c_str()) == nullptr; }},
      {"watch",
       [&] {
         return FindFirstChangeNotificationA(folder.c_str(), TRUE, FILE_NOTIFY_CHANGE_FILE_NAME) ==
                INVALID_HANDLE_VALUE;
       }},
  };
  for (const auto& row : table) {
    for (const int entries : {0, 1, 3}) {
      for (const auto& [error, code] : {std::pair(EIO, 31u), std::pair(ENOMEM, 8u), std::pair(EMFILE, 4u)}) {
        const FailingListing failing(entries, error);
        SetLastError(0);
        EXPECT_TRUE(row.fails()) << row.what << " after " << entries;
        EXPECT_EQ(GetLastError(), code) << row.what << " after " << entries;
      }
    }
  }
  EXPECT_EQ(Find(Name("*"), &end), std::vector<std::string>({".", "..", "a", "b", "File.txt", "Sub"}));
  // Where one may enter and not look, the spelling alone decides.
  const FailingListing failing(0, EACCES);
  EXPECT_TRUE(Opened(present, GENERIC_WRITE, 0, CREATE_NEW).IsOpen());
  EXPECT_EQ(GetFileAttributesA(moved.c_str()), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(GetLastError(), 2u);
}

TEST_F(Files, AFolderThatMayBeListedButNotEnteredIsAnError) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a second user";
  ASSERT_EQ(mkdir(Disk("closed").c_str(), 0755), 0);
  Put("closed/f");
  ASSERT_EQ(chmod(Disk("closed").c_str(), 0744), 0);
  ASSERT_EQ(chmod(getenv("ORM_MACHINE"), 0755), 0);
  EXPECT_EQ(InChild([&] {
              if (seteuid(65534) != 0) return 1;
              DWORD end = 0;
              return Find(disk + "/closed/f*", &end).empty() && end == ERROR_ACCESS_DENIED ? 0 : 2;
            }),
            0);
}

TEST_F(Files, ASearchIsNotDisturbedByWhatHappensMeanwhile) {
  for (int i = 0; i < 100; ++i) Put("f" + std::to_string(i));
  WIN32_FIND_DATAA data;
  const HANDLE search = FindFirstFileA(Name("f*").c_str(), &data);
  ASSERT_NE(search, INVALID_HANDLE_VALUE);
  int seen = 1;
  do {
    unlink(Disk("f" + std::to_string(seen)).c_str());
    Put("f_new" + std::to_string(seen));
  } while (FindNextFileA(search, &data) && ++seen);
  EXPECT_EQ(seen, 100);
  FindClose(search);
}

TEST_F(Files, NamesThatTheCodePageLacksAreListedAlike) {
  Put("\xE3\x82\xBD.dll");  // not in 1252
  Put("\xC3\xBC.dll");
  Put("\xFF\xFE.dll");  // not UTF-8
  DWORD end = 0;
  const auto first = Find(Name("*.dll"), &end);
  EXPECT_EQ(first.size(), 3u);
  EXPECT_EQ(first, Find(Name("*.dll"), &end));
  EXPECT_NE(std::find(first.begin(), first.end(), "\xFC.dll"), first.end());
  EXPECT_NE(std::find(first.begin(), first.end(), "?.dll"), first.end());
  EXPECT_EQ(GetFileAttributesA(Name("?.dll").c_str()), INVALID_FILE_ATTRIBUTES);
}

// On disk a name may hold what is a separator, a drive or a wildcard in a path.
TEST_F(Files, NoListedNameLeadsElsewhere) {
  ASSERT_EQ(mkdir(Disk("sub").c_str(), 0755), 0);
  for (const char* name : {"..\\x.dll", "C:\\x.dll", "a*b.dll", "t\tb.dll", "q\"<>|.dll", ".x.dll"})
    Put(name);
  DWORD end = 0;
  EXPECT_EQ(Find(Name("*.dll"), &end),
            std::vector<std::string>({"..?x.dll", ".x.dll", "a?b.dll", "C??x.dll", "q????.dll", "t?b.dll"}));
  ASSERT_EQ(chdir(disk.c_str()), 0);
  ASSERT_EQ(mkdir("sub\\sub", 0755), 0);
  ASSERT_EQ(chdir("sub\\sub"), 0);
  char buffer[300];
  ASSERT_GT(GetCurrentDirectoryA(sizeof buffer, buffer), 0u);
  EXPECT_EQ(buffer, Name("sub?sub"));
}

// Such bytes must not turn into the page's '?' and so into a wildcard.
TEST_F(Files, BytesThatAreNoCharacterAreNoName) {
  ASSERT_TRUE(orm::platform::SetAnsiCodePage(936));
  Put("?");
  Put("a");
  for (const char* bytes : {"\x81\x30", "\x81"}) {
    DWORD end = 0;
    EXPECT_TRUE(Find(Name(bytes), &end).empty());
    EXPECT_EQ(end, 123u);
    EXPECT_EQ(GetFileAttributesA(Name(bytes).c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), 123u);
    EXPECT_EQ(Opened(Name(bytes), GENERIC_WRITE, 0, CREATE_ALWAYS).error, 123u);
  }
  // In UTF-8 the bytes of a name are the name, whatever they are.
  ASSERT_TRUE(orm::platform::SetAnsiCodePage(65001));
  Put("\xFF\xFE.dll");
  DWORD end = 0;
  EXPECT_EQ(Find(Name("\xFF*"), &end), std::vector<std::string>({"\xFF\xFE.dll"}));
  EXPECT_EQ(GetFileAttributesA(Name("\xFF\xFE.DLL").c_str()), FILE_ATTRIBUTE_ARCHIVE);
}

TEST_F(Files, ALinkThatLeadsNowhereIsToldOfItself) {
  Put("file", "12345");
  ASSERT_EQ(symlink("file", Disk("good").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", Disk("dead").c_str()), 0);
  ASSERT_EQ(symlink("loop", Disk("loop").c_str()), 0);
  const struct {
    const char* name;
    DWORD attributes, size;
  } table[] = {{"good", FILE_ATTRIBUTE_ARCHIVE, 5},
               {"dead", FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_REPARSE_POINT, 0},
               {"loop", FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_REPARSE_POINT, 0}};
  for (const auto& row : table) {
    WIN32_FIND_DATAA found{};
    const HANDLE search = FindFirstFileA(Name(row.name).c_str(), &found);
    ASSERT_NE(search, INVALID_HANDLE_VALUE) << row.name;
    EXPECT_TRUE(FindClose(search));
    EXPECT_EQ(found.dwFileAttributes, row.attributes) << row.name;
    EXPECT_EQ(found.nFileSizeLow, row.size) << row.name;
    EXPECT_STREQ(found.cAlternateFileName, "");
    EXPECT_EQ(GetFileAttributesA(Name(row.name).c_str()), row.attributes) << row.name;
  }
}

}  // namespace
