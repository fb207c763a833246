// Searches: patterns, order, errors.
#include "files/Files.h"

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

}  // namespace
