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

// An off-screen picture: a context with a bitmap of its own.
class OffScreen {
 public:
  OffScreen(HDC like, LONG width, LONG height)
      : mContext(like),
        mBitmap(CreateCompatibleBitmap(like, width, height)),
        mSelected(mContext.Get(), mBitmap.Get()) {}

  HDC GetContext() const { return mContext.Get(); }
  bool HasBitmap() const { return mBitmap.Get() != nullptr; }

 private:
  MemoryContext mContext;
  OwnedBitmap mBitmap;
  SelectedObject mSelected;
};

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

  // The picture grows from source to source: first in width, then in height.
  HDC source = bitmapContext.Get();
  LONG sourceWidth = std::min(bm.bmWidth, size.cx);
  const LONG sourceHeight = std::min(bm.bmHeight, size.cy);
  const bool isLarger = size.cx > bm.bmWidth || size.cy > bm.bmHeight;
  std::optional<OffScreen> across;
  if (size.cx > bm.bmWidth) {
    across.emplace(destination, size.cx, sourceHeight);
    ORM_ASSERT(across->GetContext() != nullptr, "drawDCX.CreateCompatibleDC(destDC) != 0", FILE_NAME, 695);
    ORM_ASSERT(across->HasBitmap(), "drawBitmapX.CreateCompatibleBitmap(destDC, size.cx, src.cy) != 0",
               FILE_NAME, 696);
    const auto copyFrom = [&across, sourceHeight](HDC context) {
      return [&across, sourceHeight, context](LONG from, LONG to, LONG length) {
        BitBlt(across->GetContext(), to, 0, length, sourceHeight, context, from, 0, SRCCOPY);
      };
    };
    if (across->HasBitmap() && sourceHeight > 0)
      RepeatAxis(rRepeat.mStartX, rRepeat.mLengthX, rRepeat.mPeriodX, rRepeat.mPhaseX, bm.bmWidth, size.cx)
          .ForEachDoubled(copyFrom(source), copyFrom(across->GetContext()));
    source = across->GetContext();
    sourceWidth = size.cx;
  }
  std::optional<OffScreen> down;
  if (size.cy > bm.bmHeight) {
    down.emplace(destination, sourceWidth, size.cy);
    ORM_ASSERT(down->GetContext() != nullptr, "drawDCY.CreateCompatibleDC(destDC) != 0", FILE_NAME, 734);
    ORM_ASSERT(down->HasBitmap(), "drawBitmapY.CreateCompatibleBitmap(destDC, src.cx, size.cy) != 0",
               FILE_NAME, 735);
    // From the narrow picture every time, which stays in the cache. Rows without pixels are not worth a
    // repetition, of which there may be millions.
    if (down->HasBitmap() && sourceWidth > 0 && bm.bmHeight > 0)
      RepeatAxis(rRepeat.mStartY, rRepeat.mLengthY, rRepeat.mPeriodY, rRepeat.mPhaseY, bm.bmHeight, size.cy)
          .ForEach([&](LONG from, LONG to, LONG length) {
            BitBlt(down->GetContext(), 0, to, sourceWidth, length, source, 0, from, SRCCOPY);
          });
    source = down->GetContext();
  }

  SelectedPalette palette;
  if (realize) RealizeInto(palette, destination, mPalette, isLarger ? 776 : 679);
  if (!BitBlt(destination, rDestination.x, rDestination.y, size.cx, size.cy, source, 0, 0, SRCCOPY)) {
    if (isLarger)
      TraceWrite(areaBitmap, TRACE_WARNING, false, FILE_NAME, 781,
                 "failed to (transparent2) BitBlt(destDC=%08x, drawDC=%08x), error %d",
                 HandleNumber(destination), HandleNumber(source), GetLastError());
    else
      TraceWrite(areaBitmap, TRACE_WARNING, false, FILE_NAME, 684,
                 "failed to (repeat) BitBlt(destDC=%08x, drawDC=%08x), error %d", HandleNumber(destination),
                 HandleNumber(source), GetLastError());
  }
  TraceWrite(areaBitmap, TRACE_DEBUG, false, FILE_NAME, isLarger ? 809 : 690, "<- Bitmap::DrawRepeat()");
}

}  // namespace orm
