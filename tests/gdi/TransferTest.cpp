// Block transfers: raster operations, monochrome conversion, overlap, clipping, depths.
#include "gdi/Canvas.h"

namespace test {
namespace {

using TransferTest = GdiTest;

// What a raster operation gives for one pixel, bit by bit from its definition.
std::uint32_t Combine(DWORD code, std::uint32_t pattern, std::uint32_t source, std::uint32_t destination) {
  std::uint32_t result = 0;
  for (int bit = 0; bit < 32; ++bit) {
    const unsigned index = (pattern >> bit & 1) * 4 + (source >> bit & 1) * 2 + (destination >> bit & 1);
    result |= (code >> 16 >> index & 1) << bit;
  }
  return result;
}

TEST_F(TransferTest, EveryRasterOperationIsItsTruthTable) {
  std::mt19937 random(1);
  const HBRUSH brush = CreateSolidBrush(RGB(0x12, 0x5A, 0xC7));
  constexpr std::uint32_t pattern = 0x125AC7;
  for (DWORD code = 0; code < 256; ++code) {
    Canvas source(7, 3), target(7, 3);
    source.FillBytes(random);
    target.FillBytes(random);
    std::vector<std::uint32_t> expected;
    for (int y = 0; y < 3; ++y)
      for (int x = 0; x < 7; ++x)
        expected.push_back(Combine(code << 16, pattern, source.At(x, y), target.At(x, y)) & 0xFFFFFF);
    const HGDIOBJ previous = SelectObject(target.context, brush);
    EXPECT_TRUE(BitBlt(target.context, 0, 0, 7, 3, source.context, 0, 0, code << 16));
    SelectObject(target.context, previous);
    EXPECT_EQ(target.Colors(), expected) << "operation " << code;
  }
  DeleteObject(brush);
}

TEST_F(TransferTest, IndexedPixelsCombineAsIndices) {
  Canvas source(8, 1, 8), target(8, 1, 8);
  for (int x = 0; x < 8; ++x) {
    source.Row(0)[x] = static_cast<BYTE>(0x10 * x + 3);
    target.Row(0)[x] = 0xF6;
  }
  BitBlt(target.context, 0, 0, 8, 1, source.context, 0, 0, SRCAND);
  for (int x = 0; x < 8; ++x) EXPECT_EQ(target.Row(0)[x], (0x10 * x + 3) & 0xF6);
}

TEST_F(TransferTest, BackgroundColourBecomesOne) {
  for (const int bits : {8, 16, 24, 32}) {
    Canvas source(4, 1, bits);
    for (int x = 0; x < 4; ++x)
      SetPixel(source.context, x, 0, x == 1 || x == 2 ? RGB(0, 255, 255) : RGB(0, 0, 255));
    const COLORREF key = GetPixel(source.context, 1, 0);
    SetBkColor(source.context, key);
    MonoCanvas mono(4, 1, [](int, int) { return false; });
    BitBlt(mono.context, 0, 0, 4, 1, source.context, 0, 0, SRCCOPY);
    for (int x = 0; x < 4; ++x)
      EXPECT_EQ(GetPixel(mono.context, x, 0), x == 1 || x == 2 ? 0xFFFFFFu : 0u)
          << bits << " bits, pixel " << x;
  }
}

TEST_F(TransferTest, BitsBecomeTextAndBackgroundColour) {
  MonoCanvas mono(19, 2, [](int x, int y) { return (x + y) % 3 == 0; });
  for (const int bits : {16, 24, 32}) {
    Canvas target(19, 2, bits);
    SetTextColor(target.context, RGB(255, 0, 0));
    SetBkColor(target.context, RGB(0, 0, 255));
    BitBlt(target.context, 0, 0, 19, 2, mono.context, 0, 0, SRCCOPY);
    for (int y = 0; y < 2; ++y)
      for (int x = 0; x < 19; ++x) EXPECT_EQ(target.Color(x, y), (x + y) % 3 == 0 ? 0x0000FFu : 0xFF0000u);
  }
}

TEST_F(TransferTest, OverlappingCopiesReadBeforeTheyWrite) {
  std::mt19937 random(2);
  for (const int bits : {8, 24, 32})
    for (int moveX = -2; moveX <= 2; ++moveX)
      for (int moveY = -2; moveY <= 2; ++moveY) {
        Canvas canvas(16, 12, bits);
        canvas.FillBytes(random);
        const std::vector<std::uint32_t> before = canvas.Colors();
        BitBlt(canvas.context, 4 + moveX, 3 + moveY, 8, 6, canvas.context, 4, 3, SRCCOPY);
        for (int y = 0; y < 12; ++y)
          for (int x = 0; x < 16; ++x) {
            const bool inside = x >= 4 + moveX && x < 12 + moveX && y >= 3 + moveY && y < 9 + moveY;
            const auto from = static_cast<size_t>(inside ? (y - moveY) * 16 + x - moveX : y * 16 + x);
            ASSERT_EQ(canvas.Color(x, y), before[from]) << bits << " bits by " << moveX << "," << moveY;
          }
      }
}

TEST_F(TransferTest, OnlyPixelsThatBothHaveChange) {
  Canvas source(5, 4), target(8, 6);
  source.Fill(0xABCDEF);
  for (const POINT to : {POINT{-3, -2}, POINT{6, 4}, POINT{1, 1}, POINT{100, 0}, POINT{INT32_MAX, INT32_MIN}})
    for (const POINT from :
         {POINT{0, 0}, POINT{3, 2}, POINT{-2, -1}, POINT{5, 0}, POINT{INT32_MIN, INT32_MAX}}) {
      target.Fill(0x111111);
      IntersectClipRect(target.context, 0, 0, 8, 6);
      EXPECT_TRUE(BitBlt(target.context, to.x, to.y, 5, 4, source.context, from.x, from.y, SRCCOPY));
      for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 8; ++x) {
          const std::int64_t alongX = std::int64_t{x} - to.x, alongY = std::int64_t{y} - to.y;
          const std::int64_t sourceX = from.x + alongX, sourceY = from.y + alongY;
          const bool changes = alongX >= 0 && alongX < 5 && alongY >= 0 && alongY < 4 && sourceX >= 0 &&
                               sourceX < 5 && sourceY >= 0 && sourceY < 4;
          ASSERT_EQ(target.At(x, y), changes ? 0xABCDEFu : 0x111111u) << x << "," << y;
        }
    }
}

TEST_F(TransferTest, ClippingNarrows) {
  Canvas target(6, 6);
  EXPECT_EQ(IntersectClipRect(target.context, 1, 2, 5, 6), 2);
  EXPECT_EQ(IntersectClipRect(target.context, 0, 0, 3, 4), 2);
  PatBlt(target.context, 0, 0, 6, 6, WHITENESS);
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 6; ++x)
      EXPECT_EQ(target.At(x, y) & 0xFFFFFF, x >= 1 && x < 3 && y >= 2 && y < 4 ? 0xFFFFFFu : 0u);
  RECT box;
  EXPECT_EQ(GetClipBox(target.context, &box), 2);
  EXPECT_EQ(box.left, 1);
  EXPECT_EQ(box.bottom, 4);
  EXPECT_EQ(GetPixel(target.context, 0, 0), CLR_INVALID);
  EXPECT_EQ(IntersectClipRect(target.context, 4, 4, 2, 2), 1);
  PatBlt(target.context, 0, 0, 6, 6, BLACKNESS);
  EXPECT_EQ(target.At(1, 2) & 0xFFFFFF, 0xFFFFFFu);
}

