// The registry bag: what it stores, and keys that are missing, foreign or deleted.
#include <gmock/gmock.h>
#include <pthread.h>

#include <utility>

#include "PersistentTest.h"
#include "kernel/CodePage.h"
#include "support/ErrorLayers.h"

using namespace orm;
using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> Texts(const std::vector<String>& strings) {
  std::vector<std::string> texts;
  for (const String& text : strings) texts.push_back(text.GetBegin());
  return texts;
}

bool KeyExists(const char* key) {
  HKEY handle = nullptr;
  if (RegOpenKeyExA(HKEY_CURRENT_USER, key, 0, KEY_READ, &handle) != kSuccess) return false;
  RegCloseKey(handle);
  return true;
}

}  // namespace

TEST_F(PersistentTest, ReadingCreatesNothing) {
  EXPECT_TRUE(mBag.IsBagNew());
  EXPECT_THAT(mBag.EnumProperties(), IsEmpty());
  EXPECT_THAT(mBag.EnumBags(), IsEmpty());
  EXPECT_EQ(mBag.GetType("x"), Properties::TYPE_NONE);
  mBag.Delete("x");
  mBag.Clear();
  mBag.DeleteBag();
  EXPECT_FALSE(KeyExists("SOFTWARE\\Tools"));
  mBag.SetNumber("x", 1);
  EXPECT_TRUE(KeyExists("SOFTWARE\\Tools\\Editor"));
  EXPECT_FALSE(mBag.IsBagNew());
}

TEST_F(PersistentTest, WhatIsStored) {
  mBag.SetNumber("number", 0x01020304);
  mBag.SetString("string", "text");
  mBag.SetBinary("binary", Binary("\0\1", 2));
  mBag.SetBinary("null", Binary());
  const struct {
    const char* name;
    DWORD type;
    std::string data;
  } cases[] = {{"NUMBER", REG_DWORD, "\4\3\2\1"},
               {"string", REG_SZ, std::string("text\0", 5)},
               {"binary", REG_BINARY, std::string("\0\1", 2)},
               {"null", REG_BINARY, ""}};
  HKEY key = nullptr;
  ASSERT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, "SOFTWARE\\Tools\\Editor", 0, KEY_READ, &key), kSuccess);
  for (const auto& c : cases) {
    char data[16];
    DWORD size = sizeof data, type = 0;
    ASSERT_EQ(RegQueryValueExA(key, c.name, nullptr, &type, reinterpret_cast<BYTE*>(data), &size), kSuccess);
    EXPECT_EQ(type, c.type);
    EXPECT_EQ(std::string(data, size), c.data);
  }
  RegCloseKey(key);
}

TEST_F(PersistentTest, ForeignValues) {
  for (DWORD type : {REG_NONE, REG_SZ, REG_EXPAND_SZ, REG_BINARY, REG_DWORD, REG_DWORD_BIG_ENDIAN, REG_LINK,
                     REG_MULTI_SZ, REG_QWORD, DWORD{0xFFFF}}) {
    SetRaw(("v" + std::to_string(type)).c_str(), type, "1234");
  }
  EXPECT_THAT(Texts(mBag.EnumProperties()), ElementsAre("v1", "v3", "v4"));
  EXPECT_EQ(mBag.GetType("v2"), Properties::TYPE_NONE);
  EXPECT_EQ(mBag.GetString("v1"), "1234") << "stored without its terminator";
  SetRaw("cut", REG_SZ, std::string("ab\0cd", 5));
  EXPECT_EQ(mBag.GetString("cut"), "ab");
  SetRaw("nothing", REG_SZ, "");
  EXPECT_EQ(mBag.GetString("nothing"), "");
  SetRaw("short", REG_DWORD, "\1\2");
  EXPECT_EQ(mBag.GetNumber("short"), 0x201u);
  SetRaw("v", REG_DWORD, "1234", "SOFTWARE\\Tools\\Editor\\Below");
  mBag.Clear();
  HKEY key = nullptr;
  ASSERT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, "SOFTWARE\\Tools\\Editor", 0, KEY_READ, &key), kSuccess);
  DWORD values = 99, subkeys = 99;
  RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values, nullptr, nullptr,
                   nullptr, nullptr);
  EXPECT_EQ(values, 0u);
  EXPECT_EQ(subkeys, 1u);
  RegCloseKey(key);
}

