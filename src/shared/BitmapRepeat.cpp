// Drawing a bitmap over a larger area by repeating a band of columns and a band of rows.
#include <ormutil/Bitmap.h>

#include <algorithm>
#include <optional>

#include "Areas.h"
#include "BitmapSection.h"
#include "GdiHandles.h"

namespace orm {

namespace {

constexpr const char* FILE_NAME = "src/shared/Bitmap";

constexpr int64_t FEWEST_PIXELS = 256;  // that are worth a copy of their own

// How one direction is put together: the head up to the band's end, the band as often as it takes, the tail.
struct RepeatAxis {
  LONG bandStart;
  LONG bandLength;
  LONG headEnd;  // where the band ends in the bitmap, and where the repetition begins in the target
  LONG end;      // where the repetition ends in the target
  LONG tailLength;

  RepeatAxis(LONG start, LONG length, LONG period, LONG phase, LONG size, LONG target) {
    const bool hasBand = start >= 0 && start < size && length > 0;
    bandStart = hasBand ? start : size - 1;
    bandLength = hasBand ? std::min(size - start, length) : 1;
    headEnd = bandStart + bandLength;
    int64_t tail = hasBand ? size - headEnd : 0;
    int64_t last = target - tail;
    if (period < 1) period = 1;
    const int64_t remainder = (last + bandLength) % period;
    int64_t shift = phase - remainder;
    if (shift < 0) shift += period;
    last += shift;
    tail -= shift;
    end = static_cast<LONG>(std::clamp<int64_t>(last, 0, target));
    tailLength = static_cast<LONG>(std::clamp<int64_t>(tail, 0, size));
  }

  // Calls `copy(from, to, length)` for every stretch of pixels, in order.
  template <class Copy>
  void ForEach(Copy copy) const {
    copy(0, 0, headEnd);
    LONG at = headEnd;
    while (at < end) {
      const LONG length = std::min(bandLength, end - at);
      copy(bandStart, at, length);
      at += length;
    }
    if (tailLength > 0) copy(headEnd, at, tailLength);
  }

