// Strings out of a module's resources.
#include <ormutil/BaseString.h>

#include <string>

#include "AssertionLog.h"
#include "support/TraceConfig.h"

using namespace orm;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(StringTable, FindsStringsInsideTheirTableOnly) {
  const HMODULE library = LoadLibraryExA(STRING_TABLES_PATH, nullptr, 0);
  ASSERT_NE(library, nullptr);
  test::AssertionLog log;
  unsigned length = 77;
  unsigned short* text = nullptr;
  EXPECT_TRUE(LoadResString(library, 17, length, text));
  ASSERT_EQ(length, 4u);
  EXPECT_EQ(WideString(text, text + length).GetAt(3), unsigned{'t'});
  EXPECT_TRUE(LoadResString(library, 16, length, text));
  EXPECT_EQ(length, 1u);
  for (unsigned id : {18u, 31u, 48u, 49u}) {
    EXPECT_TRUE(LoadResString(library, id, length, text)) << id;
    EXPECT_EQ(length, 0u) << id;
  }
  EXPECT_THAT(log.Take(), IsEmpty());
  for (unsigned id : {32u, 33u, 47u, 50u}) {
    EXPECT_FALSE(LoadResString(library, id, length, text)) << id;
    EXPECT_THAT(log.Take(), ElementsAre(test::Failure("src/shared/BaseString", 170, "forced assert"))) << id;
  }
  FreeLibrary(library);
}

TEST(StringTable, TellsWhichStringIsMissing) {
  const HMODULE library = LoadLibraryExA(STRING_TABLES_PATH, nullptr, 0);
  ASSERT_NE(library, nullptr);
  test::SetRegistryText(test::TRACE_KEY + "\\test_string", "string", "e");
  test::AssertionLog log;
  unsigned length = 0;
  unsigned short* text = nullptr;
  EXPECT_FALSE(LoadResString(library, 5, length, text));
  char line[120];
  std::snprintf(line, sizeof line, "unable to load string id 5 from HMODULE 0x%08zx, error %d",
                reinterpret_cast<uintptr_t>(library), static_cast<int>(ERROR_RESOURCE_NAME_NOT_FOUND));
  EXPECT_THAT(log.Take(), ElementsAre(line, test::Failure("src/shared/BaseString", 156, "forced assert")));
  FreeLibrary(library);
}