TEST_F(TransferTest, DepthsConvert) {
  // Colours that every direct depth holds exactly.
  constexpr std::uint32_t colors[] = {0x000000, 0xFFFFFF, 0xFF0000, 0x00FF00, 0x0000FF, 0x840084};
  for (const int from : {16, 24, 32})
    for (const int to : {16, 24, 32}) {
      Canvas source(6, 1, from), target(6, 1, to);
      for (int x = 0; x < 6; ++x) {
        const std::uint32_t color = colors[x];
        SetPixel(
            source.context, x, 0,
            RGB(static_cast<BYTE>(color >> 16), static_cast<BYTE>(color >> 8), static_cast<BYTE>(color)));
      }
      BitBlt(target.context, 0, 0, 6, 1, source.context, 0, 0, SRCCOPY);
      EXPECT_THAT(target.Colors(), testing::ElementsAreArray(colors)) << from << " to " << to;
    }
  // An indexed bitmap gets the nearest of its colours.
  Canvas gray(4, 1), indexed(4, 1, 8);
  for (int x = 0; x < 4; ++x)
    gray.At(x, 0) = static_cast<std::uint32_t>(25 * x) << 16 | static_cast<std::uint32_t>(50 * x + 1) << 8 |
                    static_cast<std::uint32_t>(255 - 50 * x);
  BitBlt(indexed.context, 0, 0, 4, 1, gray.context, 0, 0, SRCCOPY);
  for (int x = 0; x < 4; ++x) EXPECT_NEAR(indexed.Row(0)[x], 50 * x, 1);
}