  // The same with fewer and longer copies: what is in the target already, a whole number of bands, is
  // `repeat`ed there, which doubles it.
  template <class Copy, class Repeat>
  void ForEachDoubled(Copy copy, Repeat repeat) const {
    copy(0, 0, headEnd);
    LONG at = headEnd;
    while (at < end) {
      const LONG length = std::min(at - bandStart, end - at);
      repeat(bandStart, at, length);
      at += length;
    }
    if (tailLength > 0) copy(headEnd, at, tailLength);
  }
};

// A stage of the picture, which grows from one to the next: first in width, then in height.
struct Stage {
  HDC context;
  LONG width;
  LONG height;
};

// Fills an off-screen picture of the stage's height with its columns.
void RepeatColumns(const Stage& rStage, const RepeatAxis& rAxis, const OffScreen& rPicture) {
  // Nothing to copy is not worth a repetition, of which there may be millions.
  if (!rPicture.HasBitmap() || rStage.height <= 0) return;
  const auto copyFrom = [&](HDC source) {
    return [&rPicture, &rStage, source](LONG from, LONG to, LONG length) {
      BitBlt(rPicture.GetContext(), to, 0, length, rStage.height, source, from, 0, SRCCOPY);
    };
  };
  rAxis.ForEachDoubled(copyFrom(rStage.context), copyFrom(rPicture.GetContext()));
}

// Fills an off-screen picture of the stage's width with its rows.
void RepeatRows(const Stage& rStage, const RepeatAxis& rAxis, const OffScreen& rPicture) {
  if (!rPicture.HasBitmap() || rStage.width <= 0 || rStage.height <= 0) return;
  const auto copyFrom = [&](HDC source) {
    return [&rPicture, &rStage, source](LONG from, LONG to, LONG length) {
      BitBlt(rPicture.GetContext(), 0, to, rStage.width, length, source, 0, from, SRCCOPY);
    };
  };
  // From the narrow picture every time, which stays in the cache, unless the band is so small that the calls
  // would take longer than the copying.
  if (int64_t{rAxis.bandLength} * rStage.width >= FEWEST_PIXELS)
    rAxis.ForEach(copyFrom(rStage.context));
  else
    rAxis.ForEachDoubled(copyFrom(rStage.context), copyFrom(rPicture.GetContext()));
}

// The palette of the final copy, for as long as that takes.
void RealizeInto(SelectedPalette& rSelected, HDC destination, HPALETTE palette, int line) {
  ORM_ASSERT(rSelected.Realize(destination, palette), "::RealizePalette(destDC) != (0xFFFFFFFFL)", FILE_NAME,
             line);
}

}  // namespace

void Bitmap::DrawRepeat(HDC destination, const POINT& rDestination, const SIZE& rSize,
                        const RepeatInfo& rRepeat, bool usePalette) const {
  TraceWrite(areaBitmap, TRACE_DEBUG, false, FILE_NAME, 661, "-> Bitmap::DrawRepeat()");
  const bool realize = usePalette && mPalette && IsPaletteDevice(destination);
  ORM_ASSERT(mBitmap != nullptr, "mBitmap", FILE_NAME, 667);
  const MemoryContext bitmapContext(destination);
  ORM_ASSERT(bitmapContext.Get() != nullptr, "bmpDC.CreateCompatibleDC(destDC) != 0", FILE_NAME, 668);
  const SelectedObject selected(bitmapContext.Get(), mBitmap);
  const BITMAP bm = DescribeBitmap(mBitmap, 670);
  const SIZE size{rSize.cx < 0 ? bm.bmWidth : rSize.cx, rSize.cy < 0 ? bm.bmHeight : rSize.cy};

  Stage stage{bitmapContext.Get(), std::min(bm.bmWidth, size.cx), std::min(bm.bmHeight, size.cy)};
  const bool isLarger = size.cx > bm.bmWidth || size.cy > bm.bmHeight;
  std::optional<OffScreen> across;
  if (size.cx > bm.bmWidth) {
    across.emplace(destination, size.cx, stage.height);
    ORM_ASSERT(across->GetContext() != nullptr, "drawDCX.CreateCompatibleDC(destDC) != 0", FILE_NAME, 695);
    ORM_ASSERT(across->HasBitmap(), "drawBitmapX.CreateCompatibleBitmap(destDC, size.cx, src.cy) != 0",
               FILE_NAME, 696);
    RepeatColumns(stage,
                  {rRepeat.mStartX, rRepeat.mLengthX, rRepeat.mPeriodX, rRepeat.mPhaseX, bm.bmWidth, size.cx},
                  *across);
    stage = {across->GetContext(), size.cx, stage.height};
  }
  std::optional<OffScreen> down;
  if (size.cy > bm.bmHeight) {
    down.emplace(destination, stage.width, size.cy);
    ORM_ASSERT(down->GetContext() != nullptr, "drawDCY.CreateCompatibleDC(destDC) != 0", FILE_NAME, 734);
    ORM_ASSERT(down->HasBitmap(), "drawBitmapY.CreateCompatibleBitmap(destDC, src.cx, size.cy) != 0",
               FILE_NAME, 735);
    RepeatRows(stage,
               {rRepeat.mStartY, rRepeat.mLengthY, rRepeat.mPeriodY, rRepeat.mPhaseY, bm.bmHeight, size.cy},
               *down);
    stage = {down->GetContext(), stage.width, size.cy};
  }

  SelectedPalette palette;
  if (realize) RealizeInto(palette, destination, mPalette, isLarger ? 776 : 679);
  if (!BitBlt(destination, rDestination.x, rDestination.y, size.cx, size.cy, stage.context, 0, 0, SRCCOPY)) {
    if (isLarger)
      TraceWrite(areaBitmap, TRACE_WARNING, false, FILE_NAME, 781,
                 "failed to (transparent2) BitBlt(destDC=%08x, drawDC=%08x), error %d",
                 HandleNumber(destination), HandleNumber(stage.context), GetLastError());
    else
      TraceWrite(areaBitmap, TRACE_WARNING, false, FILE_NAME, 684,
                 "failed to (repeat) BitBlt(destDC=%08x, drawDC=%08x), error %d", HandleNumber(destination),
                 HandleNumber(stage.context), GetLastError());
  }
  TraceWrite(areaBitmap, TRACE_DEBUG, false, FILE_NAME, isLarger ? 809 : 690, "<- Bitmap::DrawRepeat()");
}

}  // namespace orm
