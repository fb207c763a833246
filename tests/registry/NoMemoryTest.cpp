// Each function without the memory that it needs, at each place where it asks for some.
#include "registry/Registry.h"
#include "support/FailingNew.h"

using namespace registrytest;
using test::FailingNew;

namespace {

const std::string kLongName(600, 'n');
const std::string kLongKey = "Sub\\" + std::string(200, 'k');
const std::string kNewKey = kLongKey + "\\New", kNewerKey = kNewKey + "\\Newer";
const std::string kData(3000, 'd'), kOtherData(3500, 'o');

TEST(NoMemory, AtTheFirstUse) {
  int lacking = 0;
  for (unsigned at = 1;; ++at) {
    const int result = InChild([at]() -> int {
      Key made, again;
      bool failed = false;
      LSTATUS code = 0;
      {
        const FailingNew failing(at);
        code = RegCreateKeyExA(HKEY_CURRENT_USER, "K", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, made.Out(),
                               nullptr);
        failed = failing.HasFailed();
      }
      if (code != 0 && (!failed || code != LSTATUS{ERROR_NOT_ENOUGH_MEMORY})) return 2;
      if (SetNumber(Key(HKEY_CURRENT_USER, "K"), "v", 1) != 0) return 3;
      return failed ? code : 1;
    });
    if (result == 1) break;
    ASSERT_TRUE(result == 0 || result == ERROR_NOT_ENOUGH_MEMORY) << result << " at allocation " << at;
    lacking += result == ERROR_NOT_ENOUGH_MEMORY;
  }
  EXPECT_GT(lacking, 3);
}

TEST(NoMemory, IsACodeOfEachFunctionAndLosesNothing) {
  Key root(HKEY_CURRENT_USER, "K");
  char name[700];
  DWORD length = 0, size = 0;
  BYTE data[4000];
  const struct {
    const char* what;
    std::function<LSTATUS(HKEY)> run;  // on a key that has just been opened
  } table[] = {
      {"create",
       [](HKEY key) {
         Key made;
         return RegCreateKeyExA(key, kNewerKey.c_str(), 0, nullptr, 0, KEY_READ, nullptr, made.Out(),
                                nullptr);
       }},
      {"create an open one",
       [](HKEY) {
         Key made;
         return RegCreateKeyExA(HKEY_LOCAL_MACHINE, "K\\Open", 0, nullptr, 0, KEY_READ, NullAccessList(),
                                made.Out(), nullptr);
       }},
      {"open",
       [](HKEY key) {
         Key opened;
         return RegOpenKeyExA(key, kLongKey.c_str(), 0, KEY_READ, opened.Out());
       }},
      {"set", [](HKEY key) { return SetBytes(key, kLongName, REG_BINARY, kOtherData); }},
      {"query",
       [&](HKEY key) {
         size = sizeof data;
         return RegQueryValueExA(key, kLongName.c_str(), nullptr, nullptr, data, &size);
       }},
      {"enumerate values",
       [&](HKEY key) {
         length = sizeof name;
         return RegEnumValueA(key, 1, name, &length, nullptr, nullptr, nullptr, nullptr);
       }},
      {"enumerate keys",
       [&](HKEY key) {
         length = sizeof name;
         return RegEnumKeyExA(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr);
       }},
      {"information",
       [&](HKEY key) {
         return RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, &length, nullptr, nullptr, nullptr, nullptr,
                                 nullptr, nullptr, nullptr);
       }},
      {"delete a value", [](HKEY key) { return RegDeleteValueA(key, kLongName.c_str()); }},
      {"delete a key", [](HKEY key) { return RegDeleteKeyA(key, kLongKey.c_str()); }},
      {"flush", [](HKEY key) { return RegFlushKey(key); }},
      {"a transaction",
       [](HKEY key) {
         const LSTATUS code = OrmRegBeginTransaction(key, 0);
         return code == 0 ? OrmRegAbortTransaction(key) : code;
       }},
      {"check", [](HKEY key) { return OrmRegCheckStore(key, nullptr, nullptr); }},
  };
  for (const auto& row : table) {
    bool failed = true;
    for (unsigned at = 1; failed; ++at) {
      // What it finds, whatever it did the last time.
      RegDeleteKeyA(root, kNewerKey.c_str());
      RegDeleteKeyA(root, kNewKey.c_str());
      RegDeleteKeyA(HKEY_LOCAL_MACHINE, "K\\Open");
      ASSERT_EQ(Key(root, kLongKey).code, 0);
      ASSERT_EQ(SetBytes(root, kLongName, REG_BINARY, kData), 0);
      ASSERT_EQ(SetNumber(root, "other", 1), 0);
      Key key;
      ASSERT_EQ(Open(HKEY_CURRENT_USER, "K", &key, KEY_ALL_ACCESS), 0);
      LSTATUS code = 0;
      {
        const FailingNew failing(at);
        code = row.run(key);
        failed = failing.HasFailed();
      }
      ASSERT_TRUE(code == 0 || (failed && code == LSTATUS{ERROR_NOT_ENOUGH_MEMORY}))
          << row.what << ": " << code << " at allocation " << at;
      ASSERT_EQ(GetNumber(root, "other"), 1u);
    }
  }
  EXPECT_EQ(Faults(HKEY_CURRENT_USER), "");
  EXPECT_EQ(Faults(HKEY_LOCAL_MACHINE), "");
}

}  // namespace