// Wide rectangles take other ways than single pixels, by depth, operation and where in a byte they begin.
TEST_F(TransferTest, RectanglesAreTheirPixels) {
  constexpr int width = 101, height = 3;
  std::mt19937 random(3);
  for (const int from : {1, 4, 8, 16, 24, 32}) {
    for (const int to : {1, 4, 8, 16, 24, 32}) {
      Canvas source(width, height, from), whole(width, height, to), single(width, height, to);
      for (const DWORD code : {SRCCOPY, NOTSRCCOPY, SRCAND, SRCPAINT, SRCINVERT, PATPAINT}) {
        source.FillBytes(random);
        whole.FillBytes(random);
        std::memcpy(single.Row(0), whole.Row(0), static_cast<size_t>(whole.stride * height));
        SetBkColor(source.context, GetPixel(source.context, 50, 1));
        const int left = static_cast<int>(random() % 17), fromX = static_cast<int>(random() % 3) * 8 % 17;
        const int count = width - 17 - static_cast<int>(random() % 40);
        BitBlt(whole.context, left, 0, count, height, source.context, fromX, 0, code);
        for (int y = 0; y < height; ++y)
          for (int x = 0; x < count; ++x)
            BitBlt(single.context, left + x, y, 1, 1, source.context, fromX + x, y, code);
        ASSERT_EQ(std::memcmp(single.Row(0), whole.Row(0), static_cast<size_t>(whole.stride * height)), 0)
            << from << " bits onto " << to << ", operation " << std::hex << code;
      }
    }
  }
}

// Monochrome bitmaps are no sections: their bits are device bits, top row first.
TEST_F(TransferTest, BitsCombineWithBits) {
  std::mt19937 random(4);
  const auto noise = [&random](int, int) { return random() % 2 != 0; };
  for (const int width : {1, 7, 8, 31, 32, 33, 64, 101})
    for (const DWORD code : {SRCCOPY, NOTSRCCOPY, SRCAND, SRCPAINT, PATPAINT})
      for (const int left : {0, 3, 8}) {
        const MonoCanvas source(width, 2, noise), target(width, 2, noise);
        std::vector<std::uint32_t> expected;
        for (int y = 0; y < 2; ++y)
          for (int x = 0; x < width; ++x) {
            const std::uint32_t old = GetPixel(target.context, x, y);
            expected.push_back(
                x < left ? old
                         : Combine(code, 0xFFFFFF, GetPixel(source.context, x - left, y), old) & 0xFFFFFF);
          }
        BitBlt(target.context, left, 0, width, 2, source.context, 0, 0, code);
        for (int y = 0; y < 2; ++y)
          for (int x = 0; x < width; ++x)
            ASSERT_EQ(GetPixel(target.context, x, y), expected[static_cast<size_t>(y * width + x)])
                << width << " wide, operation " << std::hex << code << ", pixel " << std::dec << x;
      }
}

