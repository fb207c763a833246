// Fonts and single runs of text. Faces are those of the DejaVu family.
#include <algorithm>
#include <string>

#include "gdi/Canvas.h"

namespace test {
namespace {

class TextTest : public GdiTest {
 protected:
  void TearDown() override {
    for (const HFONT font : mFonts) DeleteObject(font);
    GdiTest::TearDown();
  }

  HFONT MakeFont(LONG height, int weight = 400, bool italic = false, const char* face = "DejaVu Sans",
                 BYTE quality = ANTIALIASED_QUALITY) {
    LOGFONTA description{};
    description.lfHeight = height;
    description.lfWeight = weight;
    description.lfItalic = italic;
    description.lfQuality = quality;
    std::strncpy(description.lfFaceName, face, LF_FACESIZE - 1);
    return Keep(CreateFontIndirectA(&description));
  }
  HFONT Keep(HFONT font) {
    mFonts.push_back(font);
    return font;
  }

  static TEXTMETRICA Metrics(const Canvas& canvas, HFONT font) {
    const HGDIOBJ previous = SelectObject(canvas.context, font);
    TEXTMETRICA metrics{};
    EXPECT_TRUE(GetTextMetricsA(canvas.context, &metrics));
    SelectObject(canvas.context, previous);
    return metrics;
  }
  static SIZE Extent(const Canvas& canvas, HFONT font, const std::string& text) {
    const HGDIOBJ previous = SelectObject(canvas.context, font);
    SIZE size{};
    EXPECT_TRUE(GetTextExtentPoint32A(canvas.context, text.data(), static_cast<int>(text.size()), &size));
    SelectObject(canvas.context, previous);
    return size;
  }
  // The box of all pixels that are not black.
  static RECT InkOf(const Canvas& canvas) {
    RECT ink{canvas.width, canvas.height, 0, 0};
    for (int y = 0; y < canvas.height; ++y)
      for (int x = 0; x < canvas.width; ++x)
        if (canvas.At(x, y) & 0xFFFFFF) {
          ink = {std::min(ink.left, x), std::min(ink.top, y), std::max(ink.right, x + 1),
                 std::max(ink.bottom, y + 1)};
        }
    return ink;
  }
  static void DrawWhite(const Canvas& canvas, HFONT font, int x, int y, const std::string& text) {
    canvas.Fill(0);
    const HGDIOBJ previous = SelectObject(canvas.context, font);
    SetBkMode(canvas.context, TRANSPARENT);
    SetTextColor(canvas.context, 0xFFFFFF);
    EXPECT_TRUE(TextOutA(canvas.context, x, y, text.data(), static_cast<int>(text.size())));
    SelectObject(canvas.context, previous);
  }
  static unsigned long SumOf(const Canvas& canvas) {
    unsigned long sum = 0;
    for (int y = 0; y < canvas.height; ++y)
      for (int x = 0; x < canvas.width; ++x) sum += canvas.At(x, y) & 0xFF;
    return sum;
  }

