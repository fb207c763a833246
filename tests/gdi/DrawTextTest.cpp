// Formatted text. Most cases measure; the fixed pitch makes widths countable.
#include <optional>
#include <string>

#include "gdi/Canvas.h"

namespace test {
namespace {

class DrawTextTest : public GdiTest {
 protected:
  void SetUp() override {
    GdiTest::SetUp();
    LOGFONTA description{};
    description.lfHeight = -20;
    std::strcpy(description.lfFaceName, "DejaVu Sans Mono");
    mFont = CreateFontIndirectA(&description);
    mCanvas.emplace(300, 200);
    mPrevious = SelectObject(mCanvas->context, mFont);
    SetBkMode(mCanvas->context, TRANSPARENT);
    SetTextColor(mCanvas->context, 0xFFFFFF);
    SIZE size{};
    GetTextExtentPoint32A(mCanvas->context, "M", 1, &size);
    mWide = size.cx;
    mHigh = size.cy;
  }
  void TearDown() override {
    SelectObject(mCanvas->context, mPrevious);
    mCanvas.reset();
    DeleteObject(mFont);
    GdiTest::TearDown();
  }

  // Size in characters and lines of a text in a rectangle of `room` characters.
  std::pair<int, int> Measure(const char* text, UINT format, int room = 10) {
    RECT rect{7, 9, 7 + room * mWide, 10};
    const int height = DrawTextA(mCanvas->context, text, -1, &rect, format | DT_CALCRECT);
    EXPECT_EQ(rect.left, 7);
    EXPECT_EQ(rect.top, 9);
    EXPECT_EQ(rect.bottom - rect.top, height);
    EXPECT_EQ((rect.right - rect.left) % mWide, 0) << text;
    return {(rect.right - rect.left) / mWide, height / mHigh};
  }
  RECT Draw(const char* text, RECT rect, UINT format) {
    mCanvas->Fill(0);
    DrawTextA(mCanvas->context, text, -1, &rect, format);
    return Ink();
  }
  RECT Ink() {
    RECT ink{300, 200, 0, 0};
    for (int y = 0; y < 200; ++y)
      for (int x = 0; x < 300; ++x)
        if (mCanvas->At(x, y) & 0xFFFFFF)
          ink = {std::min(ink.left, x), std::min(ink.top, y), std::max(ink.right, x + 1),
                 std::max(ink.bottom, y + 1)};
    return ink;
  }
  // Whether two calls give the same picture.
  bool Same(const char* a, UINT formatA, const char* b, UINT formatB, int room) {
    const RECT rect{5, 5, 5 + room * mWide, 150};
    Draw(a, rect, formatA);
    const std::vector<std::uint32_t> first = mCanvas->Colors();
    Draw(b, rect, formatB);
    return first == mCanvas->Colors();
  }