// Off-screen pictures take over the memory of earlier ones, whose pixels must never show.
TEST_F(TransferTest, NewBitmapsAreBlackWhateverWasThere) {
  constexpr int side = 160;
  const Canvas source(side, side);
  source.Fill(0x123456);
  const HDC screen = GetDC(nullptr);
  const HDC context = CreateCompatibleDC(screen);
  const HDC upwards = CreateCompatibleDC(screen);
  DibInfo info(1, 1, 32);
  void* bits = nullptr;
  const HBITMAP section = CreateDIBSection(nullptr, info.Get(), DIB_RGB_COLORS, &bits, nullptr, 0);
  const HGDIOBJ none = SelectObject(upwards, section);
  const RECT parts[] = {{0, 0, side, side}, {0, 0, side, 7},  {0, 5, side, 9}, {0, 9, side, 9},
                        {3, 0, side, 9},    {0, 0, 20, side}, {0, 0, 1, 1}};
  for (const RECT& part : parts)
    for (const int round : {0, 1, 2, 3}) {
      const bool grows = round % 2;
      const HBITMAP bitmap = CreateCompatibleBitmap(round < 2 ? screen : upwards, side, side);
      const HGDIOBJ previous = SelectObject(context, bitmap);
      if (grows) BitBlt(context, 0, 0, side, 6, source.context, 0, 0, SRCCOPY);
      BitBlt(context, part.left, part.top, part.right - part.left, part.bottom - part.top, source.context, 0,
             0, SRCCOPY);
      for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x) {
          const bool covered =
              (grows && y < 6) || (x >= part.left && x < part.right && y >= part.top && y < part.bottom);
          ASSERT_EQ(GetPixel(context, x, y), covered ? RGB(0x12, 0x34, 0x56) : 0u) << x << ", " << y;
        }
      PatBlt(context, 0, 0, side, side, WHITENESS);  // for the next one
      SelectObject(context, previous);
      DeleteObject(bitmap);
    }
  // Through its address as well.
  const HBITMAP bitmap = CreateCompatibleBitmap(upwards, side, side);
  BITMAP description{};
  GetObjectA(bitmap, sizeof description, &description);
  const auto* const pixels = static_cast<const std::uint32_t*>(description.bmBits);
  EXPECT_THAT(std::vector(pixels, pixels + side * side), testing::Each(0u));
  DeleteObject(bitmap);
  SelectObject(upwards, none);
  DeleteObject(section);
  DeleteDC(upwards);
  DeleteDC(context);
  ReleaseDC(nullptr, screen);
}

TEST_F(TransferTest, BrushesFill) {
  Canvas target(4, 3);
  const HBRUSH brush = CreateSolidBrush(RGB(10, 20, 30));
  const RECT rect{1, 1, 3, 9};
  EXPECT_NE(FillRect(target.context, &rect, brush), 0);
  EXPECT_EQ(target.At(1, 1), 0x0A141Eu);
  EXPECT_EQ(target.At(0, 1), 0u);
  const HGDIOBJ previous = SelectObject(target.context, GetStockObject(NULL_BRUSH));
  EXPECT_TRUE(PatBlt(target.context, 0, 0, 4, 3, PATCOPY));
  EXPECT_EQ(target.At(1, 1), 0x0A141Eu) << "a null brush paints nothing";
  SelectObject(target.context, previous);
  EXPECT_FALSE(PatBlt(target.context, 0, 0, 4, 3, SRCCOPY)) << "there is no source";
  DeleteObject(brush);
  EXPECT_EQ(FillRect(target.context, &rect, brush), 0);
}

}  // namespace
}  // namespace test