TEST_F(PersistentTest, BagsInBags) {
  const std::string longName(200, 'n');
  for (const std::string& name : {std::string("a"), std::string("B\\C\\D"), longName}) {
    PersistentProperties bag;
    bag.Open(("Tools\\Editor\\" + name).c_str(), true);
    bag.SetNumber("x", 1);
  }
  EXPECT_THAT(Texts(mBag.EnumBags()), ElementsAre("a", "B", longName));
  EXPECT_THAT(mBag.EnumProperties(), IsEmpty());
  mBag.SetNumber("y", 2);
  mBag.DeleteBag();
  EXPECT_FALSE(KeyExists("SOFTWARE\\Tools\\Editor"));
  EXPECT_TRUE(KeyExists("SOFTWARE\\Tools"));
  EXPECT_TRUE(mBag.IsBagNew());
  mBag.DeleteBag();
  mBag.SetNumber("y", 3);
  EXPECT_EQ(mBag.GetNumber("y"), 3u);
}

// As deep as others like to make it, and deleted by a thread of little stack.
TEST_F(PersistentTest, ADeepBagIsDeleted) {
  HKEY key = nullptr;
  RegCreateKeyExA(HKEY_CURRENT_USER, "SOFTWARE\\Tools\\Editor", 0, nullptr, 0, KEY_WRITE, nullptr, &key,
                  nullptr);
  for (int depth = 0; depth < 5'000; ++depth) {
    HKEY below = nullptr;
    ASSERT_EQ(RegCreateKeyExA(key, "k", 0, nullptr, 0, KEY_WRITE, nullptr, &below, nullptr), kSuccess);
    RegCloseKey(std::exchange(key, below));
  }
  RegCloseKey(key);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 256 * 1024);
  const auto deleteBag = [](void* bag) -> void* {
    static_cast<PersistentProperties*>(bag)->DeleteBag();
    return nullptr;
  };
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, &attributes, deleteBag, &mBag), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  EXPECT_TRUE(mBag.IsBagNew());
}

// The name ends with a back slash, once the code page is not the one in which that was half of a character.
TEST_F(PersistentTest, ABagThatItsNameDoesNotLeadToIsNotDeleted) {
  mBag.SetNumber("x", 1);
  ASSERT_TRUE(orm::platform::SetAnsiCodePage(932));
  PersistentProperties below;
  below.Open("Tools\\Editor\\\x83\x5C", true);
  below.SetNumber("y", 2);
  ASSERT_TRUE(orm::platform::SetAnsiCodePage(1252));
  EXPECT_EQ(LayersOf([&] { mBag.DeleteBag(); }),
            (Layers{{1010, "Failed to delete property bag."},
                    {1010, "Failed to delete registry key '" + kKeyName + "'. "},
                    {1010, SystemText(1010)}}));
  EXPECT_EQ(mBag.GetNumber("x"), 1u);
  ASSERT_TRUE(orm::platform::SetAnsiCodePage(932));
  mBag.DeleteBag();
  ASSERT_TRUE(orm::platform::SetAnsiCodePage(1252));
  EXPECT_TRUE(mBag.IsBagNew());
}

TEST_F(PersistentTest, OpenAnotherBag) {
  mBag.SetNumber("x", 1);
  PersistentProperties other;
  other.Open("Tools\\Editor", true);
  EXPECT_EQ(other.GetNumber("x"), 1u);
  other.DeleteBag();
  mBag.Open("Tools\\Editor", true);
  EXPECT_FALSE(mBag.IsBagNew()) << "the same name keeps the key";
  mBag.Open("tools\\editor", true);
  EXPECT_TRUE(mBag.IsBagNew()) << "another spelling opens it anew";
  mBag.SetNumber("x", 2);
  mBag.Open("tools\\editor", false);
  EXPECT_TRUE(mBag.IsBagNew());
  mBag.SetNumber("x", 3);
  mBag.Open("TOOLS\\EDITOR", true);
  EXPECT_EQ(mBag.GetNumber("x"), 2u);
}

TEST_F(PersistentTest, NoBagChosen) {
  PersistentProperties none;
  EXPECT_FALSE(none.IsBagNew());
  EXPECT_THAT(Texts(none.EnumBags()), testing::Contains(testing::StrCaseEq("SOFTWARE")));
  EXPECT_EQ(LayersOf([&] { none.DeleteBag(); })[0], (Layer{0xE7220004, "Failed to delete property bag."}));
  EXPECT_THAT(Texts(none.EnumBags()), testing::Contains(testing::StrCaseEq("SOFTWARE")));
}
