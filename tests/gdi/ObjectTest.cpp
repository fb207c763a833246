// Handles: who counts as alive, what may be deleted when, what is selected where.
#include "gdi/Canvas.h"

namespace test {
namespace {

using ObjectTest = GdiTest;

TEST_F(ObjectTest, CountsWhatIsMadeAndDeleted) {
  const HBITMAP bitmap = CreateBitmap(3, 2, 1, 1, nullptr);
  const HBRUSH brush = CreateSolidBrush(RGB(1, 2, 3));
  LOGFONTA description{};
  const HFONT font = CreateFontIndirectA(&description);
  LOGPALETTE entries{0x300, 1, {{1, 2, 3, 0}}};
  const HPALETTE palette = CreatePalette(&entries);
  const HDC memory = CreateCompatibleDC(nullptr);
  const HDC screen = GetDC(nullptr);
  EXPECT_EQ(GetGuiResources(nullptr, GR_GDIOBJECTS), mObjects + 6);
  EXPECT_EQ(GetObjectType(bitmap), OBJ_BITMAP);
  EXPECT_EQ(GetObjectType(brush), OBJ_BRUSH);
  EXPECT_EQ(GetObjectType(font), OBJ_FONT);
  EXPECT_EQ(GetObjectType(palette), OBJ_PAL);
  EXPECT_EQ(GetObjectType(memory), OBJ_MEMDC);
  EXPECT_EQ(GetObjectType(screen), OBJ_DC);
  for (HGDIOBJ object : {HGDIOBJ{bitmap}, HGDIOBJ{brush}, HGDIOBJ{font}, HGDIOBJ{palette}})
    EXPECT_TRUE(DeleteObject(object));
  EXPECT_TRUE(DeleteDC(memory));
  EXPECT_EQ(ReleaseDC(nullptr, screen), 1);
}

TEST_F(ObjectTest, ADeadHandleStaysDeadWhenItsSlotIsUsedAgain) {
  const HBITMAP first = CreateBitmap(3, 2, 1, 1, nullptr);
  EXPECT_TRUE(DeleteObject(first));
  const HBITMAP second = CreateBitmap(5, 4, 1, 1, nullptr);
  EXPECT_NE(first, second);
  EXPECT_FALSE(DeleteObject(first));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_EQ(OrmGetDeadDeletes(), mDeadDeletes + 1);
  mDeadDeletes = OrmGetDeadDeletes();
  BITMAP description;
  EXPECT_EQ(GetObjectA(first, sizeof description, &description), 0);
  EXPECT_EQ(GetObjectA(second, sizeof description, &description), static_cast<int>(sizeof description));
  EXPECT_EQ(description.bmWidth, 5);
  EXPECT_TRUE(DeleteObject(second));
}

TEST_F(ObjectTest, SelectedObjectsAreNotDeleted) {
  const HDC memory = CreateCompatibleDC(nullptr);
  const HDC other = CreateCompatibleDC(nullptr);
  const HBITMAP bitmap = CreateCompatibleBitmap(GetDC(nullptr), 4, 4);
  const HGDIOBJ previous = SelectObject(memory, bitmap);
  EXPECT_FALSE(DeleteObject(bitmap));
  EXPECT_EQ(GetLastError(), ERROR_BUSY);
  EXPECT_EQ(SelectObject(other, bitmap), nullptr) << "a bitmap is in one context at a time";
  EXPECT_EQ(SelectObject(memory, bitmap), bitmap) << "selecting it again changes nothing";
  EXPECT_EQ(SelectObject(memory, previous), bitmap);
  EXPECT_NE(SelectObject(other, bitmap), nullptr);
  EXPECT_TRUE(DeleteDC(other)) << "which deselects it";
  EXPECT_TRUE(DeleteObject(bitmap));
  EXPECT_TRUE(DeleteDC(memory));
  ++mObjects;  // the screen's context above
}

TEST_F(ObjectTest, ContextsGoBackTheWayTheyCame) {
  const HDC screen = GetDC(nullptr);
  const HDC memory = CreateCompatibleDC(screen);
  EXPECT_FALSE(DeleteDC(screen));
  EXPECT_EQ(ReleaseDC(nullptr, memory), 0);
  EXPECT_EQ(SelectObject(screen, CreateBitmap(1, 1, 1, 1, nullptr)), nullptr);
  ++mObjects;
  EXPECT_TRUE(DeleteDC(memory));
  EXPECT_EQ(ReleaseDC(nullptr, screen), 1);
  EXPECT_EQ(ReleaseDC(nullptr, screen), 0);
  EXPECT_EQ(CreateCompatibleDC(screen), nullptr) << "a context that was released";
}

TEST_F(ObjectTest, StockObjectsStay) {
  for (const int index : {WHITE_BRUSH, NULL_BRUSH, SYSTEM_FONT, DEFAULT_PALETTE, DEFAULT_GUI_FONT}) {
    const HGDIOBJ object = GetStockObject(index);
    ASSERT_NE(object, nullptr) << index;
    EXPECT_TRUE(DeleteObject(object));
    EXPECT_NE(GetObjectType(object), 0u);
  }
  EXPECT_EQ(GetStockObject(99), nullptr);
  EXPECT_EQ(GetStockObject(-1), nullptr);
}

TEST_F(ObjectTest, BadSizesMakeNoBitmap) {
  const HDC screen = GetDC(nullptr);
  for (const SIZE size :
       {SIZE{0, 5}, SIZE{-1, 5}, SIZE{5, -1}, SIZE{INT32_MAX, INT32_MAX}, SIZE{1 << 20, 1 << 20}}) {
    DibInfo info(size.cx, size.cy == -1 ? 0 : size.cy, 24);
    void* bits = &info;
    EXPECT_EQ(CreateDIBSection(screen, info.Get(), DIB_RGB_COLORS, &bits, nullptr, 0), nullptr);
    EXPECT_EQ(bits, nullptr);
    if (size.cx != 0) {
      EXPECT_EQ(CreateBitmap(size.cx, size.cy, 1, 32, nullptr), nullptr);
      EXPECT_EQ(CreateCompatibleBitmap(screen, size.cx, size.cy), nullptr);
    }
  }
  // An empty size gives the smallest bitmap there is.
  const HBITMAP empty = CreateCompatibleBitmap(screen, 0, 7);
  BITMAP description{};
  GetObjectA(empty, sizeof description, &description);
  EXPECT_EQ(description.bmWidth, 1);
  EXPECT_EQ(description.bmHeight, 1);
  EXPECT_EQ(description.bmBitsPixel, 1);
  DeleteObject(empty);
  ReleaseDC(nullptr, screen);
}

TEST_F(ObjectTest, SectionsDescribeThemselves) {
  DibInfo info(5, 3, 24);
  void* bits = nullptr;
  const HBITMAP section = CreateDIBSection(nullptr, info.Get(), DIB_RGB_COLORS, &bits, nullptr, 0);
  DIBSECTION description{};
  ASSERT_EQ(GetObjectA(section, sizeof description, &description), static_cast<int>(sizeof description));
  EXPECT_EQ(description.dsBm.bmWidthBytes, 16);
  EXPECT_EQ(description.dsBm.bmBits, bits);
  EXPECT_EQ(description.dsBmih.biHeight, 3);
  EXPECT_EQ(description.dsBmih.biSizeImage, 48u);
  EXPECT_EQ(GetObjectA(section, 0, nullptr), static_cast<int>(sizeof(BITMAP)));
  EXPECT_EQ(GetObjectA(section, 3, &description), 0);
  DeleteObject(section);
}

// A memory context's compatible bitmaps are like the bitmap that it holds, whatever the screen is.
TEST_F(ObjectTest, CompatibleBitmapsFollowTheSelectedOne) {
  const HDC context = CreateCompatibleDC(nullptr);
  const struct {
    int bits, height;
    DWORD compression;
  } sections[] = {{1, -3, BI_RGB}, {4, 3, BI_RGB},   {8, -3, BI_RGB},       {16, 3, BI_RGB},
                  {24, 3, BI_RGB}, {32, -3, BI_RGB}, {16, -3, BI_BITFIELDS}};
  for (const auto& c : sections) {
    DibInfo info(5, c.height, c.bits, c.compression);
    for (int i = 0; i < 256; ++i) info.colors[i] = {static_cast<BYTE>(i), 7, static_cast<BYTE>(255 - i), 0};
    if (c.compression == BI_BITFIELDS) info.SetMasks(0xF800, 0x07E0, 0x001F);
    void* bits = nullptr;
    const HBITMAP section = CreateDIBSection(nullptr, info.Get(), DIB_RGB_COLORS, &bits, nullptr, 0);
    const HGDIOBJ previous = SelectObject(context, section);
    const HBITMAP compatible = CreateCompatibleBitmap(context, 300, 200);
    DIBSECTION of{}, like{};
    ASSERT_EQ(GetObjectA(section, sizeof of, &of), static_cast<int>(sizeof of));
    ASSERT_EQ(GetObjectA(compatible, sizeof like, &like), static_cast<int>(sizeof like)) << c.bits;
    EXPECT_EQ(like.dsBm.bmWidth, 300);
    EXPECT_EQ(like.dsBm.bmHeight, 200);
    EXPECT_EQ(like.dsBm.bmBitsPixel, c.bits);
    EXPECT_NE(like.dsBm.bmBits, nullptr);
    EXPECT_EQ(like.dsBmih.biWidth, 300);
    EXPECT_EQ(like.dsBmih.biHeight, c.height < 0 ? -200 : 200);
    EXPECT_EQ(like.dsBmih.biCompression, c.compression);
    EXPECT_EQ(std::memcmp(like.dsBitfields, of.dsBitfields, sizeof of.dsBitfields), 0);
    SelectObject(context, compatible);
    RGBQUAD colors[256]{};
    EXPECT_EQ(GetDIBColorTable(context, 0, 256, colors), c.bits <= 8 ? 1u << c.bits : 0u);
    EXPECT_EQ(std::memcmp(colors, info.colors, c.bits <= 8 ? sizeof(RGBQUAD) << c.bits : 0), 0) << c.bits;
    const COLORREF first = c.bits <= 8 ? RGB(255, 7, 0) : RGB(0, 0, 0);
    EXPECT_EQ(GetPixel(context, 299, 199), first) << "its pixels are zero";
    SelectObject(context, previous);
    DeleteObject(compatible);
    DeleteObject(section);
  }
  for (const UINT bits : {1u, 24u}) {  // no sections
    const HBITMAP bitmap = CreateBitmap(5, 3, 1, bits, nullptr);
    const HGDIOBJ previous = SelectObject(context, bitmap);
    const DibInfo info(4, 2, 24);
    const HBITMAP both[] = {CreateCompatibleBitmap(context, 4, 2),
                            CreateDIBitmap(context, &info.header, 0, nullptr, nullptr, DIB_RGB_COLORS)};
    for (const HBITMAP compatible : both) {
      DIBSECTION description{};
      EXPECT_EQ(GetObjectA(compatible, sizeof description, &description), static_cast<int>(sizeof(BITMAP)));
      EXPECT_EQ(description.dsBm.bmBitsPixel, bits);
      DeleteObject(compatible);
    }
    SelectObject(context, previous);
    DeleteObject(bitmap);
  }
  DeleteDC(context);
}

}  // namespace
}  // namespace test
