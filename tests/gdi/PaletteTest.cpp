// Palettes, on a screen whose settings say 8 bits per pixel. The settings are read at the first drawing call
// of the process, so the fixture writes them before that.
#include "gdi/Canvas.h"

namespace test {
namespace {

void WriteSetting(const char* keyName, const char* valueName, DWORD value) {
  HKEY key = nullptr;
  ASSERT_EQ(
      RegCreateKeyExA(HKEY_LOCAL_MACHINE, keyName, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr),
      static_cast<LONG>(ERROR_SUCCESS));
  RegSetValueExA(key, valueName, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value);
  RegCloseKey(key);
}

constexpr char videoKey[] = "SYSTEM\\CurrentControlSet\\Control\\Video\\Screen\\0000";
constexpr char fontsKey[] = "SYSTEM\\CurrentControlSet\\Hardware Profiles\\Current\\Software\\Fonts";

class PaletteTest : public GdiTest {
 protected:
  void SetUp() override {
    WriteSetting(videoKey, "DefaultSettings.BitsPerPel", 8);
    GdiTest::SetUp();
    mScreen = GetDC(nullptr);
  }
  void TearDown() override {
    ReleaseDC(nullptr, mScreen);
    GdiTest::TearDown();
  }

  // `count` colours that no other seed has, nor the fixed entries.
  HPALETTE MakePalette(int count, int seed) {
    std::vector<BYTE> block(sizeof(LOGPALETTE) + static_cast<size_t>(count) * sizeof(PALETTEENTRY));
    auto* palette = reinterpret_cast<LOGPALETTE*>(block.data());
    palette->palVersion = 0x300;
    palette->palNumEntries = static_cast<WORD>(count);
    for (int i = 0; i < count; ++i)
      palette->palPalEntry[i] = {static_cast<BYTE>(i), static_cast<BYTE>(seed), static_cast<BYTE>(255 - i),
                                 0};
    return CreatePalette(palette);
  }
  COLORREF SystemColor(UINT index) {
    PALETTEENTRY entry{};
    GetSystemPaletteEntries(mScreen, index, 1, &entry);
    return RGB(entry.peRed, entry.peGreen, entry.peBlue);
  }
  int CountInSystem(int count, int seed) {
    int found = 0;
    for (int i = 0; i < count; ++i)
      for (UINT entry = 0; entry < 256; ++entry)
        if (SystemColor(entry) ==
            RGB(static_cast<BYTE>(i), static_cast<BYTE>(seed), static_cast<BYTE>(255 - i))) {
          ++found;
          break;
        }
    return found;
  }
  UINT Realize(HPALETTE palette, bool background) {
    const HPALETTE previous = SelectPalette(mScreen, palette, background);
    const UINT moved = RealizePalette(mScreen);
    SelectPalette(mScreen, previous, TRUE);
    return moved;
  }

