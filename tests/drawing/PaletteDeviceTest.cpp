// Bitmaps on a screen with 8 bits per pixel. The settings are read at the first drawing call of the process,
// so the fixture writes them before that.
#include "drawing/Drawing.h"

namespace test {
namespace {

using orm::Bitmap;

constexpr COLORREF nowhere = RGB(0xFE, 0x01, 0xFD);  // no palette entry, fixed or made here

class PaletteDeviceTest : public DrawingTest {
 protected:
  void SetUp() override {
    HKEY key = nullptr;
    RegCreateKeyExA(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Control\\Video\\Screen\\0000", 0, nullptr,
                    0, KEY_SET_VALUE, nullptr, &key, nullptr);
    const DWORD bits = 8;
    RegSetValueExA(key, "DefaultSettings.BitsPerPel", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&bits),
                   sizeof bits);
    RegCloseKey(key);
    DrawingTest::SetUp();
    mScreen = GetDC(nullptr);
    if (GetDeviceCaps(mScreen, BITSPIXEL) != 8) GTEST_SKIP() << "needs a process of its own";
    PatBlt(mScreen, 0, 0, 64, 64, BLACKNESS);
  }
  void TearDown() override {
    ReleaseDC(nullptr, mScreen);
    DrawingTest::TearDown();
  }

  // 16 x 16 pixels, one of each of 256 colours; pixel 0,0 has index 0.
  static Resource Picture(int seed) {
    Resource resource;
    resource.PutHeader(16, 16, 8);
    for (int i = 0; i < 256; ++i) {
      const COLORREF color = Color(seed, i);
      resource.Put32(static_cast<DWORD>(GetBValue(color) | GetGValue(color) << 8 | GetRValue(color) << 16));
    }
    for (int y = 15; y >= 0; --y)
      for (int x = 0; x < 16; ++x) resource.bytes.push_back(static_cast<BYTE>(y * 16 + x));
    return resource;
  }
  static COLORREF Color(int seed, int index) {
    return RGB(static_cast<BYTE>(index), static_cast<BYTE>(seed), static_cast<BYTE>(7 * index + seed));
  }
  // How many of the picture's pixels stand on the screen, from a corner on, in their exact colours.
  int CountExact(int seed, int left, int top) {
    int count = 0;
    for (int i = 0; i < 256; ++i) count += GetPixel(mScreen, left + i % 16, top + i / 16) == Color(seed, i);
    return count;
  }
  // Takes the entries of the system palette for other colours.
  void Displace() {
    Bitmap other;
    Load(other, Picture(201));
  }

  HDC mScreen = nullptr;
};

// 236 entries can be lent, the others come near.
TEST_F(PaletteDeviceTest, EveryWayToDrawRealizesThePalette) {
  Bitmap bitmap;
  ASSERT_TRUE(Load(bitmap, Picture(33)));
  Displace();
  bitmap.Draw(mScreen, {0, 0}, {0, 0}, {0, 0});
  EXPECT_GE(CountExact(33, 0, 0), 236);

  Displace();
  bitmap.DrawRepeat(mScreen, {20, 0}, {-1, -1}, {}, false);
  EXPECT_LE(CountExact(33, 20, 0), 20) << "without its palette";
  bitmap.DrawRepeat(mScreen, {20, 0}, {-1, -1}, {}, true);
  EXPECT_GE(CountExact(33, 20, 0), 236);
  EXPECT_EQ(GetCurrentObject(mScreen, OBJ_PAL), GetStockObject(DEFAULT_PALETTE))
      << "the previous one is back";

  bitmap.DrawTransparent(mScreen, {0, 20}, Bitmap::TRANS_COLOR, nowhere, {0, 0}, {0, 0});
  EXPECT_GE(CountExact(33, 0, 20), 236);
}

TEST_F(PaletteDeviceTest, TheScreenShowsThroughTheFirstPixelsColour) {
  Bitmap bitmap;
  ASSERT_TRUE(Load(bitmap, Picture(33)));
  SetPixel(mScreen, 0, 0, RGB(255, 255, 255));
  for (int time = 0; time < 2; ++time) {
    bitmap.DrawTransparent(mScreen, {0, 0}, Bitmap::TRANS_FIRSTPIXEL, 0, {0, 0}, {0, 0});
    EXPECT_EQ(GetPixel(mScreen, 0, 0), RGB(255, 255, 255));
    EXPECT_GE(CountExact(33, 0, 0), 235);
  }
}

TEST_F(PaletteDeviceTest, LoadingRealizesAndGivesBack) {
  Bitmap bitmap;
  ASSERT_TRUE(Load(bitmap, Picture(90)));
  const std::vector<std::uint32_t> colors = Pixels(bitmap).colors;
  for (int i = 0; i < 256; ++i) {
    const COLORREF color = Color(90, i);
    ASSERT_EQ(colors[static_cast<size_t>(i)],
              static_cast<std::uint32_t>(GetRValue(color) << 16 | GetGValue(color) << 8 | GetBValue(color)))
        << "the section has all colours";
  }
  EXPECT_EQ(GetCurrentObject(mScreen, OBJ_PAL), GetStockObject(DEFAULT_PALETTE));
  PALETTEENTRY entries[256];
  ASSERT_EQ(GetSystemPaletteEntries(mScreen, 0, 256, entries), 256u);
  int found = 0;
  for (int i = 0; i < 256; ++i)
    for (const PALETTEENTRY& entry : entries)
      if (RGB(entry.peRed, entry.peGreen, entry.peBlue) == Color(90, i)) {
        ++found;
        break;
      }
  EXPECT_GE(found, 236);
}

}  // namespace
}  // namespace test
