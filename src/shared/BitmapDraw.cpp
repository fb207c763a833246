// Drawing a bitmap plainly and with a transparent colour.
#include <ormutil/Bitmap.h>

#include <algorithm>

#include "Areas.h"
#include "BitmapSection.h"
#include "GdiHandles.h"

namespace orm {

namespace {

constexpr const char* FILE_NAME = "src/shared/Bitmap";

// What is left of the bitmap from the source point on.
LONG Remaining(LONG length, LONG from) {
  return static_cast<LONG>(std::clamp<int64_t>(int64_t{length} - from, 0, INT32_MAX));
}

SIZE ResolveSize(const SIZE& rSize, const POINT& rSource, const BITMAP& rBitmap) {
  if (rSize.cx != 0 || rSize.cy != 0) return rSize;
  return {Remaining(rBitmap.bmWidth, rSource.x), Remaining(rBitmap.bmHeight, rSource.y)};
}

}  // namespace

bool IsPaletteDevice(HDC context) {
  return (GetDeviceCaps(context, RASTERCAPS) & RC_PALETTE) != 0;
}

BITMAP DescribeBitmap(HBITMAP bitmap, int line) {
  BITMAP description{};
  const bool described = GetObjectA(bitmap, sizeof description, &description) == sizeof description;
  ORM_ASSERT(described, "::GetObjectA(mBitmap, sizeof(BITMAP), &bm) == sizeof(BITMAP)", FILE_NAME, line);
  return description;
}

void Bitmap::Draw(HDC destination, const POINT& rDestination, const SIZE& rSize, const POINT& rSource) const {
  TraceWrite(areaBitmap, TRACE_DEBUG, false, FILE_NAME, 440, "-> Bitmap::Draw()");
  ORM_ASSERT(mBitmap != nullptr, "mBitmap", FILE_NAME, 442);
  const MemoryContext original(destination);
  ORM_ASSERT(original.Get() != nullptr, "origDC.CreateCompatibleDC(destDC) != 0", FILE_NAME, 446);
  SelectedPalette palette;
  if (mPalette && IsPaletteDevice(destination))
    ORM_ASSERT(palette.Realize(original.Get(), mPalette), "origDC.RealizePalette() != (0xFFFFFFFFL)",
               FILE_NAME, 454);
  const SelectedObject selected(original.Get(), mBitmap);
  const SIZE size = ResolveSize(rSize, rSource, DescribeBitmap(mBitmap, 459));
  if (!BitBlt(destination, rDestination.x, rDestination.y, size.cx, size.cy, original.Get(), rSource.x,
              rSource.y, SRCCOPY))
    TraceWrite(areaBitmap, TRACE_WARNING, false, FILE_NAME, 478,
               "failed to (normal) BitBlt(destDC=%08x), error %d", HandleNumber(destination), GetLastError());
  TraceWrite(areaBitmap, TRACE_DEBUG, false, FILE_NAME, 486, "<- Bitmap::Draw()");
}

// The picture is put together off-screen, so that the destination changes in one step.
void Bitmap::DrawTransparent(HDC destination, const POINT& rOriginDestination, TransparencyType transType,
                             COLORREF color, const SIZE& rSize, const POINT& rSource) const {
  TraceWrite(areaBitmap, TRACE_DEBUG, false, FILE_NAME, 499, "-> Bitmap::DrawTransparent()");
  ORM_ASSERT(mBitmap != nullptr, "mBitmap", FILE_NAME, 501);
  const MemoryContext original(destination);
  ORM_ASSERT(original.Get() != nullptr, "origDC.CreateCompatibleDC(destDC) != 0", FILE_NAME, 505);
  const SelectedObject selectedOriginal(original.Get(), mBitmap);
  const BITMAP bm = DescribeBitmap(mBitmap, 509);

  const OffScreen draw(destination, bm.bmWidth, bm.bmHeight);
  ORM_ASSERT(draw.GetContext() != nullptr, "drawDC.CreateCompatibleDC(destDC) != 0", FILE_NAME, 520);
  ORM_ASSERT(draw.HasBitmap(), "drawBitmap.CreateCompatibleBitmap(destDC, bm.bmWidth, bm.bmHeight) != 0",
             FILE_NAME, 521);
  const OffScreen object(destination, bm.bmWidth, bm.bmHeight, OffScreen::MONOCHROME);
  ORM_ASSERT(object.GetContext() != nullptr, "objectDC.CreateCompatibleDC(destDC) != 0", FILE_NAME, 529);
  ORM_ASSERT(object.HasBitmap(), "objectBitmap.CreateBitmap(bm.bmWidth, bm.bmHeight, 1, 1, 0) != 0",
             FILE_NAME, 531);
  const OffScreen back(destination, bm.bmWidth, bm.bmHeight, OffScreen::MONOCHROME);
  ORM_ASSERT(back.GetContext() != nullptr, "backDC.CreateCompatibleDC(destDC) != 0", FILE_NAME, 536);
  ORM_ASSERT(back.HasBitmap(), "backBitmap.CreateBitmap(bm.bmWidth, bm.bmHeight, 1, 1, 0) != 0", FILE_NAME,
             538);
  const OffScreen memory(destination, bm.bmWidth, bm.bmHeight);
  ORM_ASSERT(memory.GetContext() != nullptr, "memDC.CreateCompatibleDC(destDC) != 0", FILE_NAME, 543);
  ORM_ASSERT(memory.HasBitmap(), "memBitmap.CreateCompatibleBitmap(destDC, bm.bmWidth, bm.bmHeight) != 0",
             FILE_NAME, 545);

  ORM_ASSERT(transType == TRANS_FIRSTPIXEL || transType == TRANS_COLOR,
             "((transType == TRANS_FIRSTPIXEL) || (transType == TRANS_COLOR))", FILE_NAME, 550);
  const COLORREF transparent = transType == TRANS_FIRSTPIXEL ? GetPixel(original.Get(), 0, 0) : color;

  const auto combine = [&bm](HDC to, HDC from, const POINT& rFrom, DWORD operation, const char* text,
                             int line) {
    const bool done = BitBlt(to, 0, 0, bm.bmWidth, bm.bmHeight, from, rFrom.x, rFrom.y, operation) != 0;
    ORM_ASSERT(done, text, FILE_NAME, line);
  };
  constexpr POINT corner{0, 0};
  combine(draw.GetContext(), original.Get(), corner, SRCCOPY,
          "drawDC.BitBlt(0, 0, bm.bmWidth, bm.bmHeight, origDC, 0, 0, (DWORD)0x00CC0020)", 565);
  const COLORREF background = SetBkColor(draw.GetContext(), transparent);
  combine(object.GetContext(), draw.GetContext(), corner, SRCCOPY,
          "objectDC.BitBlt(0, 0, bm.bmWidth, bm.bmHeight, drawDC, 0, 0, (DWORD)0x00CC0020)", 574);
  SetBkColor(draw.GetContext(), background);
  combine(back.GetContext(), object.GetContext(), corner, NOTSRCCOPY,
          "backDC.BitBlt(0, 0, bm.bmWidth, bm.bmHeight, objectDC, 0, 0, (DWORD)0x00330008)", 581);
  combine(memory.GetContext(), destination, rOriginDestination, SRCCOPY,
          "memDC.BitBlt(0, 0, bm.bmWidth, bm.bmHeight, destDC, rOriginDestination.x, rOriginDestination.y, "
          "(DWORD)0x00CC0020)",
          584);
  combine(memory.GetContext(), object.GetContext(), corner, SRCAND,
          "memDC.BitBlt(0, 0, bm.bmWidth, bm.bmHeight, objectDC, 0, 0, (DWORD)0x008800C6)", 587);
  combine(draw.GetContext(), back.GetContext(), corner, SRCAND,
          "drawDC.BitBlt(0, 0, bm.bmWidth, bm.bmHeight, backDC, 0, 0, (DWORD)0x008800C6)", 590);
  combine(memory.GetContext(), draw.GetContext(), corner, SRCPAINT,
          "memDC.BitBlt(0, 0, bm.bmWidth, bm.bmHeight, drawDC, 0, 0, (DWORD)0x00EE0086)", 593);

  SelectedPalette drawPalette, memoryPalette, backPalette;
  if (mPalette && IsPaletteDevice(destination)) {
    ORM_ASSERT(drawPalette.Realize(draw.GetContext(), mPalette), "drawDC.RealizePalette() != (0xFFFFFFFFL)",
               FILE_NAME, 600);
    ORM_ASSERT(memoryPalette.Realize(memory.GetContext(), mPalette),
               "memDC.RealizePalette() != (0xFFFFFFFFL)", FILE_NAME, 603);
    ORM_ASSERT(backPalette.Realize(back.GetContext(), mPalette), "backDC.RealizePalette() != (0xFFFFFFFFL)",
               FILE_NAME, 606);
  }
  const SIZE size = ResolveSize(rSize, rSource, bm);
  if (!BitBlt(destination, rOriginDestination.x, rOriginDestination.y, size.cx, size.cy, memory.GetContext(),
              rSource.x, rSource.y, SRCCOPY))
    TraceWrite(areaBitmap, TRACE_WARNING, false, FILE_NAME, 626,
               "failed to (transparent)BitBlt(destDC=%08x, memDC=%08x), error %d", HandleNumber(destination),
               HandleNumber(memory.GetContext()), GetLastError());
  TraceWrite(areaBitmap, TRACE_DEBUG, false, FILE_NAME, 652, "<- Bitmap::DrawTransparent()");
}

}  // namespace orm
