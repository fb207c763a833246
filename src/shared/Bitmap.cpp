// Bitmaps: loading from resources, the palette, and the system's stretching. The own resampler is in
// BitmapStretch.cpp, drawing in BitmapDraw.cpp and BitmapRepeat.cpp.
#include <ormutil/Bitmap.h>

#include <cstring>
#include <mutex>

#include "Areas.h"
#include "BitmapBlock.h"
#include "BitmapSection.h"
#include "GdiHandles.h"
#include "ModuleFrame.h"

namespace orm {

namespace {

constexpr const char* FILE_NAME = "src/shared/Bitmap";

constexpr LONG DESIGN_DOTS_PER_INCH = 96;
constexpr WORD PALETTE_VERSION = 0x300;

constinit StretchInfo gsDefaultStretch{0, 0, 0, 0};  // a factor of 0: not known yet
constinit std::mutex gsDefaultStretchLock;
constinit const StretchInfo gsNotChanging{1, 1, 1, 1};

void FillDefaultStretch() {
  const std::lock_guard lock(gsDefaultStretchLock);
  if (gsDefaultStretch.mMulX != 0) return;
  const ScreenContext screen;
  gsDefaultStretch = {screen.GetCaps(LOGPIXELSX), DESIGN_DOTS_PER_INCH, screen.GetCaps(LOGPIXELSY),
                      DESIGN_DOTS_PER_INCH};
}

HPALETTE MakePalette(const std::vector<RGBQUAD>& rColors) {
  std::vector<BYTE> block(sizeof(LOGPALETTE) + rColors.size() * sizeof(PALETTEENTRY));
  auto* const palette = reinterpret_cast<LOGPALETTE*>(block.data());
  palette->palVersion = PALETTE_VERSION;
  palette->palNumEntries = static_cast<WORD>(rColors.size());
  PALETTEENTRY* entry = palette->palPalEntry;
  for (const RGBQUAD& color : rColors) *entry++ = {color.rgbRed, color.rgbGreen, color.rgbBlue, 0};
  return CreatePalette(palette);
}

int ScaleLength(int length, LONG mul, LONG div) {
  return mul == div ? length : MulDiv(length, mul, div);
}

}  // namespace

void LockDefaultStretch() {
  gsDefaultStretchLock.lock();
}
void UnlockDefaultStretch() {
  gsDefaultStretchLock.unlock();
}

const StretchInfo& StretchInfo::GetDefault() {
  FillDefaultStretch();
  ORM_ASSERT(gsDefaultStretch.mMulX > 0 && gsDefaultStretch.mMulY > 0 && gsDefaultStretch.mDivX > 0 &&
                 gsDefaultStretch.mDivY > 0,
             "gsDefaultStretch.mMulX > 0 && gsDefaultStretch.mMulY > 0 && gsDefaultStretch.mDivX > 0 && "
             "gsDefaultStretch.mDivY > 0",
             FILE_NAME, 36);
  return gsDefaultStretch;
}

const StretchInfo& StretchInfo::GetNotChanging() {
  return gsNotChanging;
}

HBITMAP MakeSection(HDC screen, LONG width, LONG height) {
  BITMAPINFO info{};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  info.bmiHeader.biWidth = width;
  info.bmiHeader.biHeight = height;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 24;
  info.bmiHeader.biCompression = BI_RGB;
  void* bits = nullptr;
  return CreateDIBSection(screen, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
}

Bitmap::~Bitmap() {
  if (mPalette) DeleteObject(mPalette);
  if (mBitmap) DeleteObject(mBitmap);
}

void Bitmap::Clear() {
  if (mPalette) {
    TraceWrite(areaBitmap, TRACE_TRACE, false, FILE_NAME, 302, "    Palette already loaded , delete it");
    DeleteObject(std::exchange(mPalette, nullptr));
  }
  if (mBitmap) {
    TraceWrite(areaBitmap, TRACE_TRACE, false, FILE_NAME, 308, "    Bitmap already loaded , delete it");
    DeleteObject(std::exchange(mBitmap, nullptr));
  }
}

bool Bitmap::Load(unsigned id, HINSTANCE instance, const StretchInfo& rScale, bool useSystemStretch) {
  TraceWrite(areaBitmap, TRACE_DEBUG, false, FILE_NAME, 298, "-> Bitmap::Load()");
  Clear();
  const HRSRC resource = FindResourceA(instance, MAKEINTRESOURCEA(static_cast<WORD>(id)), RT_BITMAP);
  if (!resource) return false;
  const void* const data = LockResource(LoadResource(instance, resource));
  return LoadBlock(data, data ? SizeofResource(instance, resource) : 0, rScale, useSystemStretch);
}

bool Bitmap::LoadData(const void* pData, size_t size, const StretchInfo& rScale, bool useSystemStretch) {
  TraceWrite(areaBitmap, TRACE_DEBUG, false, FILE_NAME, 298, "-> Bitmap::Load()");
  Clear();
  return LoadBlock(pData, size, rScale, useSystemStretch);
}

bool Bitmap::LoadBlock(const void* pData, size_t size, const StretchInfo& rScale, bool useSystemStretch) {
  ORM_ASSERT(pData != nullptr, "pBI != 0", FILE_NAME, 321);
  BitmapBlock block;
  if (!block.Read(pData, size)) return false;
  if (block.header.biBitCount <= 8) mPalette = MakePalette(block.colors);

  const ScreenContext screen;
  ORM_ASSERT(screen.Get() != nullptr, "dc != 0", FILE_NAME, 349);
  SelectedPalette palette;
  if (mPalette)
    ORM_ASSERT(palette.Realize(screen.Get(), mPalette), "dc.RealizePalette() != (0xFFFFFFFFL)", FILE_NAME,
               356);

  // The height of a picture whose first row is the top one is negative; the section's is not.
  mWidth = block.header.biWidth;
  mHeight = block.GetAbsoluteHeight();
  if (block.complete) mBitmap = MakeSection(screen.Get(), mWidth, mHeight);
  ORM_ASSERT(mBitmap != nullptr, "mBitmap", FILE_NAME, 378);
  const bool converted = mBitmap && SetDIBits(screen.Get(), mBitmap, 0, static_cast<UINT>(mHeight),
                                              block.bits.data(), block.GetInfo(), DIB_RGB_COLORS) != 0;
  ORM_ASSERT(converted, "SetDIBits(dc, mBitmap, 0, (WORD)pBI->bmiHeader.biHeight, pBits, pBI, 0)", FILE_NAME,
             382);

  if (rScale.mMulX != rScale.mDivX || rScale.mMulY != rScale.mDivY)
    Scale(screen.Get(), block, rScale, useSystemStretch);
  TraceWrite(areaBitmap, TRACE_TRACE, false, FILE_NAME, 430, "    bitmap loaded %08x", HandleNumber(mBitmap));
  TraceWrite(areaBitmap, TRACE_DEBUG, false, FILE_NAME, 431, "<- Bitmap::Load()");
  return true;
}

void Bitmap::Scale(HDC screen, const BitmapBlock& rBlock, const StretchInfo& rScale, bool useSystemStretch) {
  const int width = ScaleLength(mWidth, rScale.mMulX, rScale.mDivX);
  const int height = ScaleLength(mHeight, rScale.mMulY, rScale.mDivY);
  if (!useSystemStretch) {
    if (StretchBitmap(static_cast<unsigned>(width), static_cast<unsigned>(height))) return;
    if (mBitmap) DeleteObject(std::exchange(mBitmap, nullptr));
  }
  SystemStretch(screen, rBlock, width, height);
}

void Bitmap::SystemStretch(HDC screen, const BitmapBlock& rBlock, int width, int height) {
  TraceWrite(areaBitmap, TRACE_TRACE, false, FILE_NAME, 406, "    Doing the system stretch");
  const MemoryContext target(screen);
  ORM_ASSERT(target.Get() != nullptr, "targetDC.CreateCompatibleDC(dc)", FILE_NAME, 408);
  if (mBitmap) {
    const bool deleted = DeleteObject(std::exchange(mBitmap, nullptr)) != 0;
    ORM_ASSERT(deleted, "::DeleteObject(mBitmap)", FILE_NAME, 411);
  }
  mBitmap = MakeSection(screen, width, height);
  ORM_ASSERT(mBitmap != nullptr, "mBitmap", FILE_NAME, 418);
  if (!mBitmap || !rBlock.complete) return;
  const SelectedObject selected(target.Get(), mBitmap);
  StretchDIBits(target.Get(), 0, 0, width, height, 0, 0, mWidth, mHeight, rBlock.bits.data(),
                rBlock.GetInfo(), DIB_RGB_COLORS, SRCCOPY);
}

}  // namespace orm
