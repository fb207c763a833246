// Transfers with scaling, against the definition of each mode.
#include <algorithm>

#include "gdi/Canvas.h"

namespace test {
namespace {

using StretchTest = GdiTest;

// The source positions [first, last) of a target position.
std::pair<int, int> RangeOf(int target, int targetSize, int sourceSize) {
  if (sourceSize > targetSize)
    return {target * sourceSize / targetSize, (target + 1) * sourceSize / targetSize};
  const int at = (2 * target + 1) * sourceSize / (2 * targetSize);
  return {at, at + 1};
}

std::uint32_t Expected(const Canvas& source, int mode, std::pair<int, int> across, std::pair<int, int> down) {
  std::uint32_t all = 0xFFFFFF, any = 0, last = 0;
  unsigned sums[3] = {}, count = 0;
  for (int y = down.first; y < down.second; ++y)
    for (int x = across.first; x < across.second; ++x) {
      last = source.At(x, y);
      all &= last;
      any |= last;
      ++count;
      for (unsigned c = 0; c < 3; ++c) sums[c] += last >> 8 * c & 0xFF;
    }
  if (mode == BLACKONWHITE) return all;
  if (mode == WHITEONBLACK) return any;
  if (mode == COLORONCOLOR) return last;
  std::uint32_t average = 0;
  for (unsigned c = 0; c < 3; ++c) average |= (sums[c] + count / 2) / count << 8 * c;
  return average;
}

TEST_F(StretchTest, EveryModeCombinesAsItSays) {
  std::mt19937 random(3);
  for (int round = 0; round < 200; ++round) {
    const int width = 1 + static_cast<int>(random() % 17), height = 1 + static_cast<int>(random() % 13);
    const int newWidth = 1 + static_cast<int>(random() % 23), newHeight = 1 + static_cast<int>(random() % 19);
    const int mode = BLACKONWHITE + round % 4;
    Canvas source(width, height), target(newWidth, newHeight);
    source.FillBytes(random);
    EXPECT_EQ(SetStretchBltMode(target.context, mode), BLACKONWHITE);
    const bool mirrored = round % 3 == 0;
    ASSERT_TRUE(StretchBlt(target.context, mirrored ? newWidth : 0, 0, mirrored ? -newWidth : newWidth,
                           newHeight, source.context, 0, 0, width, height, SRCCOPY));
    for (int y = 0; y < newHeight; ++y)
      for (int x = 0; x < newWidth; ++x) {
        const auto across = RangeOf(mirrored ? newWidth - 1 - x : x, newWidth, width);
        ASSERT_EQ(target.At(x, y), Expected(source, mode, across, RangeOf(y, newHeight, height)))
            << width << "x" << height << " to " << newWidth << "x" << newHeight << " mode " << mode;
      }
  }
}

TEST_F(StretchTest, ClippedPartsAreTheSameAsTheWhole) {
  std::mt19937 random(4);
  Canvas source(13, 11), whole(40, 30), part(40, 30);
  source.FillBytes(random);
  StretchBlt(whole.context, -5, -4, 50, 40, source.context, 0, 0, 13, 11, SRCCOPY);
  IntersectClipRect(part.context, 7, 5, 29, 22);
  StretchBlt(part.context, -5, -4, 50, 40, source.context, 0, 0, 13, 11, SRCCOPY);
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x)
      ASSERT_EQ(part.At(x, y), x >= 7 && x < 29 && y >= 5 && y < 22 ? whole.At(x, y) : 0);
}

TEST_F(StretchTest, StretchesOntoItself) {
  Canvas canvas(8, 4);
  for (int x = 0; x < 4; ++x) canvas.At(x, 0) = static_cast<std::uint32_t>(x + 1);
  EXPECT_TRUE(StretchBlt(canvas.context, 0, 0, 8, 1, canvas.context, 0, 0, 4, 1, SRCCOPY));
  for (int x = 0; x < 8; ++x) EXPECT_EQ(canvas.At(x, 0), static_cast<std::uint32_t>(x / 2 + 1));
}

TEST_F(StretchTest, AbsurdSizesFailOrDrawNothing) {
  Canvas source(4, 4), target(4, 4);
  EXPECT_FALSE(StretchBlt(target.context, 0, 0, INT32_MAX, 4, source.context, 0, 0, 4, 4, SRCCOPY));
  EXPECT_FALSE(StretchBlt(target.context, 0, 0, 4, 4, source.context, 0, 0, INT32_MIN, 4, SRCCOPY));
  EXPECT_TRUE(StretchBlt(target.context, 0, 0, 0, 4, source.context, 0, 0, 4, 4, SRCCOPY));
  EXPECT_TRUE(StretchBlt(target.context, 0, 0, 4, 4, source.context, 0, 0, 0, 0, SRCCOPY));
}

}  // namespace
}  // namespace test
