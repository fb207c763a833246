// The machine's registry names the ANSI code page.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "support/Child.h"
#include "support/ScarceMemory.h"
#include "win32.h"

namespace {

void WriteAnsiCodePage(const char* text, DWORD type = REG_SZ) {
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage", 0,
                            nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr),
            0);
  EXPECT_EQ(RegSetValueExA(key, "ACP", 0, type, reinterpret_cast<const BYTE*>(text),
                           static_cast<DWORD>(std::string(text).size() + 1)),
            0);
  RegCloseKey(key);
}

TEST(AnsiCodePage, DISABLED_IsWhatTheParentExpects) {
  const char* expected = std::getenv("ORM_TEST_PAGE");
  ASSERT_NE(expected, nullptr);
  EXPECT_EQ(std::to_string(GetACP()), expected);
}

TEST(AnsiCodePage, ComesFromTheRegistryOfTheMachine) {
  const struct {
    const char* value;
    DWORD type;
    const char* page;
  } rows[] = {{"932", REG_SZ, "932"},     {"65001", REG_SZ, "65001"},      {"1200", REG_SZ, "1252"},
              {"", REG_SZ, "1252"},       {"99999999999", REG_SZ, "1252"}, {"12x", REG_SZ, "1252"},
              {"950", REG_BINARY, "1252"}};
  for (const auto& row : rows) {
    WriteAnsiCodePage(row.value, row.type);
    EXPECT_EQ(test::RunCase("AnsiCodePage.DISABLED_IsWhatTheParentExpects",
                            std::string("ORM_TEST_PAGE=") + row.page),
              0)
        << row.value;
  }
  EXPECT_EQ(GetACP(), 1252u);  // this process asked before
}

// The first question of a process may lack its memory, at any point; the next one has the answer all the
// same.
TEST(AnsiCodePage, DISABLED_IsAskedForAgainAfterWantOfMemory) {
  const char* allocation = std::getenv("ORM_TEST_ALLOCATION");
  ASSERT_NE(allocation, nullptr);
  bool isRefused = false;
  const bool wasReached = test::RefuseAllocation(
      std::atol(allocation), [] { GetACP(); }, isRefused);
  EXPECT_EQ(GetACP(), 932u);
  if (!HasFailure()) std::_Exit(wasReached ? 0 : 2);
}

TEST(AnsiCodePage, WantOfMemoryIsForgotten) {
  WriteAnsiCodePage("932");
  int status = 0, allocation = 0;
  for (; status == 0; ++allocation) {
    status = test::RunCase("AnsiCodePage.DISABLED_IsAskedForAgainAfterWantOfMemory",
                           "ORM_TEST_ALLOCATION=" + std::to_string(allocation));
  }
  EXPECT_EQ(status, 2) << "allocation " << allocation - 1;
  EXPECT_GT(allocation, 10);
}

}  // namespace
