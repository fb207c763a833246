// Keys: paths, names, rights, deletion.
#include "registry/Registry.h"

#include "kernel/CodePage.h"

using namespace registrytest;

namespace {

TEST(Keys, AreCreatedAlongThePathAndFoundInAnyCase) {
  Key made, again;
  DWORD disposition = 0;
  ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, "Software\\Tools\\Editor", 0, nullptr, 0, KEY_ALL_ACCESS,
                            nullptr, made.Out(), &disposition),
            0);
  EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
  ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, "SOFTWARE\\\\tools\\EDITOR\\", 0, nullptr, 0, KEY_READ,
                            nullptr, again.Out(), &disposition),
            0);
  EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
  EXPECT_EQ(SetNumber(made, "Width", 640), 0);
  EXPECT_EQ(GetNumber(again, "wIDTH"), 640u);
  Key software;
  ASSERT_EQ(Open(HKEY_CURRENT_USER, "software", &software), 0);
  EXPECT_EQ(SubKeyNames(software), std::vector<std::string>{"Tools"});  // as first spelled
  // The two roots have nothing in common.
  Key other;
  EXPECT_EQ(Open(HKEY_LOCAL_MACHINE, "Software\\Tools", &other), LSTATUS{ERROR_FILE_NOT_FOUND});
}

TEST(Keys, AnswerBadArgumentsWithThePlatformsCodes) {
  Key key(HKEY_CURRENT_USER, "K");
  HKEY result = nullptr;
  DWORD size = 4, length = 10;
  BYTE data[4];
  char name[10];
  const auto bad = reinterpret_cast<HKEY>(std::uintptr_t{0x1234});
  const std::string longName(256, 'n'), deep(2000, '\\');
  const struct {
    const char* what;
    LSTATUS code, expected;
  } table[] = {
      {"open missing", RegOpenKeyExA(key, "x", 0, KEY_READ, &result), 2},
      {"open below missing", RegOpenKeyExA(key, "x\\y", 0, KEY_READ, &result), 2},
      {"open no result", RegOpenKeyExA(key, "x", 0, KEY_READ, nullptr), 87},
      {"open null handle", RegOpenKeyExA(nullptr, "x", 0, KEY_READ, &result), 6},
      {"open bad handle", RegOpenKeyExA(bad, "x", 0, KEY_READ, &result), 6},
      {"open leading separator", RegOpenKeyExA(key, "\\x", 0, KEY_READ, &result), 161},
      {"open separators only", RegOpenKeyExA(key, deep.c_str(), 0, KEY_READ, &result), 161},
      {"open long name", RegOpenKeyExA(key, longName.c_str(), 0, KEY_READ, &result), 87},
      {"create long name",
       RegCreateKeyExA(key, longName.c_str(), 0, nullptr, 0, KEY_READ, nullptr, &result, nullptr), 87},
      {"create null path", RegCreateKeyExA(key, nullptr, 0, nullptr, 0, KEY_READ, nullptr, &result, nullptr),
       87},
      {"create reserved", RegCreateKeyExA(key, "x", 1, nullptr, 0, KEY_READ, nullptr, &result, nullptr), 87},
      {"create bad handle", RegCreateKeyExA(bad, "x", 0, nullptr, 0, KEY_READ, nullptr, &result, nullptr), 6},
      {"query missing", RegQueryValueExA(key, "v", nullptr, nullptr, nullptr, &size), 2},
      {"query data without size", RegQueryValueExA(key, "v", nullptr, nullptr, data, nullptr), 87},
      {"query reserved", RegQueryValueExA(key, "v", &size, nullptr, nullptr, nullptr), 87},
      {"query bad handle", RegQueryValueExA(bad, "v", nullptr, nullptr, nullptr, nullptr), 6},
      {"set without data", RegSetValueExA(key, "v", 0, REG_SZ, nullptr, 1), 87},
      {"set reserved", RegSetValueExA(key, "v", 1, REG_SZ, data, 1), 87},
      {"set bad handle", RegSetValueExA(bad, "v", 0, REG_SZ, data, 1), 6},
      {"set too large", RegSetValueExA(key, "v", 0, REG_SZ, data, (256u << 20) + 1), 1450},
      {"delete missing value", RegDeleteValueA(key, "v"), 2},
      {"delete missing key", RegDeleteKeyA(key, "x"), 2},
      {"delete null path", RegDeleteKeyA(key, nullptr), 87},
      {"delete root", RegDeleteKeyA(HKEY_CURRENT_USER, ""), 5},
      {"enumerate no buffer", RegEnumValueA(key, 0, nullptr, &length, nullptr, nullptr, nullptr, nullptr),
       87},
      {"enumerate no length", RegEnumValueA(key, 0, name, nullptr, nullptr, nullptr, nullptr, nullptr), 87},
      {"enumerate end", RegEnumValueA(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr), 259},
      {"enumerate keys end", RegEnumKeyExA(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr), 259},
      {"info class without length",
       RegQueryInfoKeyA(key, name, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                        nullptr, nullptr),
       87},
      {"close null", RegCloseKey(nullptr), 6},
      {"close bad", RegCloseKey(bad), 6},
      {"close root", RegCloseKey(HKEY_LOCAL_MACHINE), 0},
      {"flush", RegFlushKey(key), 0},
  };
  for (const auto& row : table) EXPECT_EQ(row.code, row.expected) << row.what;
}