  HDC mScreen = nullptr;
};

TEST_F(PaletteTest, TheDeviceSaysWhatItIs) {
  EXPECT_NE(GetDeviceCaps(mScreen, RASTERCAPS) & RC_PALETTE, 0);
  EXPECT_EQ(GetDeviceCaps(mScreen, BITSPIXEL), 8);
  EXPECT_EQ(GetDeviceCaps(mScreen, SIZEPALETTE), 256);
  EXPECT_EQ(SystemColor(0), 0u);
  EXPECT_EQ(SystemColor(255), 0xFFFFFFu);
  EXPECT_EQ(SystemColor(249), RGB(255, 0, 0));
}

TEST_F(PaletteTest, RealisedColoursShowExactly) {
  const HPALETTE palette = MakePalette(236, 77);
  EXPECT_EQ(SetPixel(mScreen, 0, 0, RGB(5, 77, 250)) == RGB(5, 77, 250), false);
  EXPECT_EQ(Realize(palette, false), 236u);
  EXPECT_EQ(CountInSystem(236, 77), 236);
  EXPECT_EQ(Realize(palette, false), 0u) << "nothing moves the second time";
  EXPECT_EQ(SetPixel(mScreen, 0, 0, RGB(5, 77, 250)), RGB(5, 77, 250));
  EXPECT_EQ(GetPixel(mScreen, 0, 0), RGB(5, 77, 250));
  // A bitmap like the screen takes the same values.
  const HDC memory = CreateCompatibleDC(mScreen);
  const HBITMAP bitmap = CreateCompatibleBitmap(mScreen, 2, 2);
  const HGDIOBJ previous = SelectObject(memory, bitmap);
  BitBlt(memory, 0, 0, 2, 2, mScreen, 0, 0, SRCCOPY);
  EXPECT_EQ(GetPixel(memory, 0, 0), RGB(5, 77, 250));
  SelectObject(memory, previous);
  DeleteObject(bitmap);
  DeleteDC(memory);
  DeleteObject(palette);
}

TEST_F(PaletteTest, TheBackgroundTakesOnlyWhatIsFree) {
  const HPALETTE first = MakePalette(200, 11), second = MakePalette(100, 22), third = MakePalette(236, 33);
  EXPECT_EQ(Realize(first, false), 200u);
  EXPECT_EQ(Realize(second, true), 100u);
  EXPECT_EQ(CountInSystem(200, 11), 200) << "the foreground palette is untouched";
  EXPECT_EQ(CountInSystem(100, 22), 36);
  Realize(third, false);
  EXPECT_EQ(CountInSystem(236, 33), 236);
  EXPECT_EQ(CountInSystem(200, 11), 0);
  EXPECT_EQ(SystemColor(7), RGB(0xC0, 0xC0, 0xC0)) << "the fixed entries stay";
  for (const HPALETTE palette : {first, second, third}) EXPECT_TRUE(DeleteObject(palette));
}

TEST_F(PaletteTest, SelectionCountsAndIndices) {
  const HPALETTE palette = MakePalette(3, 9);
  const HPALETTE previous = SelectPalette(mScreen, palette, FALSE);
  EXPECT_EQ(previous, GetStockObject(DEFAULT_PALETTE));
  EXPECT_FALSE(DeleteObject(palette));
  RealizePalette(mScreen);
  EXPECT_EQ(SetPixel(mScreen, 1, 1, PALETTEINDEX(2)), RGB(2, 9, 253));
  EXPECT_EQ(SelectPalette(mScreen, previous, TRUE), palette);
  EXPECT_EQ(GetNearestPaletteIndex(palette, RGB(1, 9, 254)), 1u);
  PALETTEENTRY entries[4]{};
  EXPECT_EQ(GetPaletteEntries(palette, 1, 4, entries), 2u);
  EXPECT_EQ(entries[0].peBlue, 254);
  EXPECT_TRUE(DeleteObject(palette));
  EXPECT_EQ(SelectPalette(mScreen, palette, FALSE), nullptr);
}

TEST_F(PaletteTest, MalformedPalettesAreRefused) {
  LOGPALETTE palette{0x300, 0, {}};
  EXPECT_EQ(CreatePalette(&palette), nullptr);
  palette = {0x200, 1, {}};
  EXPECT_EQ(CreatePalette(&palette), nullptr);
  palette = {0x300, 0xFFFF, {}};
  EXPECT_EQ(CreatePalette(&palette), nullptr);
  EXPECT_EQ(CreatePalette(nullptr), nullptr);
}

using ScreenTest = GdiTest;

TEST_F(ScreenTest, WithoutSettings) {
  const HDC screen = GetDC(nullptr);
  EXPECT_EQ(GetDeviceCaps(screen, BITSPIXEL), 32);
  EXPECT_EQ(GetDeviceCaps(screen, LOGPIXELSX), 96);
  EXPECT_EQ(GetDeviceCaps(screen, RASTERCAPS) & RC_PALETTE, 0);
  EXPECT_EQ(RealizePalette(screen), 0u);
  ReleaseDC(nullptr, screen);
}

TEST(ScreenSettingsTest, AreReadFromTheRegistry) {
  WriteSetting(fontsKey, "LogPixels", 120);
  WriteSetting(videoKey, "DefaultSettings.BitsPerPel", 16);
  WriteSetting(videoKey, "DefaultSettings.XResolution", 800);
  WriteSetting(videoKey, "DefaultSettings.YResolution", 7);  // makes no sense
  const HDC screen = GetDC(nullptr);
  EXPECT_EQ(GetDeviceCaps(screen, LOGPIXELSY), 120);
  EXPECT_EQ(GetDeviceCaps(screen, BITSPIXEL), 16);
  EXPECT_EQ(GetDeviceCaps(screen, HORZRES), 800);
  EXPECT_EQ(GetDeviceCaps(screen, VERTRES), 768);
  EXPECT_EQ(SetPixel(screen, 0, 0, RGB(0x84, 0xFF, 0x07)), RGB(0x84, 0xFF, 0x00));
  ReleaseDC(nullptr, screen);
}

}  // namespace
}  // namespace test