  std::vector<HFONT> mFonts;
};

TEST_F(TextTest, HeightsOfCharactersAndCells) {
  const Canvas canvas(4, 4);
  for (const int height : {8, 11, 13, 16, 20, 48, 100}) {
    const TEXTMETRICA em = Metrics(canvas, MakeFont(-height));
    EXPECT_EQ(em.tmHeight - em.tmInternalLeading, height);
    EXPECT_EQ(em.tmHeight, em.tmAscent + em.tmDescent);
    EXPECT_GT(em.tmHeight, height);
    const TEXTMETRICA cell = Metrics(canvas, MakeFont(height));
    EXPECT_NEAR(cell.tmHeight, height, 1);
    EXPECT_LT(cell.tmHeight - cell.tmInternalLeading, height);
  }
  // 1901 + 483 of 2048 units: the face's own figures.
  const TEXTMETRICA metrics = Metrics(canvas, MakeFont(-2048));
  EXPECT_EQ(metrics.tmAscent, 1901);
  EXPECT_EQ(metrics.tmDescent, 483);
  EXPECT_EQ(Metrics(canvas, MakeFont(0)).tmHeight, Metrics(canvas, MakeFont(16)).tmHeight);
}

TEST_F(TextTest, ExtentsAddUp) {
  const Canvas canvas(4, 4);
  const HFONT font = MakeFont(-20);
  const SIZE both = Extent(canvas, font, "AV");
  EXPECT_EQ(both.cx, Extent(canvas, font, "A").cx + Extent(canvas, font, "V").cx);
  EXPECT_EQ(both.cy, Metrics(canvas, font).tmHeight);
  EXPECT_EQ(Extent(canvas, font, "").cx, 0);
  EXPECT_EQ(Extent(canvas, font, "").cy, both.cy);
  const HFONT fixed = MakeFont(-20, 400, false, "DejaVu Sans Mono");
  EXPECT_EQ(Extent(canvas, fixed, "iiii").cx, Extent(canvas, fixed, "MMMM").cx);
  // Double width.
  LOGFONTA description{};
  GetObjectA(font, sizeof description, &description);
  description.lfWidth = 2 * Metrics(canvas, font).tmAveCharWidth;
  EXPECT_NEAR(Extent(canvas, Keep(CreateFontIndirectA(&description)), "Width").cx,
              2 * Extent(canvas, font, "Width").cx, 6);
}

TEST_F(TextTest, InkStandsWhereMetricsSay) {
  const Canvas canvas(60, 60);
  const HFONT font = MakeFont(-32);
  const TEXTMETRICA metrics = Metrics(canvas, font);
  DrawWhite(canvas, font, 10, 5, "H");
  const RECT ink = InkOf(canvas);
  EXPECT_EQ(ink.bottom, 5 + metrics.tmAscent) << "an H stands on the baseline";
  EXPECT_NEAR(ink.bottom - ink.top, 0.729 * 32, 1.5) << "and has the face's cap height";
  EXPECT_GE(ink.left, 10);
  EXPECT_LE(ink.right, 10 + Extent(canvas, font, "H").cx);
  DrawWhite(canvas, font, 10, 5, "g");
  EXPECT_GT(InkOf(canvas).bottom, 5 + metrics.tmAscent);
}

TEST_F(TextTest, AlignmentMovesTheReferencePoint) {
  const Canvas canvas(120, 80);
  const HFONT font = MakeFont(-20);
  const SIZE size = Extent(canvas, font, "Hug");
  DrawWhite(canvas, font, 40, 30, "Hug");
  const RECT plain = InkOf(canvas);
  const int ascent = Metrics(canvas, font).tmAscent;
  const struct {
    UINT align;
    int x, y;
  } cases[] = {{TA_RIGHT, -size.cx, 0},
               {TA_CENTER, -(size.cx / 2), 0},
               {TA_BASELINE, 0, -ascent},
               {TA_BOTTOM | TA_RIGHT, -size.cx, -size.cy}};
  for (const auto& c : cases) {
    SetTextAlign(canvas.context, c.align);
    DrawWhite(canvas, font, 40 - c.x, 30 - c.y, "Hug");
    const RECT moved = InkOf(canvas);
    EXPECT_EQ(moved.left, plain.left);
    EXPECT_EQ(moved.top, plain.top);
  }
}

TEST_F(TextTest, StylesShow) {
  const Canvas canvas(100, 60);
  DrawWhite(canvas, MakeFont(-30), 5, 5, "Hll");
  const unsigned long plain = SumOf(canvas);
  const RECT upright = InkOf(canvas);
  // The Serif face of the base package has no italic, the Sans face of any has bold.
  DrawWhite(canvas, MakeFont(-30, 700), 5, 5, "Hll");
  EXPECT_GT(SumOf(canvas), plain * 5 / 4);
  DrawWhite(canvas, MakeFont(-30, 400, true), 5, 5, "Hll");
  const RECT slanted = InkOf(canvas);
  EXPECT_NE(slanted.right, upright.right);
  // Underline and strike-out are lines over the whole extent.
  LOGFONTA description{};
  GetObjectA(mFonts[0], sizeof description, &description);
  description.lfUnderline = description.lfStrikeOut = 1;
  const HFONT lined = Keep(CreateFontIndirectA(&description));
  DrawWhite(canvas, lined, 5, 5, "  ");
  const RECT lines = InkOf(canvas);
  EXPECT_EQ(lines.left, 5);
  EXPECT_EQ(lines.right, 5 + Extent(canvas, lined, "  ").cx);
  const int baseline = 5 + Metrics(canvas, lined).tmAscent;
  EXPECT_LT(lines.top, baseline);
  EXPECT_GT(lines.bottom, baseline);
  const TEXTMETRICA metrics = Metrics(canvas, lined);
  EXPECT_EQ(metrics.tmUnderlined, 1);
  EXPECT_EQ(metrics.tmStruckOut, 1);
}

TEST_F(TextTest, BoldAndItalicAreMadeWhereTheFaceHasNone) {
  const Canvas canvas(100, 60);
  // One face, no variants: asked for by the family name of a style that exists once.
  DrawWhite(canvas, MakeFont(-30, 400, false, "DejaVu Math TeX Gyre"), 5, 5, "H");
  const unsigned long plain = SumOf(canvas);
  const int width = Extent(canvas, mFonts[0], "H").cx;
  char face[LF_FACESIZE] = {};
  const HGDIOBJ previous = SelectObject(canvas.context, mFonts[0]);
  GetTextFaceA(canvas.context, LF_FACESIZE, face);
  SelectObject(canvas.context, previous);
  if (std::string(face) != "DejaVu Math TeX Gyre") GTEST_SKIP() << "the face is not installed";
  DrawWhite(canvas, MakeFont(-30, 700, false, face), 5, 5, "H");
  EXPECT_GT(SumOf(canvas), plain);
  EXPECT_EQ(Extent(canvas, mFonts[1], "H").cx, width + 1);
  DrawWhite(canvas, MakeFont(-30, 400, true, face), 5, 5, "H");
  EXPECT_GT(InkOf(canvas).right, 5 + width - 2);
}

TEST_F(TextTest, OpaqueTextFillsItsCell) {
  const Canvas canvas(60, 40);
  canvas.Fill(0x123456);
  const HGDIOBJ previous = SelectObject(canvas.context, MakeFont(-16));
  SetTextColor(canvas.context, RGB(255, 0, 0));
  SetBkColor(canvas.context, RGB(255, 0, 0));
  SIZE size{};
  GetTextExtentPoint32A(canvas.context, "Hi", 2, &size);
  TextOutA(canvas.context, 3, 4, "Hi", 2);
  SelectObject(canvas.context, previous);
  for (int y = 0; y < 40; ++y)
    for (int x = 0; x < 60; ++x)
      ASSERT_EQ(canvas.At(x, y),
                x >= 3 && x < 3 + size.cx && y >= 4 && y < 4 + size.cy ? 0xFF0000u : 0x123456u);
}

TEST_F(TextTest, ExtendedOutput) {
  const Canvas canvas(100, 40);
  const HFONT font = MakeFont(-16);
  const HGDIOBJ previous = SelectObject(canvas.context, font);
  SetBkMode(canvas.context, TRANSPARENT);
  SetTextColor(canvas.context, 0xFFFFFF);
  // Clipped to a rectangle.
  const RECT clip{10, 8, 20, 16};
  ExtTextOutA(canvas.context, 5, 4, ETO_CLIPPED, &clip, "MMMM", 4, nullptr);
  const RECT ink = InkOf(canvas);
  EXPECT_GE(ink.left, clip.left);
  EXPECT_LE(ink.right, clip.right);
  EXPECT_GE(ink.top, clip.top);
  EXPECT_LE(ink.bottom, clip.bottom);
  // Filled, without any text.
  SetBkColor(canvas.context, RGB(0, 0, 255));
  ExtTextOutA(canvas.context, 0, 0, ETO_OPAQUE, &clip, nullptr, 0, nullptr);
  EXPECT_EQ(canvas.At(19, 15), 0xFFu);
  EXPECT_EQ(canvas.At(20, 15), 0u);
  // Own distances.
  canvas.Fill(0);
  const int advances[] = {40, 10};
  ExtTextOutA(canvas.context, 0, 0, 0, nullptr, "ll", 2, advances);
  EXPECT_GT(InkOf(canvas).right, 40);
  SelectObject(canvas.context, previous);
}

TEST_F(TextTest, HardEdgesWithoutAntialiasingAndOnIndexedSurfaces) {
  const Canvas canvas(60, 40);
  DrawWhite(canvas, MakeFont(-24, 400, false, "DejaVu Sans", NONANTIALIASED_QUALITY), 3, 3, "So");
  for (const std::uint32_t color : canvas.Colors()) ASSERT_TRUE(color == 0 || color == 0xFFFFFF);
  DrawWhite(canvas, MakeFont(-24), 3, 3, "So");
  EXPECT_THAT(canvas.Colors(),
              testing::Contains(testing::AllOf(testing::Gt(0x202020u), testing::Lt(0xD0D0D0u))));
  const MonoCanvas mono(60, 40, [](int, int) { return false; });
  const HGDIOBJ previous = SelectObject(mono.context, mFonts[1]);
  SetBkMode(mono.context, TRANSPARENT);
  SetTextColor(mono.context, 0xFFFFFF);
  EXPECT_TRUE(TextOutA(mono.context, 3, 3, "So", 2));
  int ones = 0;
  for (int y = 0; y < 40; ++y)
    for (int x = 0; x < 60; ++x) ones += GetPixel(mono.context, x, y) != 0;
  EXPECT_GT(ones, 60);
  SelectObject(mono.context, previous);
}

// Each depth has a way of its own to blend; both have to give every pixel the same colour, however few of a
// character's columns are drawn.
TEST_F(TextTest, DepthsBlendAlike) {
  std::mt19937 random(8);
  const Canvas words(120, 30), bytes(120, 30, 24);
  const HFONT font = MakeFont(-13);
  for (const Canvas* canvas : {&words, &bytes}) {
    SelectObject(canvas->context, font);
    SetBkMode(canvas->context, TRANSPARENT);
  }
  for (int round = 0; round < 40; ++round) {
    words.FillBytes(random);
    BitBlt(bytes.context, 0, 0, 120, 30, words.context, 0, 0, SRCCOPY);
    const RECT clip{round % 20, round % 5, round % 20 + 1 + round, 20};
    const auto color = static_cast<COLORREF>(random() & 0xFFFFFF);
    for (const Canvas* canvas : {&words, &bytes}) {
      SetTextColor(canvas->context, color);
      ExtTextOutA(canvas->context, 3, 4, ETO_CLIPPED, &clip, "Will @ jump?", 12, nullptr);
    }
    ASSERT_EQ(words.Colors(), bytes.Colors()) << "round " << round;
  }
  for (const Canvas* canvas : {&words, &bytes}) SelectObject(canvas->context, GetStockObject(SYSTEM_FONT));
}

TEST_F(TextTest, TextsAreInTheAnsiCodePage) {
  const Canvas canvas(60, 40);
  const HFONT font = MakeFont(-24);
  // U+00C4 of code page 1252, and the euro sign at 0x80.
  DrawWhite(canvas, font, 3, 3, "A");
  const RECT plain = InkOf(canvas);
  DrawWhite(canvas, font, 3, 3, "\xC4");
  EXPECT_LT(InkOf(canvas).top, plain.top) << "the dots above the letter";
  EXPECT_GT(Extent(canvas, font, "\x80").cx, 0);
}

TEST_F(TextTest, AnyBytesAndAnyDescription) {
  std::mt19937 random(6);
  const Canvas canvas(30, 30);
  for (int round = 0; round < 60; ++round) {
    LOGFONTA description;
    for (size_t i = 0; i < sizeof description; ++i)
      reinterpret_cast<BYTE*>(&description)[i] = static_cast<BYTE>(random());
    if (round % 2) description.lfHeight = description.lfHeight % 64, description.lfWidth %= 64;
    const HFONT font = CreateFontIndirectA(&description);
    ASSERT_NE(font, nullptr);
    std::string text(random() % 20, ' ');
    for (char& byte : text) byte = static_cast<char>(random());
    if (round % 2)
      DrawWhite(canvas, font, static_cast<int>(random() % 30), static_cast<int>(random() % 30), text);
    Extent(canvas, font, text.substr(0, 2));
    DeleteObject(font);
  }
}

}  // namespace
}  // namespace test