TEST(Keys, AClosedHandleStaysInvalidWhenItsPlaceIsUsedAgain) {
  HKEY first = nullptr, second = nullptr;
  ASSERT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, "", 0, KEY_READ, &first), 0);
  ASSERT_EQ(RegCloseKey(first), 0);
  ASSERT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, "", 0, KEY_READ, &second), 0);
  EXPECT_NE(first, second);
  EXPECT_EQ(RegCloseKey(first), 6);
  EXPECT_EQ(RegFlushKey(first), 6);
  EXPECT_EQ(RegCloseKey(second), 0);
}

TEST(Keys, GrantOnlyTheRightsAskedFor) {
  Key all(HKEY_CURRENT_USER, "K");
  ASSERT_EQ(SetNumber(all, "v", 1), 0);
  Key readOnly, setOnly, nothing;
  ASSERT_EQ(Open(HKEY_CURRENT_USER, "K", &readOnly, KEY_READ), 0);
  ASSERT_EQ(Open(HKEY_CURRENT_USER, "K", &setOnly, KEY_SET_VALUE), 0);
  EXPECT_EQ(SetNumber(readOnly, "v", 2), 5);
  EXPECT_EQ(RegDeleteValueA(readOnly, "v"), 5);
  EXPECT_EQ(GetNumber(readOnly, "v"), 1u);
  EXPECT_EQ(SetNumber(setOnly, "v", 3), 0);
  DWORD size = 0, length = 10;
  char name[10];
  EXPECT_EQ(RegQueryValueExA(setOnly, "v", nullptr, nullptr, nullptr, &size), 5);
  EXPECT_EQ(RegEnumValueA(setOnly, 0, name, &length, nullptr, nullptr, nullptr, nullptr), 5);
  EXPECT_EQ(RegEnumKeyExA(setOnly, 0, name, &length, nullptr, nullptr, nullptr, nullptr), 5);
  EXPECT_EQ(GetNumber(readOnly, "v"), 3u);
}

TEST(Keys, ADeletedKeyThatIsHeldOpenIsGone) {
  Key key(HKEY_CURRENT_USER, "Bag\\Inner");
  ASSERT_EQ(SetNumber(key, "v", 1), 0);
  EXPECT_EQ(GetNumber(key, "v"), 1u);
  EXPECT_EQ(RegDeleteKeyA(HKEY_CURRENT_USER, "Bag"), 5);  // it has a subkey
  ASSERT_EQ(RegDeleteKeyA(HKEY_CURRENT_USER, "bag\\inner"), 0);
  DWORD size = 0, length = 10;
  char name[10];
  HKEY result = nullptr;
  EXPECT_EQ(RegQueryValueExA(key, "v", nullptr, nullptr, nullptr, &size), 1018);
  EXPECT_EQ(SetNumber(key, "v", 2), 1018);
  EXPECT_EQ(RegDeleteValueA(key, "v"), 1018);
  EXPECT_EQ(RegEnumValueA(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr), 1018);
  EXPECT_EQ(RegEnumKeyExA(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr), 1018);
  EXPECT_EQ(RegOpenKeyExA(key, "x", 0, KEY_READ, &result), 1018);
  EXPECT_EQ(RegOpenKeyExA(key, "", 0, KEY_READ, &result), 1018);
  EXPECT_EQ(RegCreateKeyExA(key, "x", 0, nullptr, 0, KEY_READ, nullptr, &result, nullptr), 1018);
  EXPECT_EQ(RegDeleteKeyA(key, ""), 1018);
  EXPECT_EQ(RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, &size, nullptr, nullptr, nullptr, nullptr,
                             nullptr, nullptr, nullptr),
            1018);
  // A new key of that name is another key.
  Key fresh(HKEY_CURRENT_USER, "Bag\\Inner");
  EXPECT_EQ(GetNumber(fresh, "v"), 0xDEADBEEF);
  EXPECT_EQ(SetNumber(key, "v", 2), 1018);
  EXPECT_EQ(RegDeleteKeyA(fresh, ""), 0);
  EXPECT_EQ(RegDeleteKeyA(HKEY_CURRENT_USER, "Bag"), 0);
}

// An open key lies in another store than its parent; so does what is below it.
TEST(Keys, AnOpenKeyIsDeletedByItsOwnHandle) {
  Key parent(HKEY_LOCAL_MACHINE, "Bag"), other(HKEY_LOCAL_MACHINE, "Bag\\Other"), open;
  ASSERT_EQ(
      RegCreateKeyExA(parent, "Open", 0, nullptr, 0, KEY_ALL_ACCESS, NullAccessList(), open.Out(), nullptr),
      0);
  Key inner(open, "Inner");
  EXPECT_EQ(RegDeleteKeyA(open, ""), 5) << "it has a subkey";
  EXPECT_EQ(RegDeleteKeyA(inner, ""), 0);
  EXPECT_EQ(RegDeleteKeyA(open, ""), 0);
  EXPECT_EQ(RegDeleteKeyA(open, ""), 1018);
  EXPECT_EQ(SubKeyNames(parent), std::vector<std::string>{"Other"});
  EXPECT_EQ(Faults(HKEY_LOCAL_MACHINE), "");
}