  HFONT mFont = nullptr;
  std::optional<Canvas> mCanvas;
  HGDIOBJ mPrevious = nullptr;
  int mWide = 0, mHigh = 0;
};

using Measured = std::pair<int, int>;

TEST_F(DrawTextTest, Lines) {
  EXPECT_EQ(Measure("one", 0), Measured(3, 1));
  EXPECT_EQ(Measure("one\ntwenty\r\nx", 0), Measured(6, 3));
  EXPECT_EQ(Measure("a\rb\n\nc", 0), Measured(1, 4));
  EXPECT_EQ(Measure("one\ntwo", DT_SINGLELINE), Measured(7, 1));
  EXPECT_EQ(Measure("", DT_SINGLELINE), Measured(0, 1));
  EXPECT_EQ(Measure("a longer line than the room", 0, 5), Measured(27, 1)) << "not broken unless asked";
}

TEST_F(DrawTextTest, WordsBreak) {
  EXPECT_EQ(Measure("aaa bbb ccc", DT_WORDBREAK, 7), Measured(7, 2));
  EXPECT_EQ(Measure("aaa bbb ccc", DT_WORDBREAK, 11), Measured(11, 1));
  EXPECT_EQ(Measure("aaa bbb ccc", DT_WORDBREAK, 5), Measured(3, 3));
  EXPECT_EQ(Measure("a extraordinary b", DT_WORDBREAK, 5), Measured(13, 3)) << "a long word stands alone";
  EXPECT_EQ(Measure("extraordinary", DT_WORDBREAK | DT_EDITCONTROL, 5), Measured(5, 3));
  EXPECT_EQ(Measure("aa bb\ncc dd", DT_WORDBREAK, 2), Measured(2, 4));
  EXPECT_TRUE(Same("aaa   bbb", DT_WORDBREAK, "aaa\nbbb", 0, 5)) << "blanks at the break vanish";
  EXPECT_EQ(Measure("abc", DT_WORDBREAK, 0), Measured(3, 1));
  EXPECT_EQ(Measure("abc", DT_WORDBREAK | DT_EDITCONTROL, 0), Measured(1, 3))
      << "each line gets one at least";
}

TEST_F(DrawTextTest, Tabs) {
  EXPECT_EQ(Measure("a\tb", DT_EXPANDTABS), Measured(9, 1));
  EXPECT_EQ(Measure("12345678\tb", DT_EXPANDTABS), Measured(17, 1));
  // The width takes the place of the flags from no-clip to no-prefix, measuring among them.
  EXPECT_TRUE(Same("a\tb\tc", DT_EXPANDTABS | DT_TABSTOP | 4 << 8, "a   b   c", 0, 20));
  EXPECT_TRUE(Same("a\tb", DT_EXPANDTABS, "a       b", 0, 20));
  DRAWTEXTPARAMS parameters{sizeof parameters, 3, 2, 1, 0};
  RECT rect{0, 0, 100, 100};
  char text[] = "a\tb";
  DrawTextExA(mCanvas->context, text, -1, &rect, DT_EXPANDTABS | DT_CALCRECT, &parameters);
  EXPECT_EQ(rect.right, (2 + 4 + 1) * mWide);
  EXPECT_EQ(parameters.uiLengthDrawn, 3u);
  std::string many(50000, '\t');
  parameters.iTabLength = 4096;
  DrawTextExA(mCanvas->context, many.data(), -1, &rect, DT_EXPANDTABS | DT_CALCRECT, &parameters);
  EXPECT_EQ(rect.right, INT32_MAX / 2) << "as far as it goes";
}

TEST_F(DrawTextTest, Prefixes) {
  EXPECT_EQ(Measure("&File", 0), Measured(4, 1));
  EXPECT_EQ(Measure("&File", DT_NOPREFIX), Measured(5, 1));
  EXPECT_EQ(Measure("a && b", 0), Measured(5, 1));
  EXPECT_EQ(Measure("end&", 0), Measured(3, 1));
  EXPECT_TRUE(Same("a && b", 0, "a & b", DT_NOPREFIX, 20));
  EXPECT_TRUE(Same("&File", DT_HIDEPREFIX, "File", 0, 20));
  EXPECT_FALSE(Same("&File", 0, "File", 0, 20));
  const RECT mark = Draw("F&ile", {10, 10, 200, 60}, DT_PREFIXONLY);
  EXPECT_EQ(mark.left, 10 + mWide);
  EXPECT_EQ(mark.right, 10 + 2 * mWide);
  EXPECT_LE(mark.bottom - mark.top, 2);
}

TEST_F(DrawTextTest, Ellipses) {
  EXPECT_TRUE(Same("abcdefghij", DT_SINGLELINE | DT_END_ELLIPSIS, "abcd...", DT_SINGLELINE, 7));
  EXPECT_TRUE(Same("abcdefg", DT_SINGLELINE | DT_END_ELLIPSIS, "abcdefg", DT_SINGLELINE, 7)) << "it fits";
  EXPECT_TRUE(Same("abcdefghij\nxy", DT_WORD_ELLIPSIS, "abcd...\nxy", 0, 7));
  EXPECT_TRUE(Same("abcdefghij\nxy", DT_END_ELLIPSIS | DT_NOCLIP, "abcdefghij\nxy", DT_NOCLIP, 7))
      << "only at the end";
  EXPECT_TRUE(
      Same("c:\\folder\\deep\\file", DT_SINGLELINE | DT_PATH_ELLIPSIS, "c:\\fo...\\file", DT_SINGLELINE, 13));
  EXPECT_TRUE(Same("c:\\a\\verylongname", DT_SINGLELINE | DT_PATH_ELLIPSIS, "...\\ve...", DT_SINGLELINE, 9));
  EXPECT_EQ(Measure("abcdefghij", DT_SINGLELINE | DT_END_ELLIPSIS, 2).first, 3) << "the ellipsis alone";
}

TEST_F(DrawTextTest, AlignmentInTheRectangle) {
  const RECT rect{20, 10, 220, 110};
  const RECT left = Draw("HH", rect, DT_SINGLELINE);
  const RECT right = Draw("HH", rect, DT_SINGLELINE | DT_RIGHT);
  const RECT center = Draw("HH", rect, DT_SINGLELINE | DT_CENTER);
  EXPECT_EQ(right.left - left.left, 200 - 2 * mWide);
  EXPECT_EQ(center.left - left.left, (200 - 2 * mWide) / 2);
  const RECT bottom = Draw("HH", rect, DT_SINGLELINE | DT_BOTTOM);
  const RECT middle = Draw("HH", rect, DT_SINGLELINE | DT_VCENTER);
  EXPECT_EQ(bottom.top - left.top, 100 - mHigh);
  EXPECT_EQ(middle.top - left.top, (100 - mHigh) / 2);
  EXPECT_EQ(Draw("HH", rect, DT_BOTTOM).top, left.top) << "of no effect on several lines";
  RECT copy = rect;
  EXPECT_EQ(DrawTextA(mCanvas->context, "HH", -1, &copy, DT_SINGLELINE | DT_BOTTOM), 100);
}

TEST_F(DrawTextTest, ClipsToTheRectangle) {
  const RECT rect{20, 10, 20 + mWide * 3 / 2, 10 + mHigh * 3 / 2};
  const RECT clipped = Draw("MMM\nMMM\nMMM", rect, 0);
  EXPECT_LE(clipped.right, rect.right);
  EXPECT_LE(clipped.bottom, rect.bottom);
  const RECT free = Draw("MMM\nMMM\nMMM", rect, DT_NOCLIP);
  EXPECT_GT(free.right, rect.right);
  EXPECT_GT(free.bottom, 10 + 2 * mHigh);
}

TEST_F(DrawTextTest, LengthAndBadArguments) {
  RECT rect{0, 0, 100, 100};
  DrawTextA(mCanvas->context, "abcdef", 3, &rect, DT_CALCRECT);
  EXPECT_EQ(rect.right, 3 * mWide);
  EXPECT_EQ(DrawTextA(mCanvas->context, "abc", -2, &rect, 0), 0);
  EXPECT_EQ(DrawTextA(mCanvas->context, nullptr, -1, &rect, 0), 0);
  EXPECT_EQ(DrawTextA(mCanvas->context, "abc", -1, nullptr, 0), 0);
  EXPECT_EQ(DrawTextA(nullptr, "abc", -1, &rect, 0), 0);
  // Rectangles from anywhere.
  for (RECT wild :
       {RECT{INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX}, RECT{INT32_MAX, INT32_MAX, INT32_MIN, INT32_MIN}})
    for (const UINT format : {0u, DT_CENTER | DT_WORDBREAK, DT_RIGHT | DT_SINGLELINE | DT_BOTTOM,
                              DT_SINGLELINE | DT_VCENTER | DT_END_ELLIPSIS, DT_CALCRECT})
      DrawTextA(mCanvas->context, "some text\nfor a wild place", -1, &wild, format);
}

}  // namespace
}  // namespace test
