// Strings after the module has given up the shared empty block.
#include <ormutil/BaseString.h>

#include <gtest/gtest.h>

using namespace orm;

TEST(StringRelease, EmptyStringsGetBlocksOfTheirOwn) {
  BuildEmptyString();
  const String before;
  const WideString wideBefore;
  ReleaseEmptyString();
  {
    String a, b;
    EXPECT_NE(a.GetBegin(), b.GetBegin());
    EXPECT_NE(a.GetBegin(), before.GetBegin());
    EXPECT_EQ(a.GetCapacity(), 1u);
    EXPECT_TRUE(WideString().IsEmpty());
    const String copy = a;
    EXPECT_EQ(copy.GetBegin(), a.GetBegin());
    a += "text";
    EXPECT_TRUE(copy.IsEmpty());
    const String moved = std::move(a);
    EXPECT_TRUE(a.IsEmpty());
    EXPECT_STREQ(moved.GetBegin(), "text");
  }
  // What was empty before still is, and can be used.
  String late = before;
  late += "x";
  EXPECT_TRUE(before.IsEmpty());
  EXPECT_TRUE(wideBefore.IsEmpty());
}