TEST(Keys, TakeAnyByteAndManyLevels) {
  std::string every;
  for (int c = 1; c < 256; ++c) {
    if (c != '\\') every.push_back(static_cast<char>(c));
  }
  ASSERT_EQ(every.size(), 254u);
  Key odd(HKEY_CURRENT_USER, "A\\" + every);
  ASSERT_EQ(odd.code, 0);
  Key parent;
  ASSERT_EQ(Open(HKEY_CURRENT_USER, "a", &parent), 0);
  EXPECT_EQ(SubKeyNames(parent), std::vector<std::string>{every});

  std::string path = "Deep";
  for (int level = 0; level < 200; ++level) path += "\\Level " + std::to_string(level);
  Key deep(HKEY_CURRENT_USER, path);
  ASSERT_EQ(deep.code, 0);
  ASSERT_EQ(SetNumber(deep, "", 7), 0);
  Key again;
  ASSERT_EQ(Open(HKEY_CURRENT_USER, path, &again), 0);
  EXPECT_EQ(GetNumber(again, ""), 7u);
  for (std::size_t end = path.size(); end != std::string::npos; end = path.rfind('\\', end - 1)) {
    ASSERT_EQ(RegDeleteKeyA(HKEY_CURRENT_USER, path.substr(0, end).c_str()), 0) << end;
    if (path.rfind('\\', end - 1) == std::string::npos) break;
  }
  EXPECT_EQ(RegDeleteKeyA(HKEY_CURRENT_USER, "Deep"), 2);
  EXPECT_EQ(Faults(HKEY_CURRENT_USER), "");
}

TEST(Keys, ATrailByteIsNoSeparatorAndKeepsItsCase) {
  ASSERT_TRUE(orm::platform::SetAnsiCodePage(932));
  const std::string name = "\x83\x5C\x83\x41";  // the trail bytes look like a back slash and an "A"
  Key key(HKEY_CURRENT_USER, "Top\\" + name + "\\Sub");
  ASSERT_EQ(key.code, 0);
  Key top, other;
  ASSERT_EQ(Open(HKEY_CURRENT_USER, "TOP", &top), 0);
  EXPECT_EQ(SubKeyNames(top), std::vector<std::string>{name});
  EXPECT_EQ(Open(HKEY_CURRENT_USER, "Top\\\x83\x5C\x83\x61", &other), 2);  // another character
  ASSERT_TRUE(orm::platform::SetAnsiCodePage(1252));
  Key umlaut(HKEY_CURRENT_USER, "\xC4rger"), same;
  EXPECT_EQ(Open(HKEY_CURRENT_USER, "\xE4RGER", &same), 0);
}

TEST(Keys, KeepTheirClassAndTellWhatTheyHold) {
  Key key;
  char className[] = "Settings";
  ASSERT_EQ(
      RegCreateKeyExA(HKEY_CURRENT_USER, "K", 0, className, 0, KEY_ALL_ACCESS, nullptr, key.Out(), nullptr),
      0);
  Key a(key, "abc"), b(key, "defghi");
  ASSERT_EQ(SetBytes(key, "value", REG_BINARY, std::string(300, 'x')), 0);
  ASSERT_EQ(SetNumber(key, "", 1), 0);
  char buffer[20];
  DWORD length = sizeof buffer, subKeys = 0, longestKey = 0, values = 0, longestName = 0, largest = 0;
  FILETIME written{};
  ASSERT_EQ(RegQueryInfoKeyA(key, buffer, &length, nullptr, &subKeys, &longestKey, nullptr, &values,
                             &longestName, &largest, nullptr, &written),
            0);
  EXPECT_STREQ(buffer, "Settings");
  EXPECT_EQ(std::vector<DWORD>({length, subKeys, longestKey, values, longestName, largest}),
            std::vector<DWORD>({8, 2, 6, 2, 5, 300}));
  EXPECT_GT(written.dwHighDateTime, 0x01D00000u);  // after 2014
  // A write moves the time of the key that was written, and of no other.
  FILETIME before{}, after{};
  length = sizeof buffer;
  ASSERT_EQ(RegEnumKeyExA(key, 0, buffer, &length, nullptr, nullptr, nullptr, &before), 0);
  ASSERT_EQ(SetNumber(a, "v", 1), 0);
  length = sizeof buffer;
  ASSERT_EQ(RegEnumKeyExA(key, 0, buffer, &length, nullptr, nullptr, nullptr, &after), 0);
  EXPECT_TRUE(before.dwLowDateTime != after.dwLowDateTime || before.dwHighDateTime != after.dwHighDateTime);
  length = 3;  // "abc" needs four
  EXPECT_EQ(RegEnumKeyExA(key, 0, buffer, &length, nullptr, nullptr, nullptr, nullptr), 234);
}

}  // namespace
