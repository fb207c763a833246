// What happens when the process has no drawing handles left: the stated assertions, nothing lost, nothing
// leaked.
#include "drawing/Drawing.h"

namespace test {
namespace {

using orm::Bitmap;
using orm::Font;

class HandleLimitTest : public DrawingTest {
 protected:
  void TearDown() override {
    Free(mTaken.size());
    DrawingTest::TearDown();
  }
  void TakeAll() {
    while (const HBRUSH brush = CreateSolidBrush(0)) mTaken.push_back(brush);
  }
  void Free(size_t count) {
    for (; count > 0 && !mTaken.empty(); --count) {
      DeleteObject(mTaken.back());
      mTaken.pop_back();
    }
  }

 private:
  std::vector<HBRUSH> mTaken;
};

TEST_F(HandleLimitTest, FontsAndBitmapsSayWhatTheyMiss) {
  TakeAll();
  Font font;
  EXPECT_TRUE(font.Create("Tahoma;8:1,1,0"));
  EXPECT_THAT(TakeAssertions(), testing::ElementsAre("src/shared/Font(83):mFont != 0"));
  EXPECT_EQ(font.GetHandle(), nullptr);
  Bitmap bitmap;
  const Resource picture =
      Resource::Picture(3, 3, [](int x, int y) { return static_cast<std::uint32_t>(x * 3 + y * 5); });
  EXPECT_TRUE(Load(bitmap, picture, {2, 1, 3, 1}));
  EXPECT_THAT(
      TakeAssertions(),
      testing::ElementsAre(
          "src/shared/Bitmap(349):dc != 0", "src/shared/Bitmap(378):mBitmap",
          "src/shared/Bitmap(382):SetDIBits(dc, mBitmap, 0, (WORD)pBI->bmiHeader.biHeight, pBits, pBI, 0)",
          "src/shared/Bitmap(54):dc != 0",
          "src/shared/Bitmap(56):::GetObjectA(mBitmap, sizeof(BITMAP), &bitmapInfo) == sizeof(BITMAP)",
          "src/shared/Bitmap(408):targetDC.CreateCompatibleDC(dc)", "src/shared/Bitmap(418):mBitmap"));
  // Enough for the screen and the picture, but not for reading it back.
  Free(2);
  EXPECT_TRUE(Load(bitmap, picture, {2, 1, 3, 1}));
  EXPECT_THAT(TakeAssertions(), testing::Contains("src/shared/Bitmap(54):dc != 0"));
}

// Whatever is missing, a later try with enough handles gives the whole picture.
TEST_F(HandleLimitTest, EveryNumberOfFreeHandles) {
  const Canvas canvas(12, 12), whole(12, 12);
  const Resource picture = Resource::Picture(
      5, 5, [](int x, int y) { return static_cast<std::uint32_t>(x * 0x2040 + y * 0x30 + 1); });
  const auto drawAll = [&picture](const Canvas& on) {
    Bitmap bitmap;
    Load(bitmap, picture, {2, 1, 1, 1}, false);
    Load(bitmap, picture, {1, 1, 2, 1}, true);
    bitmap.Draw(on.context, {0, 0}, {0, 0}, {0, 0});
    bitmap.DrawTransparent(on.context, {2, 2}, Bitmap::TRANS_FIRSTPIXEL, 0, {0, 0}, {0, 0});
    bitmap.DrawRepeat(on.context, {0, 0}, {12, 12}, {}, true);
  };
  drawAll(whole);
  TakeAll();
  size_t failures = 1;
  for (size_t spare = 0; failures > 0 && spare < 20; ++spare) {
    drawAll(canvas);
    failures = TakeAssertions().size();
    Free(1);
  }
  EXPECT_EQ(failures, 0u);
  EXPECT_EQ(canvas.Colors(), whole.Colors());
}

}  // namespace
}  // namespace test
