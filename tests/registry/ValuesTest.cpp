// Values: buffers, types, names, many and large ones, and what a handle remembers.
#include "registry/Registry.h"

using namespace registrytest;

namespace {

TEST(Values, FollowTheBufferRules) {
  Key key(HKEY_CURRENT_USER, "K");
  const std::string whole("text\0", 5), bare = "text", none;
  struct Row {
    const char* what;
    DWORD type;
    std::string stored;
    bool buffer;
    DWORD room;
    LSTATUS code;
    DWORD size;
    std::string seen;  // the 8 bytes of the buffer, which was full of '#'
  };
  const Row table[] = {
      {"size only", REG_SZ, whole, false, 0, 0, 5, "########"},
      {"size only ignores the room", REG_SZ, whole, false, 1, 0, 5, "########"},
      {"fits exactly", REG_SZ, whole, true, 5, 0, 5, std::string("text\0###", 8)},
      {"one too small", REG_SZ, whole, true, 4, 234, 5, "########"},
      {"no room", REG_SZ, whole, true, 0, 234, 5, "########"},
      {"terminator added", REG_SZ, bare, true, 8, 0, 4, std::string("text\0###", 8)},
      {"no room for a terminator", REG_SZ, bare, true, 4, 0, 4, "text####"},
      {"bytes get no terminator", REG_BINARY, bare, true, 8, 0, 4, "text####"},
      {"empty text", REG_SZ, none, true, 8, 0, 0, std::string("\0#######", 8)},
      {"empty bytes, no room", REG_BINARY, none, true, 0, 0, 0, "########"},
      {"unknown type", 0x12345678, bare, true, 8, 0, 4, "text####"},
  };
  for (const Row& row : table) {
    ASSERT_EQ(SetBytes(key, "v", row.type, row.stored), 0) << row.what;
    for (int turn = 0; turn < 2; ++turn) {  // read from the store, then remembered
      std::string buffer = "########";
      DWORD size = row.room, type = 0;
      EXPECT_EQ(RegQueryValueExA(key, "v", nullptr, &type,
                                 row.buffer ? reinterpret_cast<BYTE*>(buffer.data()) : nullptr, &size),
                row.code)
          << row.what;
      EXPECT_EQ(size, row.size) << row.what;
      EXPECT_EQ(type, row.type) << row.what;
      EXPECT_EQ(buffer, row.seen) << row.what;
    }
  }
  DWORD type = 0;
  EXPECT_EQ(RegQueryValueExA(key, "v", nullptr, &type, nullptr, nullptr), 0);
}

TEST(Values, KeepEveryTypeNameAndSpelling) {
  Key key(HKEY_CURRENT_USER, "K");
  std::string odd;
  for (int c = 255; c > 0; --c) odd.push_back(static_cast<char>(c));
  const std::string names[] = {"", " leading blank", "with\\back slash", odd, "MiXed"};
  for (DWORD i = 0; i < std::size(names); ++i) ASSERT_EQ(SetBytes(key, names[i], i, names[i]), 0);
  for (DWORD i = 0; i < std::size(names); ++i) {
    std::string data;
    DWORD type = 99;
    EXPECT_EQ(GetBytes(key, names[i], &data, &type), 0);
    EXPECT_EQ(data, names[i]);
    EXPECT_EQ(type, i);
  }
  // A later write keeps the first spelling; null is the empty name.
  ASSERT_EQ(SetNumber(key, "mIxEd", 5), 0);
  const auto listed = ValueNames(key);
  EXPECT_EQ(listed.size(), std::size(names));
  EXPECT_NE(std::find(listed.begin(), listed.end(), "MiXed"), listed.end());
  EXPECT_EQ(RegQueryValueExA(key, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(RegDeleteValueA(key, nullptr), 0);
  EXPECT_EQ(RegDeleteValueA(key, "MIXED"), 0);
  EXPECT_EQ(ValueNames(key).size(), std::size(names) - 2);
}

TEST(Values, OnlyTheCaseOfLettersDoesNotMatter) {
  Key key(HKEY_CURRENT_USER, "K");
  const std::string around = "@AMZ[`amz{\x7F\x01";
  for (std::size_t size = 1; size <= 20; ++size) {
    std::string name, swapped, other;
    for (std::size_t i = 0; i < size; ++i) {
      const char c = around[(i * 5 + size) % around.size()];
      const bool isLetter = std::isalpha(static_cast<unsigned char>(c)) != 0;
      name.push_back(c);
      swapped.push_back(static_cast<char>(isLetter ? c ^ 0x20 : c));
      other.push_back(static_cast<char>(isLetter ? c : c ^ 0x20));
    }
    ASSERT_EQ(SetBytes(key, name, REG_BINARY, name), 0);
    std::string data;
    EXPECT_EQ(GetBytes(key, swapped, &data, nullptr), 0) << name;
    EXPECT_EQ(data, name);
    EXPECT_EQ(GetBytes(key, other, &data, nullptr), other == name ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND)
        << name;
  }
}

TEST(Values, LongNamesThatBeginAlikeAreToldApart) {
  Key key(HKEY_CURRENT_USER, "K");
  for (const std::size_t length : {479u, 480u, 481u, 500u, 511u, 512u, 16383u}) {
    for (const char last : {'a', 'b'}) {
      const std::string name = std::string(length - 1, 'N') + last;
      ASSERT_EQ(SetNumber(key, name, static_cast<DWORD>(length) * 2 + (last == 'b')), 0) << length;
    }
  }
  for (const std::size_t length : {479u, 480u, 481u, 500u, 511u, 512u, 16383u}) {
    for (const char last : {'A', 'B'}) {
      const std::string name = std::string(length - 1, 'n') + last;
      EXPECT_EQ(GetNumber(key, name), length * 2 + (last == 'B')) << length;
    }
  }
  EXPECT_EQ(ValueNames(key).size(), 14u);
  EXPECT_EQ(RegDeleteValueA(key, (std::string(511, 'n') + 'a').c_str()), 0);
  EXPECT_EQ(GetNumber(key, std::string(511, 'n') + 'b'), 1025u);
  EXPECT_EQ(ValueNames(key).size(), 13u);
  EXPECT_EQ(SetNumber(key, std::string(16384, 'n'), 1), 87);
  EXPECT_EQ(GetNumber(key, std::string(16384, 'n')), 0xDEADBEEF);
}

TEST(Values, TenThousandInOneKeyComeInTheOrderOfTheirNames) {
  Key key(HKEY_CURRENT_USER, "K");
  for (DWORD i = 0; i < 10000; ++i) {
    const DWORD shuffled = i * 7919 % 10000;
    char name[20];
    snprintf(name, sizeof name, shuffled % 2 ? "Name%05u" : "nAME%05u", shuffled);
    ASSERT_EQ(SetNumber(key, name, shuffled), 0);
  }
  const auto names = ValueNames(key);
  ASSERT_EQ(names.size(), 10000u);
  for (std::size_t i = 0; i < names.size(); ++i) ASSERT_EQ(std::stoul(names[i].substr(4)), i);
  // An index in any order, and after a change.
  char name[20];
  for (const DWORD index : {5000u, 10u, 9999u, 9998u, 0u}) {
    DWORD length = sizeof name, value = 0, size = 4;
    ASSERT_EQ(
        RegEnumValueA(key, index, name, &length, nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size),
        0);
    EXPECT_EQ(value, index);
  }
  ASSERT_EQ(RegDeleteValueA(key, "name00000"), 0);
  DWORD length = sizeof name, value = 0, size = 4;
  ASSERT_EQ(RegEnumValueA(key, 0, name, &length, nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size),
            0);
  EXPECT_EQ(value, 1u);
  ASSERT_EQ(RegDeleteKeyA(HKEY_CURRENT_USER, "K"), 0);
  EXPECT_EQ(Faults(HKEY_CURRENT_USER), "");
}

TEST(Values, AnEnumerationMeetsWhatStaysThoughOthersChangeTheKey) {
  Key key(HKEY_CURRENT_USER, "K"), other(HKEY_CURRENT_USER, "K");
  for (const char* name : {"b", "d", "f", "h"}) ASSERT_EQ(SetNumber(key, name, 1), 0);
  const auto next = [&key](DWORD index) {
    char name[20];
    DWORD length = sizeof name;
    const LSTATUS code = RegEnumValueA(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
    return code == 0 ? std::string(name, length) : std::to_string(code);
  };
  EXPECT_EQ(next(0), "b");
  ASSERT_EQ(RegDeleteValueA(other, "b"), 0);
  EXPECT_EQ(next(1), "d") << "the one before it is gone";
  ASSERT_EQ(SetNumber(other, "a", 1), 0);
  ASSERT_EQ(SetNumber(other, "c", 1), 0);
  ASSERT_EQ(SetNumber(other, "e", 1), 0);
  EXPECT_EQ(next(2), "e") << "what came behind it is met, what came before is not";
  ASSERT_EQ(RegDeleteValueA(other, "f"), 0);
  EXPECT_EQ(next(3), "h");
  EXPECT_EQ(next(4), "259");
  EXPECT_EQ(next(0), "a") << "from the beginning";
}

TEST(Values, EnumerationFollowsTheBufferRulesToo) {
  Key key(HKEY_CURRENT_USER, "K");
  ASSERT_EQ(SetBytes(key, "name", REG_BINARY, "12345"), 0);
  char name[6] = "#####";
  BYTE data[8];
  DWORD length = 4, size = sizeof data;
  EXPECT_EQ(RegEnumValueA(key, 0, name, &length, nullptr, nullptr, data, &size), 234);
  EXPECT_STREQ(name, "#####");
  length = 5, size = 4;
  EXPECT_EQ(RegEnumValueA(key, 0, name, &length, nullptr, nullptr, data, &size), 234);
  EXPECT_EQ(size, 5u);
  length = 5, size = 5;
  DWORD type = 0;
  EXPECT_EQ(RegEnumValueA(key, 0, name, &length, nullptr, &type, data, &size), 0);
  EXPECT_STREQ(name, "name");
  EXPECT_EQ(length, 4u);
  EXPECT_EQ(type, REG_BINARY);
}

TEST(Values, AChangeByAnotherProcessIsSeenByTheNextRead) {
  Key key(HKEY_CURRENT_USER, "K");
  ASSERT_EQ(SetNumber(key, "v", 1), 0);
  const volatile uint64_t* word = OrmRegistryChangeWord(key);
  EXPECT_EQ(GetNumber(key, "v"), 1u);
  const uint64_t before = *word;
  EXPECT_EQ(GetNumber(key, "v"), 1u);  // remembered
  EXPECT_EQ(SetNumber(key, "v", 1), 0);
  EXPECT_EQ(*word, before) << "what is no change moves nothing";
  EXPECT_EQ(
      InChild([&] {
        Key own;
        return Open(HKEY_CURRENT_USER, "K", &own, KEY_ALL_ACCESS) == 0 && SetNumber(own, "V", 2) == 0 ? 0 : 1;
      }),
      0);
  EXPECT_NE(*word, before);
  EXPECT_EQ(GetNumber(key, "v"), 2u);
  EXPECT_EQ(InChild([&] { return RegDeleteValueA(key, "v") == 0 ? 0 : 1; }), 0);  // by the inherited handle
  EXPECT_EQ(GetNumber(key, "v"), 0xDEADBEEF);
  EXPECT_NE(OrmRegistryChangeWord(nullptr), nullptr);
}

TEST(Values, TheStoreGrowsUnderItsReaders) {
  Key key(HKEY_CURRENT_USER, "K");
  ASSERT_EQ(SetNumber(key, "count", 0), 0);
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t reader = StartForked([&]() -> int {
    close(ready[1]);
    char c = 0;
    for (DWORD seen = 0; read(ready[0], &c, 1) == 1; ++seen) {
      std::string data;
      if (GetBytes(key, "big" + std::to_string(seen), &data) != 0 || data != std::string(1 << 20, c))
        return 1;
    }
    return 0;
  });
  close(ready[0]);
  for (int i = 0; i < 60; ++i) {  // several times the first size of the map
    const char c = static_cast<char>('A' + i % 26);
    ASSERT_EQ(SetBytes(key, "big" + std::to_string(i), REG_BINARY, std::string(1 << 20, c)), 0) << i;
    ASSERT_EQ(write(ready[1], &c, 1), 1);
  }
  close(ready[1]);
  EXPECT_EQ(WaitFor(reader), 0);
  std::string large;
  ASSERT_EQ(SetBytes(key, "huge", REG_BINARY, std::string(100 << 20, 'h')), 0);
  ASSERT_EQ(GetBytes(key, "huge", &large), 0);
  EXPECT_EQ(large.size(), 100u << 20);
}

}  // namespace
