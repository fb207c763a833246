// Repeating bands, against a model that decides for each pixel where it comes from.
#include <algorithm>
#include <new>
#include <optional>

#include "drawing/Drawing.h"
#include "drawing/RepeatModel.h"

namespace test {
namespace {

using DrawRepeatTest = DrawingTest;
using orm::Bitmap;

using Axis = RepeatAxis;

class Pictures : public DrawRepeatTest {
 protected:
  static std::uint32_t Color(int x, int y) {
    return static_cast<std::uint32_t>((x + 1) << 12 | (y + 1) << 4);
  }

  void Expect(const SIZE& size, const Axis& x, const Axis& y) {
    Bitmap::RepeatInfo info;
    info.mStartX = x.start, info.mLengthX = x.length, info.mPeriodX = x.period, info.mPhaseX = x.phase;
    info.mStartY = y.start, info.mLengthY = y.length, info.mPeriodY = y.period, info.mPhaseY = y.phase;
    for (int row = 0; row < mCanvas->height; ++row)
      std::memset(mCanvas->Row(row), 0, static_cast<size_t>(mCanvas->stride));
    mBitmap.DrawRepeat(mCanvas->context, {1, 2}, size, info, true);
    const int width = size.cx < 0 ? 12 : size.cx, height = size.cy < 0 ? 9 : size.cy;
    const std::vector<int> fromX = ModelRepeat(x, 12, width), fromY = ModelRepeat(y, 9, height);
    for (int row = 0; row < mCanvas->height; ++row)
      for (int column = 0; column < mCanvas->width; ++column) {
        const int inX = column - 1, inY = row - 2;
        const bool inside = inX >= 0 && inX < width && inY >= 0 && inY < height;
        const std::uint32_t expected =
            inside ? Color(fromX[static_cast<size_t>(inX)], fromY[static_cast<size_t>(inY)]) : 0;
        ASSERT_EQ(mCanvas->At(column, row), expected)
            << size.cx << "x" << size.cy << " at " << inX << "," << inY << ", x " << x.start << " "
            << x.length << " " << x.period << " " << x.phase << ", y " << y.start << " " << y.length << " "
            << y.period << " " << y.phase;
      }
  }

  void SetUp() override {
    DrawRepeatTest::SetUp();
    Load(mBitmap, Resource::Picture(12, 9, Color));
    mCanvas.emplace(34, 28);
  }
  void TearDown() override {
    mBitmap.~Bitmap();
    new (&mBitmap) Bitmap;
    mCanvas.reset();
    DrawRepeatTest::TearDown();
  }

  Bitmap mBitmap;
  std::optional<Canvas> mCanvas;
};

TEST_F(Pictures, EveryStartLengthPeriodAndPhase) {
  const Axis other[] = {{0, 0, 1, 0}, {2, 3, 1, 0}, {4, 1, 3, 2}};
  int round = 0;
  for (int start = 0; start <= 13; ++start)
    for (int length = 0; length <= 13; ++length)
      for (int period = 1; period <= 7; ++period)
        for (int phase = 0; phase < period; ++phase) {
          const Axis axis{start, length, period, phase};
          ++round;
          // The axis across and down, the other direction and the size changing along.
          Expect({13 + round % 18, round % 5 ? 9 : 20}, axis, other[round % 3]);
          if (HasFatalFailure()) return;
          Expect({round % 4 ? 12 : 25, 10 + round % 14}, other[round % 3], axis);
          if (HasFatalFailure()) return;
        }
}

// The phase is taken as it is: only one period is ever added, so that far ones empty the tail or make it
// longer than the bitmap's, whose missing columns leave the target alone.
TEST_F(Pictures, PhasesBeyondThePeriod) {
  for (int phase = -15; phase <= 15; ++phase) {
    constexpr int width = 30, band = 4, bandWidth = 2, period = 4;
    int end = width - 6;
    int shift = phase - (end + bandWidth) % period;
    if (shift < 0) shift += period;
    end = std::min(end + shift, width);
    Bitmap::RepeatInfo info;
    info.mStartX = band, info.mLengthX = bandWidth, info.mPeriodX = period, info.mPhaseX = phase;
    mBitmap.DrawRepeat(mCanvas->context, {0, 0}, {width, 1}, info, false);
    for (int x = 0; x < width; ++x) {
      const int tail = band + bandWidth + x - end;
      const std::uint32_t expected = x < band + bandWidth ? Color(x, 0)
                                     : x < end            ? Color(band + (x - band) % bandWidth, 0)
                                     : tail < 12          ? Color(tail, 0)
                                                          : 0;
      ASSERT_EQ(mCanvas->At(x, 0), expected) << "phase " << phase << " at " << x;
    }
  }
}

TEST_F(Pictures, SizesThatNeedNoRepetition) {
  for (const SIZE size : {SIZE{12, 9}, SIZE{5, 4}, SIZE{-1, -1}, SIZE{0, 0}, SIZE{-7, 3}, SIZE{3, -2},
                          SIZE{-1, 20}, SIZE{30, -1}, SIZE{30, 4}, SIZE{4, 20}, SIZE{0, 20}})
    Expect(size, {4, 2, 1, 0}, {3, 2, 1, 0});
}

// However long the other side is, there is nothing to repeat.
TEST_F(Pictures, EmptySizesTakeNoTime) {
  const Bitmap empty;
  for (const SIZE size : {SIZE{0, INT32_MAX}, SIZE{INT32_MAX, 0}}) {
    for (const LONG phase : {INT32_MIN, INT32_MAX}) {
      Bitmap::RepeatInfo info;
      info.mStartX = info.mStartY = 3, info.mLengthX = info.mLengthY = 1;
      info.mPhaseX = info.mPhaseY = phase, info.mPeriodX = info.mPeriodY = phase < 0 ? 1 : INT32_MAX;
      mBitmap.DrawRepeat(mCanvas->context, {1, 2}, size, info, true);
    }
    empty.DrawRepeat(mCanvas->context, {1, 2}, size, {}, true);
  }
  empty.DrawRepeat(mCanvas->context, {1, 2}, {1, 100'000'000}, {}, true);
  EXPECT_EQ(TakeAssertions().size(), 6u) << "that there is no bitmap";
  EXPECT_EQ(mCanvas->Colors(), Canvas(34, 28).Colors());
}

TEST_F(Pictures, BandsAndPeriodsThatMakeNoSense) {
  Bitmap::RepeatInfo last;
  mBitmap.DrawRepeat(mCanvas->context, {0, 0}, {30, 20}, last, false);
  const std::vector<std::uint32_t> expected = mCanvas->Colors();
  for (const LONG value : {-1, INT32_MIN, INT32_MAX}) {
    Bitmap::RepeatInfo info;
    info.mStartX = value, info.mLengthX = 3;
    info.mStartY = 2, info.mLengthY = value < 0 ? value : 0;
    mBitmap.DrawRepeat(mCanvas->context, {0, 0}, {30, 20}, info, false);
    EXPECT_EQ(mCanvas->Colors(), expected) << "the last column and row alone";
    info.mLengthX = value, info.mPeriodX = value, info.mPhaseX = value, info.mPeriodY = 0,
    info.mPhaseY = INT32_MIN;
    mBitmap.DrawRepeat(mCanvas->context, {0, 0}, {30, 20}, info, false);
  }
}

}  // namespace
}  // namespace test
