// Finding and reading the resources of the program and of loaded libraries.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "ids.h"
#include "support/FailingNew.h"
#include "win32.h"

namespace {

// One string out of a string table, as a loader of strings finds it.
std::u16string String(HMODULE module, unsigned id, WORD language = 0) {
  const LPSTR block = MAKEINTRESOURCEA(static_cast<WORD>(id / 16 + 1));
  const HRSRC found = language == 0 ? FindResourceA(module, block, RT_STRING)
                                    : FindResourceExA(module, RT_STRING, block, language);
  if (found == nullptr) return u"error";
  const auto* unit = static_cast<const unsigned char*>(LockResource(LoadResource(module, found)));
  const auto* const end = unit + SizeofResource(module, found);
  const auto take = [&] {
    if (unit + 2 > end) throw std::out_of_range("string block");
    unit += 2;
    return static_cast<char16_t>(unit[-2] | unit[-1] << 8);
  };
  for (unsigned skip = id % 16; skip > 0; --skip)
    for (std::size_t left = take(); left > 0; --left) take();
  std::u16string text;
  for (std::size_t left = take(); left > 0; --left) text.push_back(take());
  return text;
}

TEST(Resource, StringsOfTheProgram) {
  for (const HMODULE module : {HMODULE{nullptr}, GetModuleHandleA(nullptr)}) {
    EXPECT_EQ(String(module, IDS_FIRST), u"first");
    EXPECT_EQ(String(module, IDS_SECOND), u"tab\tquote\"\" €");
    EXPECT_EQ(String(module, IDS_SECOND + 1), u"");  // in a block that exists
    EXPECT_EQ(String(module, IDS_LAST), u"last and least");
    EXPECT_EQ(String(module, 300), u"defined outside");
    EXPECT_EQ(String(module, 1000), u"error");
    EXPECT_EQ(String(module, IDS_FIRST, 0x0407), u"erster €");
    EXPECT_EQ(String(module, IDS_FIRST, 0x0409), u"first");
  }
}

TEST(Resource, BitmapsWithoutTheirFileHeader) {
  const HRSRC found = FindResourceA(nullptr, MAKEINTRESOURCEA(IDB_DOTS), RT_BITMAP);
  ASSERT_NE(found, nullptr);
  const DWORD size = SizeofResource(nullptr, found);
  const auto* data = static_cast<const BYTE*>(LockResource(LoadResource(nullptr, found)));
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(data) % 8, 0u);
  EXPECT_EQ(size, 40u + 2 * 12u);  // header, two rows of three pixels
  EXPECT_EQ(data[0], 40);
  EXPECT_EQ(data[4], 3);
  EXPECT_EQ(data[8], 2);
}

TEST(Resource, WantOfMemoryIsAnError) {
  const std::string name(200, 'n');  // too long for a string without memory
  DWORD error = ERROR_NOT_ENOUGH_MEMORY;
  unsigned at = 0;
  while (error == ERROR_NOT_ENOUGH_MEMORY) {
    const test::FailingNew failing(++at);
    EXPECT_EQ(FindResourceA(nullptr, name.c_str(), RT_BITMAP), nullptr);
    error = GetLastError();
  }
  EXPECT_EQ(error, DWORD{ERROR_RESOURCE_NAME_NOT_FOUND});
  EXPECT_GT(at, 1u);
}

TEST(Resource, NamesAreNumbersOrTextInAnyCase) {
  const HRSRC number = FindResourceA(nullptr, MAKEINTRESOURCEA(IDB_DOTS), RT_BITMAP);
  EXPECT_EQ(FindResourceA(nullptr, "#7", "#2"), number);
  const HRSRC text = FindResourceA(nullptr, "LOGO", RT_BITMAP);
  EXPECT_NE(text, nullptr);
  EXPECT_EQ(FindResourceA(nullptr, "lOgO", RT_BITMAP), text);
}

TEST(Resource, WhatIsNotThere) {
  const struct {
    LPCSTR type, name;
    WORD language;
    DWORD error;
  } rows[] = {
      {RT_BITMAP, MAKEINTRESOURCEA(8), 0, ERROR_RESOURCE_NAME_NOT_FOUND},
      {RT_BITMAP, "LOG", 0, ERROR_RESOURCE_NAME_NOT_FOUND},
      {RT_BITMAP, "7", 0, ERROR_RESOURCE_NAME_NOT_FOUND},
      {MAKEINTRESOURCEA(5), MAKEINTRESOURCEA(7), 0, ERROR_RESOURCE_TYPE_NOT_FOUND},
      {"BITMAP", "LOGO", 0, ERROR_RESOURCE_TYPE_NOT_FOUND},
      {RT_BITMAP, "LOGO", 0x407, ERROR_RESOURCE_LANG_NOT_FOUND},
  };
  for (const auto& row : rows) {
    SetLastError(0);
    EXPECT_EQ(FindResourceExA(nullptr, row.type, row.name, row.language), nullptr);
    EXPECT_EQ(GetLastError(), row.error);
  }
}

TEST(Resource, EachModuleHasItsOwn) {
  const HMODULE library = LoadLibraryExA(LIBRARY_PATH, nullptr, 0);
  ASSERT_NE(library, nullptr) << GetLastError();
  EXPECT_EQ(String(library, IDS_FIRST), u"ソ表\\ ソ");
  EXPECT_EQ(String(library, 0), u"zero");
  const HRSRC found = FindResourceA(library, MAKEINTRESOURCEA(1), RT_STRING);
  // A handle of one module means nothing in another.
  EXPECT_EQ(LoadResource(nullptr, found), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_RESOURCE_DATA_NOT_FOUND);
  EXPECT_EQ(SizeofResource(library, reinterpret_cast<HRSRC>(reinterpret_cast<std::uintptr_t>(found) + 1)),
            0u);
  EXPECT_EQ(LoadResource(library, nullptr), nullptr);
  EXPECT_EQ(LockResource(nullptr), nullptr);
  EXPECT_TRUE(FreeLibrary(library));
}

TEST(Resource, ModulesWithoutSoundResources) {
  for (const char* path : {BARE_PATH, DAMAGED_PATH}) {
    const HMODULE library = LoadLibraryExA(path, nullptr, 0);
    ASSERT_NE(library, nullptr) << GetLastError();
    EXPECT_EQ(FindResourceA(library, MAKEINTRESOURCEA(1), RT_STRING), nullptr) << path;
    EXPECT_EQ(GetLastError(), ERROR_RESOURCE_DATA_NOT_FOUND) << path;
    EXPECT_TRUE(FreeLibrary(library));
  }
}

}  // namespace
