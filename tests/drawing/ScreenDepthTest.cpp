// Bitmaps on screens of every depth. The settings are read at the first drawing call of the process, so the
// fixture writes them before that.
#include <optional>

#include "drawing/Drawing.h"
#include "drawing/RepeatModel.h"

namespace test {
namespace {

using orm::Bitmap;

constexpr int width = 20, height = 10;

std::uint32_t Spotted(int x, int y) {
  if ((x == 0 && y == 0) || (x * y) % 5 == 3) return 0xFF00FF;
  return static_cast<std::uint32_t>(x * 12) << 16 | static_cast<std::uint32_t>(y * 25) << 8 | 0x30;
}

class ScreenDepthTest : public DrawingTest, public testing::WithParamInterface<DWORD> {
 protected:
  void SetUp() override {
    HKEY key = nullptr;
    RegCreateKeyExA(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Control\\Video\\Screen\\0000", 0, nullptr,
                    0, KEY_SET_VALUE, nullptr, &key, nullptr);
    const DWORD bits = GetParam();
    RegSetValueExA(key, "DefaultSettings.BitsPerPel", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&bits),
                   sizeof bits);
    RegCloseKey(key);
    DrawingTest::SetUp();
    mScreen = GetDC(nullptr);
    if (GetDeviceCaps(mScreen, BITSPIXEL) != static_cast<int>(bits))
      GTEST_SKIP() << "needs a process of its own";
    ASSERT_TRUE(Load(mBitmap.emplace(), Resource::Picture(width, height, Spotted)));
    for (int y = 0; y < 100; ++y)
      for (int x = 0; x < 100; ++x)
        SetPixel(mScreen, x, y, RGB(static_cast<BYTE>(x * 5), static_cast<BYTE>(y * 9), 0xFF));
  }
  void TearDown() override {
    mBitmap.reset();
    ReleaseDC(nullptr, mScreen);
    DrawingTest::TearDown();
  }

  std::vector<COLORREF> Read(int left, int top, int columns, int rows) const {
    std::vector<COLORREF> colors;
    for (int y = 0; y < rows; ++y)
      for (int x = 0; x < columns; ++x) colors.push_back(GetPixel(mScreen, left + x, top + y));
    return colors;
  }
  // What the screen makes of the bitmap's colours.
  std::vector<COLORREF> ShowPlain() const {
    mBitmap->Draw(mScreen, {60, 60}, {0, 0}, {0, 0});
    return Read(60, 60, width, height);
  }

  HDC mScreen = nullptr;
  std::optional<Bitmap> mBitmap;
};

TEST_P(ScreenDepthTest, TheScreenShowsThroughOneColour) {
  const std::vector<COLORREF> shown = ShowPlain(), before = Read(7, 5, width, height);
  for (int time = 0; time < 2; ++time) {
    mBitmap->DrawTransparent(mScreen, {7, 5}, Bitmap::TRANS_FIRSTPIXEL, 0, {0, 0}, {0, 0});
    const std::vector<COLORREF> now = Read(7, 5, width, height);
    for (size_t i = 0; i < now.size(); ++i)
      ASSERT_EQ(now[i], shown[i] == shown[0] ? before[i] : shown[i]) << i % width << "," << i / width;
  }
}

TEST_P(ScreenDepthTest, BandsRepeat) {
  const std::vector<COLORREF> shown = ShowPlain();
  for (const int phase : {0, 1, 3, 4}) {
    const RepeatAxis x{4, 3, 5, phase}, y{6, 2, phase + 1, phase};
    Bitmap::RepeatInfo info;
    info.mStartX = x.start, info.mLengthX = x.length, info.mPeriodX = x.period, info.mPhaseX = x.phase;
    info.mStartY = y.start, info.mLengthY = y.length, info.mPeriodY = y.period, info.mPhaseY = y.phase;
    mBitmap->DrawRepeat(mScreen, {2, 1}, {47, 31}, info, true);
    const std::vector<COLORREF> now = Read(2, 1, 47, 31);
    const std::vector<int> fromX = ModelRepeat(x, width, 47), fromY = ModelRepeat(y, height, 31);
    for (size_t i = 0; i < now.size(); ++i)
      ASSERT_EQ(now[i], shown[static_cast<size_t>(fromY[i / 47] * width + fromX[i % 47])])
          << "phase " << phase << " at " << i % 47 << "," << i / 47;
  }
}

INSTANTIATE_TEST_SUITE_P(Depths, ScreenDepthTest, testing::Values(8, 16, 24, 32),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace test
