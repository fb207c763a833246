// Descriptors, layers, drawing and measuring.
#include "drawing/Drawing.h"

namespace test {
namespace {

using orm::Font;
using orm::FontLayer;
using orm::String;

class FontTest : public DrawingTest {
 protected:
  static LOGFONTA Describe(const Font& font) {
    LOGFONTA description{};
    GetObjectA(font.GetHandle(), sizeof description, &description);
    return description;
  }
};

TEST_F(FontTest, DescriptorFieldsAndTheirDefaults) {
  const struct {
    const char* descriptor;
    const char* face;
    int height, weight, style, charset;
    COLORREF color;
  } cases[] = {
      {"Tahoma", "Tahoma", -11, 400, 0, 1, 0},
      {"Arial;12", "Arial", -16, 400, 0, 1, 0},
      {"Tahoma;10;ffffff;700;1;0", "Tahoma", -13, 700, 1, 0, 0xFFFFFF},
      {"DejaVu Sans;72;80ff01;300;6;204", "DejaVu Sans", -96, 300, 6, 204, 0x80FF01},
      {"A;9;0x10;;5", "A", -12, 400, 0, 1, 0x10},            // the reading stops at the empty field
      {"A; 9; 10; 500; 1; 257", "A", -12, 500, 1, 1, 0x10},  // blanks before numbers, the low byte
      {"A;x;10", "A", -11, 400, 0, 1, 0},
      {"A;-9", "A", 12, 400, 0, 1, 0},
      {"A;8;-2;+700;-1;-1", "A", -11, 700, 7, 255, 0xFFFFFFFE},
      {"A;8;fffffffff", "A", -11, 400, 0, 1, 0xFFFFFFFF},
      {"A ;8", "A ", -11, 400, 0, 1, 0},
      {"A;8 ;700", "A", -11, 400, 0, 1, 0},  // no blank before a semicolon
      {"1234567890123456789012345678901;8", "1234567890123456789012345678901", -11, 400, 0, 1, 0},
  };
  for (const auto& c : cases) {
    Font font;
    ASSERT_TRUE(font.Create(c.descriptor)) << c.descriptor;
    const LOGFONTA description = Describe(font);
    EXPECT_STREQ(description.lfFaceName, c.face);
    EXPECT_EQ(description.lfHeight, c.height) << c.descriptor;
    EXPECT_EQ(description.lfWeight, c.weight) << c.descriptor;
    EXPECT_EQ(description.lfItalic | description.lfUnderline << 1 | description.lfStrikeOut << 2, c.style);
    EXPECT_EQ(description.lfCharSet, c.charset) << c.descriptor;
    EXPECT_EQ(description.lfWidth | description.lfEscapement | description.lfOrientation, 0);
    EXPECT_EQ(description.lfOutPrecision, 7);
    EXPECT_EQ(description.lfClipPrecision, 0);
    EXPECT_EQ(description.lfQuality, 4);
    EXPECT_EQ(description.lfPitchAndFamily, 0);
    ASSERT_EQ(font.GetLayers().size(), 1u);
    EXPECT_EQ(font.GetLayers()[0].color, c.color) << c.descriptor;
  }
}

// At one pixel to the point, the smallest size has no opposite number.
TEST_F(FontTest, TheSmallestSizeOnAScreenOf72DotsPerInch) {
  if (!SetScreenResolution(72)) GTEST_SKIP() << "needs a process of its own";
  Font font;
  EXPECT_TRUE(font.Create("Tahoma;-99999999999"));
  EXPECT_EQ(Describe(font).lfHeight, INT32_MAX);
}

TEST_F(FontTest, Layers) {
  const struct {
    const char* descriptor;
    std::vector<FontLayer> layers;
  } cases[] = {
      {"T;10;ffffff;700;0;0:1,1,000000", {{1, 1, 0}, {0, 0, 0xFFFFFF}}},
      {"T;10;ffffff;700;0;0:1,1,000000;;-1,-1,808080:2,2", {{1, 1, 0}, {-1, -1, 0x808080}, {2, 2, 0xFFFFFF}}},
      {"T;10;ff::3,-4", {{3, -4, 0xFF}}},
      {"T;10;ff:1,1,0:", {{1, 1, 0}, {0, 0, 0xFF}}},
      {"T;10;ff:;;:5,5:9", {{5, 5, 0xFF}}},
      {"T;10;ff:7", {{7, 0, 0}, {0, 0, 0xFF}}},
  };
  for (const auto& c : cases) {
    Font font;
    ASSERT_TRUE(font.Create(c.descriptor));
    ASSERT_EQ(font.GetLayers().size(), c.layers.size()) << c.descriptor;
    for (size_t i = 0; i < c.layers.size(); ++i) {
      EXPECT_EQ(font.GetLayers()[i].x, c.layers[i].x) << c.descriptor;
      EXPECT_EQ(font.GetLayers()[i].y, c.layers[i].y) << c.descriptor;
      EXPECT_EQ(font.GetLayers()[i].color, c.layers[i].color) << c.descriptor;
    }
  }
}

TEST_F(FontTest, MalformedAndEmptyDescriptors) {
  const Canvas canvas(20, 20);
  for (const char* descriptor : {";10", ";", ";;;;;", "12345678901234567890123456789012", ";10:1,1,0"}) {
    Font font;
    EXPECT_FALSE(font.Create(descriptor)) << descriptor;
    EXPECT_EQ(font.GetHandle(), nullptr);
  }
  Font font;
  EXPECT_TRUE(font.Create(""));
  EXPECT_EQ(font.GetHandle(), nullptr);
  font.Draw(canvas.context, 1, 1, "text");
  EXPECT_THAT(canvas.Colors(), testing::Each(0u));
  EXPECT_EQ(GetBkMode(canvas.context), OPAQUE) << "nothing is touched";
  EXPECT_EQ(font.GetSize(canvas.context, "text").cx, 0);
  EXPECT_EQ(font.GetSize(canvas.context, "text").cy, 0);
  const RECT same = font.GetSize(canvas.context, RECT{1, 2, 3, 4}, "text", 0);
  EXPECT_EQ(same.right, 3);
}

TEST_F(FontTest, ASecondCreateAssertsAndReplaces) {
  Font font;
  EXPECT_TRUE(font.Create("DejaVu Sans;10:1,1,0"));
  EXPECT_FALSE(font.Create(";")) << "which changes nothing";
  EXPECT_THAT(TakeAssertions(), testing::ElementsAre("src/shared/Font(18):mFont == 0"));
  EXPECT_EQ(font.GetLayers().size(), 2u);
  EXPECT_TRUE(font.Create("DejaVu Sans;20"));
  EXPECT_THAT(TakeAssertions(), testing::ElementsAre("src/shared/Font(18):mFont == 0"));
  EXPECT_EQ(font.GetLayers().size(), 1u);
  EXPECT_EQ(Describe(font).lfHeight, -27);
}

TEST_F(FontTest, TracesWhatItMakes) {
  OpenArea("font", "d");
  Font quiet;
  quiet.Create("Tahoma;10");
  EXPECT_THAT(TakeLines(), testing::IsEmpty());
  OpenArea("font", "t");
  Font font;
  font.Create("Tahoma;10;00ff80;700;9;204");
  EXPECT_THAT(TakePlaces(), testing::ElementsAre("t Font(81)"));
  EXPECT_THAT(TakeLines(), testing::ElementsAre("creating new font: Tahoma;10;00ff80;700;1;0xcc"));
}

TEST_F(FontTest, SizesGrowWithTheLayers) {
  const Canvas canvas(4, 4);
  const auto size = [&](const char* layers, const char* text) {
    Font font;
    font.Create(String("DejaVu Sans;12;0;400;0;1") + layers);
    return font.GetSize(canvas.context, text);
  };
  const auto rect = [&](const char* layers) {
    Font font;
    font.Create(String("DejaVu Sans;12;0;400;0;1") + layers);
    return font.GetSize(canvas.context, RECT{10, 20, 10, 20}, "two\nlines", 0);
  };
  const SIZE plain = size("", "Text");
  EXPECT_GT(plain.cx, 0);
  const RECT plainRect = rect("");
  EXPECT_EQ(plainRect.bottom - plainRect.top, 2 * plain.cy);
  const struct {
    const char* layers;
    RECT grow;
  } cases[] = {{":1,1,0", {0, 0, 1, 1}},
               {":-1,-1,0", {-1, -1, 0, 0}},
               {":-3,0,0;2,5,0:1,1", {-3, 0, 2, 5}},
               {"::4,4", {0, 0, 4, 4}}};  // every range includes 0
  for (const auto& c : cases) {
    const SIZE grown = size(c.layers, "Text");
    EXPECT_EQ(grown.cx - plain.cx, c.grow.right - c.grow.left) << c.layers;
    EXPECT_EQ(grown.cy - plain.cy, c.grow.bottom - c.grow.top) << c.layers;
    const RECT grownRect = rect(c.layers);
    EXPECT_EQ(grownRect.left - plainRect.left, c.grow.left);
    EXPECT_EQ(grownRect.top - plainRect.top, c.grow.top);
    EXPECT_EQ(grownRect.right - plainRect.right, c.grow.right);
    EXPECT_EQ(grownRect.bottom - plainRect.bottom, c.grow.bottom);
  }
}

TEST_F(FontTest, MeasuringWithoutAContextAsserts) {
  Font font;
  font.Create("DejaVu Sans;12");
  const SIZE size = font.GetSize(nullptr, "Text");
  EXPECT_EQ(size.cx, 0);
  EXPECT_EQ(size.cy, 0);
  EXPECT_THAT(TakeAssertions(), testing::ElementsAre("src/shared/Font(180):forced assert"));
}

// Layers are the text again, moved and in their colours, the text itself on top.
TEST_F(FontTest, LayersAreDrawnInOrder) {
  const Canvas layered(90, 40), single(90, 40);
  Font plain, layers;
  plain.Create("DejaVu Sans;16;ff;400;0;1");
  layers.Create("DejaVu Sans;16;ff;400;0;1:2,3,00ff00;-1,0,ff0000:1,1");
  for (const bool formatted : {false, true})
    for (const COLORREF color : {Font::OWN_COLOR, COLORREF{0x00FFFF}}) {
      layered.Fill(0x808080);
      single.Fill(0x808080);
      const auto draw = [&](const Canvas& canvas, const Font& font, LONG x, LONG y, COLORREF with) {
        if (formatted)
          font.DrawFormatted(canvas.context, RECT{x, y, x + 80, y + 35}, "Lay", DT_SINGLELINE | DT_RIGHT,
                             with);
        else
          font.Draw(canvas.context, x, y, "Lay", with);
      };
      draw(single, plain, 5 + 2, 2 + 3, 0x00FF00);
      draw(single, plain, 5 - 1, 2, 0xFF0000);
      draw(single, plain, 5 + 1, 2 + 1, color);
      draw(layered, layers, 5, 2, color);
      EXPECT_EQ(layered.Colors(), single.Colors());
      EXPECT_THAT(layered.Colors(), testing::Contains(color == Font::OWN_COLOR ? 0xFF0000u : 0xFFFF00u));
    }
  EXPECT_EQ(GetBkMode(layered.context), TRANSPARENT) << "which stays";
  EXPECT_EQ(GetCurrentObject(layered.context, OBJ_FONT), GetStockObject(SYSTEM_FONT)) << "the font does not";
}

TEST_F(FontTest, AnyDescriptor) {
  std::mt19937 random(7);
  const Canvas canvas(30, 30);
  constexpr char alphabet[] = "A;:,-0123456789abcdefx %";
  for (int round = 0; round < 300; ++round) {
    std::string descriptor(random() % 60, ' ');
    for (char& c : descriptor)
      c = random() % 8 ? alphabet[random() % (sizeof alphabet - 1)] : static_cast<char>(1 + random() % 255);
    Font font;
    if (!font.Create(descriptor.c_str())) continue;
    font.Draw(canvas.context, 3, 3, "x");
    font.GetSize(canvas.context, "x");
    font.GetSize(canvas.context, RECT{INT32_MIN, 0, INT32_MAX, 5}, "x", DT_WORDBREAK);
  }
}

}  // namespace
}  // namespace test
