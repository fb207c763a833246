// Drawing plainly and with a transparent colour.
#include "drawing/Drawing.h"

namespace test {
namespace {

using BitmapDrawTest = DrawingTest;
using orm::Bitmap;

constexpr std::uint32_t magenta = 0xFF00FF;

std::uint32_t Spotted(int x, int y) {
  if ((x == 0 && y == 0) || (x * y) % 5 == 3) return magenta;
  return static_cast<std::uint32_t>(x * 12) << 16 | static_cast<std::uint32_t>(y * 25) << 8 | 0x80;
}

std::uint32_t Ground(int x, int y) {
  return static_cast<std::uint32_t>(x * 7) << 8 | static_cast<std::uint32_t>(y * 9);
}

void Paint(const Canvas& canvas) {
  for (int y = 0; y < canvas.height; ++y)
    for (int x = 0; x < canvas.width; ++x) canvas.At(x, y) = Ground(x, y);
}

struct DrawnPart {
  POINT to;
  SIZE size;
  POINT from;
  SIZE drawn;
};

TEST_F(BitmapDrawTest, SizesAndSourcePoints) {
  Bitmap bitmap;
  ASSERT_TRUE(Load(bitmap, Resource::Picture(20, 10, Spotted)));
  const DrawnPart cases[] = {{{0, 0}, {0, 0}, {0, 0}, {20, 10}},   {{3, 4}, {0, 0}, {5, 5}, {15, 5}},
                             {{2, 2}, {6, 3}, {4, 1}, {6, 3}},     {{1, 1}, {50, 50}, {0, 0}, {20, 10}},
                             {{1, 1}, {0, 0}, {20, 3}, {0, 0}},    {{1, 1}, {0, 0}, {30, 30}, {0, 0}},
                             {{-3, -2}, {0, 0}, {0, 0}, {20, 10}}, {{5, 5}, {0, 3}, {0, 0}, {0, 3}}};
  for (const auto& c : cases) {
    const Canvas canvas(30, 24);
    Paint(canvas);
    bitmap.Draw(canvas.context, c.to, c.size, c.from);
    for (int y = 0; y < 24; ++y)
      for (int x = 0; x < 30; ++x) {
        const int inX = x - c.to.x, inY = y - c.to.y;
        const bool inside = inX >= 0 && inX < c.drawn.cx && inY >= 0 && inY < c.drawn.cy;
        ASSERT_EQ(canvas.At(x, y), inside ? Spotted(inX + c.from.x, inY + c.from.y) : Ground(x, y))
            << x << "," << y;
      }
  }
}

TEST_F(BitmapDrawTest, TheDestinationShowsThroughOneColour) {
  for (const int bits : {1, 4, 8, 16, 24, 32}) {
    Bitmap bitmap;
    ASSERT_TRUE(Load(bitmap, Resource::Picture(20, 10, Spotted)));
    const Canvas canvas(30, 20, bits), opaque(30, 20, bits);
    for (int i = 0; bits <= 8 && i < 1 << bits; ++i) {  // from black to white
      const auto gray = static_cast<BYTE>(i * 255 / ((1 << bits) - 1));
      const RGBQUAD color{gray, gray, gray, 0};
      SetDIBColorTable(canvas.context, static_cast<UINT>(i), 1, &color);
      SetDIBColorTable(opaque.context, static_cast<UINT>(i), 1, &color);
    }
    const auto paint = [](const Canvas& on) {
      for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 30; ++x)
          SetPixel(on.context, x, y, RGB(0, static_cast<BYTE>(x * 7), static_cast<BYTE>(y * 9)));
    };
    paint(canvas);
    paint(opaque);
    const std::vector<std::uint32_t> before = canvas.Colors();
    bitmap.Draw(opaque.context, {4, 3}, {0, 0}, {0, 0});
    std::vector<std::uint32_t> first;
    for (int time = 0; time < 2; ++time) {  // twice gives the same picture
      bitmap.DrawTransparent(canvas.context, {4, 3}, Bitmap::TRANS_FIRSTPIXEL, 0x123456, {0, 0}, {0, 0});
      if (time == 0) first = canvas.Colors();
    }
    EXPECT_EQ(canvas.Colors(), first);
    for (int y = 0; y < 20; ++y)
      for (int x = 0; x < 30; ++x) {
        const bool inside = x >= 4 && x < 24 && y >= 3 && y < 13;
        const bool clear = !inside || opaque.Color(x, y) == opaque.Color(4, 3);
        ASSERT_EQ(canvas.Color(x, y), clear ? before[static_cast<size_t>(y * 30 + x)] : opaque.Color(x, y))
            << bits;
      }
    bitmap.Draw(canvas.context, {4, 3}, {0, 0}, {0, 0});
    EXPECT_EQ(canvas.Color(4, 3), opaque.Color(4, 3)) << "the bitmap itself still has its colour";
  }
}

TEST_F(BitmapDrawTest, TransparentByACallersColourAndInParts) {
  Bitmap bitmap;
  ASSERT_TRUE(Load(bitmap, Resource::Picture(20, 10, Spotted)));
  const Canvas canvas(30, 20);
  Paint(canvas);
  const COLORREF key = RGB(36, 50, 0x80);  // the pixel at 3,2
  bitmap.DrawTransparent(canvas.context, {1, 2}, Bitmap::TRANS_COLOR, key, {6, 4}, {0, 0});
  for (int y = 0; y < 20; ++y)
    for (int x = 0; x < 30; ++x) {
      const bool inside = x >= 1 && x < 7 && y >= 2 && y < 6 && !(x - 1 == 3 && y - 2 == 2);
      ASSERT_EQ(canvas.At(x, y), inside ? Spotted(x - 1, y - 2) : Ground(x, y));
    }
  bitmap.DrawTransparent(canvas.context, {1, 2}, static_cast<Bitmap::TransparencyType>(7), key, {6, 4},
                         {0, 0});
  EXPECT_THAT(TakeAssertions(),
              testing::ElementsAre(
                  "src/shared/Bitmap(550):((transType == TRANS_FIRSTPIXEL) || (transType == TRANS_COLOR))"));
}

// The picture is composed over what stands at the destination point, and a part of it is copied from the
// source point on: what shows through lies as far beside as the source point does.
TEST_F(BitmapDrawTest, TransparentPartsAreComposedBeforeTheyAreCut) {
  Bitmap bitmap;
  ASSERT_TRUE(Load(bitmap, Resource::Picture(20, 10, Spotted)));
  const DrawnPart cases[] = {{{5, 4}, {7, 5}, {3, 2}, {7, 5}},    {{2, 3}, {0, 0}, {4, 3}, {16, 7}},
                             {{-3, -2}, {9, 6}, {6, 4}, {9, 6}},  {{25, 18}, {9, 6}, {0, 1}, {9, 6}},
                             {{1, 1}, {50, 50}, {13, 8}, {7, 2}}, {{1, 1}, {0, 0}, {20, 3}, {0, 0}},
                             {{4, 4}, {10, 6}, {-2, -1}, {10, 6}}};
  for (const auto& c : cases) {
    const Canvas canvas(30, 24);
    Paint(canvas);
    bitmap.DrawTransparent(canvas.context, c.to, Bitmap::TRANS_COLOR, RGB(255, 0, 255), c.size, c.from);
    for (int y = 0; y < 24; ++y)
      for (int x = 0; x < 30; ++x) {
        const int inX = x - c.to.x, inY = y - c.to.y;
        const int fromX = inX + c.from.x, fromY = inY + c.from.y;
        std::uint32_t expected = Ground(x, y);
        if (inX >= 0 && inX < c.drawn.cx && inY >= 0 && inY < c.drawn.cy && fromX >= 0 && fromY >= 0) {
          const int groundX = c.to.x + fromX, groundY = c.to.y + fromY;
          const bool isGround = groundX >= 0 && groundX < 30 && groundY >= 0 && groundY < 24;
          expected = Spotted(fromX, fromY);
          if (expected == magenta) expected = isGround ? Ground(groundX, groundY) : 0;
        }
        ASSERT_EQ(canvas.At(x, y), expected) << x << "," << y << " drawn to " << c.to.x << "," << c.to.y;
      }
  }
}

TEST_F(BitmapDrawTest, TracesOnItsWay) {
  Bitmap bitmap;
  const Canvas canvas(8, 8);
  Load(bitmap, Resource::Picture(2, 2, Spotted));
  const auto drawAll = [&](HDC context) {
    TakeLines();
    bitmap.Draw(context, {0, 0}, {0, 0}, {0, 0});
    bitmap.DrawTransparent(context, {0, 0}, Bitmap::TRANS_FIRSTPIXEL, 0, {0, 0}, {0, 0});
    bitmap.DrawRepeat(context, {0, 0}, {1, 1}, {}, true);
    bitmap.DrawRepeat(context, {0, 0}, {7, 7}, {}, true);
  };
  OpenArea("bitmap", "d");
  drawAll(canvas.context);
  EXPECT_THAT(
      TakeLines(),
      testing::ElementsAre("-> Bitmap::Draw()", "<- Bitmap::Draw()", "-> Bitmap::DrawTransparent()",
                           "<- Bitmap::DrawTransparent()", "-> Bitmap::DrawRepeat()",
                           "<- Bitmap::DrawRepeat()", "-> Bitmap::DrawRepeat()", "<- Bitmap::DrawRepeat()"));
  // The final copy fails: a warning, whose level lets it through alone.
  const HDC dead = CreateCompatibleDC(nullptr);
  DeleteDC(dead);
  char number[9];
  std::snprintf(number, sizeof number, "%08x", static_cast<unsigned>(reinterpret_cast<uintptr_t>(dead)));
  const std::string device = number;
  OpenArea("bitmap", "w");
  drawAll(dead);
  EXPECT_THAT(TakePlaces(),
              testing::ElementsAre("w Bitmap(478)", "w Bitmap(626)", "w Bitmap(684)", "w Bitmap(781)"));
  EXPECT_THAT(TakeLines(),
              testing::ElementsAre(
                  "failed to (normal) BitBlt(destDC=" + device + "), error 6",
                  "failed to (transparent)BitBlt(destDC=" + device + ", memDC=00000000), error 6",
                  "failed to (repeat) BitBlt(destDC=" + device + ", drawDC=00000000), error 6",
                  "failed to (transparent2) BitBlt(destDC=" + device + ", drawDC=00000000), error 6"));
  OpenArea("bitmap", "e");
  drawAll(dead);
  EXPECT_THAT(TakeLines(), testing::IsEmpty());
  TakeAssertions();
}

// Every step that fails says so, in order, and the next one is tried all the same.
TEST_F(BitmapDrawTest, Assertions) {
  Bitmap bitmap;
  Load(bitmap, Resource::Picture(2, 2, Spotted));
  const HDC dead = CreateCompatibleDC(nullptr);
  DeleteDC(dead);
  const auto expect = [this](std::initializer_list<const char*> texts) {
    std::vector<std::string> expected;
    for (const char* text : texts) expected.push_back(std::string("src/shared/Bitmap") + text);
    EXPECT_EQ(TakeAssertions(), expected);
  };
  bitmap.Draw(dead, {0, 0}, {0, 0}, {0, 0});
  expect({"(446):origDC.CreateCompatibleDC(destDC) != 0"});
  bitmap.DrawTransparent(dead, {0, 0}, Bitmap::TRANS_COLOR, 0, {0, 0}, {0, 0});
  expect({"(505):origDC.CreateCompatibleDC(destDC) != 0", "(520):drawDC.CreateCompatibleDC(destDC) != 0",
          "(521):drawBitmap.CreateCompatibleBitmap(destDC, bm.bmWidth, bm.bmHeight) != 0",
          "(529):objectDC.CreateCompatibleDC(destDC) != 0", "(536):backDC.CreateCompatibleDC(destDC) != 0",
          "(543):memDC.CreateCompatibleDC(destDC) != 0",
          "(545):memBitmap.CreateCompatibleBitmap(destDC, bm.bmWidth, bm.bmHeight) != 0",
          "(565):drawDC.BitBlt(0, 0, bm.bmWidth, bm.bmHeight, origDC, 0, 0, (DWORD)0x00CC0020)",
          "(574):objectDC.BitBlt(0, 0, bm.bmWidth, bm.bmHeight, drawDC, 0, 0, (DWORD)0x00CC0020)",
          "(581):backDC.BitBlt(0, 0, bm.bmWidth, bm.bmHeight, objectDC, 0, 0, (DWORD)0x00330008)",
          "(584):memDC.BitBlt(0, 0, bm.bmWidth, bm.bmHeight, destDC, rOriginDestination.x, "
          "rOriginDestination.y, (DWORD)0x00CC0020)",
          "(587):memDC.BitBlt(0, 0, bm.bmWidth, bm.bmHeight, objectDC, 0, 0, (DWORD)0x008800C6)",
          "(590):drawDC.BitBlt(0, 0, bm.bmWidth, bm.bmHeight, backDC, 0, 0, (DWORD)0x008800C6)",
          "(593):memDC.BitBlt(0, 0, bm.bmWidth, bm.bmHeight, drawDC, 0, 0, (DWORD)0x00EE0086)"});
  bitmap.DrawRepeat(dead, {0, 0}, {1, 1}, {}, true);
  expect({"(668):bmpDC.CreateCompatibleDC(destDC) != 0"});
  bitmap.DrawRepeat(dead, {0, 0}, {9, 9}, {}, true);
  expect({"(668):bmpDC.CreateCompatibleDC(destDC) != 0", "(695):drawDCX.CreateCompatibleDC(destDC) != 0",
          "(696):drawBitmapX.CreateCompatibleBitmap(destDC, size.cx, src.cy) != 0",
          "(734):drawDCY.CreateCompatibleDC(destDC) != 0",
          "(735):drawBitmapY.CreateCompatibleBitmap(destDC, src.cx, size.cy) != 0"});

  const Canvas canvas(8, 8);
  const Bitmap empty;
  empty.Draw(canvas.context, {0, 0}, {0, 0}, {0, 0});
  expect({"(442):mBitmap", "(459):::GetObjectA(mBitmap, sizeof(BITMAP), &bm) == sizeof(BITMAP)"});
  empty.DrawTransparent(canvas.context, {0, 0}, Bitmap::TRANS_COLOR, 0, {0, 0}, {0, 0});
  expect({"(501):mBitmap", "(509):::GetObjectA(mBitmap, sizeof(BITMAP), &bm) == sizeof(BITMAP)",
          "(531):objectBitmap.CreateBitmap(bm.bmWidth, bm.bmHeight, 1, 1, 0) != 0",
          "(538):backBitmap.CreateBitmap(bm.bmWidth, bm.bmHeight, 1, 1, 0) != 0"});
  empty.DrawRepeat(canvas.context, {0, 0}, {0, 0}, {}, true);
  expect({"(667):mBitmap", "(670):::GetObjectA(mBitmap, sizeof(BITMAP), &bm) == sizeof(BITMAP)"});
  EXPECT_THAT(canvas.Colors(), testing::Each(0u));
}

}  // namespace
}  // namespace test
