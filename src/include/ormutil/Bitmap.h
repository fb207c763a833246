// Bitmaps from a module's resources: loaded, scaled to the screen's resolution, and drawn plainly, with a
// transparent colour, or with repeated bands; and two message handlers for windows that show one.
//
//   Bitmap frame;
//   if (!frame.Load(IDB_FRAME, instance, StretchInfo::GetDefault(), false)) ...
//   Bitmap::RepeatInfo bands;
//   bands.mStartX = bands.mStartY = 8;
//   bands.mLengthX = bands.mLengthY = 16;
//   frame.DrawRepeat(context, {0, 0}, {640, 480}, bands, true);
//
// A Bitmap is used by one thread at a time, for drawing too: its handle is selected into a context while it
// is drawn, and the system selects a bitmap into one context only. Nothing throws but std::bad_alloc:
// failures of the system are assertions, a failed final copy is a trace line.
#pragma once

#include <ormutil/Export.h>
#include <ormutil/Trace.h>
#include <win32.h>

namespace orm {

struct BitmapBlock;

// The factors by which a bitmap is scaled when it is loaded: a width by mMulX / mDivX, a height by
// mMulY / mDivY.
struct ORMUTIL_API StretchInfo {
  LONG mMulX;
  LONG mDivX;
  LONG mMulY;
  LONG mDivY;

  // The screen's dots per inch against 96, for which pictures are drawn. Any thread.
  static const StretchInfo& GetDefault();
  static const StretchInfo& GetNotChanging();
};

class ORMUTIL_API Bitmap {
 public:
  enum TransparencyType : int {
    TRANS_FIRSTPIXEL,  // the colour of the pixel at 0,0, the upper left
    TRANS_COLOR,       // the colour that the caller passes
  };

  // A band of columns and a band of rows that repeat to fill a larger area; what lies before and after them
  // keeps its pixels.
  struct RepeatInfo {
    LONG mStartX = 0;   // the band's first column
    LONG mLengthX = 0;  // its width; 0: the last column alone
    LONG mPeriodX = 1;  // the position one band width past the repeated area is mPhaseX modulo mPeriodX; the
    LONG mPhaseX = 0;   // part after it loses as many pixels as that takes
    LONG mStartY = 0;   // and the same for rows
    LONG mLengthY = 0;
    LONG mPeriodY = 1;
    LONG mPhaseY = 0;
  };

  Bitmap() = default;
  ~Bitmap();
  Bitmap(const Bitmap&) = delete;
  Bitmap& operator=(const Bitmap&) = delete;

  // Loads a bitmap resource and scales it, by the system's stretching or by the own resampler, which weighs
  // by area. What was loaded before is gone in any case. False when there is no such resource, or it is too
  // short for its header and colour table.
  bool Load(unsigned id, HINSTANCE instance, const StretchInfo& rScale, bool useSystemStretch);
  // The same from `size` bytes in the form of a resource: an information header, the whole colour table
  // (2^bits entries up to 8 bits per pixel; three masks for bit fields), the pixels.
  bool LoadData(const void* pData, size_t size, const StretchInfo& rScale, bool useSystemStretch);

  // Copies a part, from the source point on, to the destination; a size of 0 by 0 means up to the right and
  // bottom edges.
  void Draw(HDC destination, const POINT& rDestination, const SIZE& rSize, const POINT& rSource) const;
  // The same, the destination showing through every pixel of one colour, as the destination has colours:
  // those that it cannot tell from the transparent one are that colour. Pixel values are combined, so a
  // colour table of the destination has black as its first and white as its last colour, as the system's do.
  void DrawTransparent(HDC destination, const POINT& rDestination, TransparencyType type, COLORREF color,
                       const SIZE& rSize, const POINT& rSource) const;
  // Fills a size by repeating the bands; a negative width or height is the bitmap's own. A period below 1
  // counts as 1, a band outside the bitmap as its last column or row.
  void DrawRepeat(HDC destination, const POINT& rDestination, const SIZE& rSize, const RepeatInfo& rRepeat,
                  bool usePalette) const;

  // The handles stay this object's; null when there is none.
  HBITMAP GetHandle() const { return mBitmap; }
  HPALETTE GetPalette() const { return mPalette; }
  // The size in the resource, before scaling.
  LONG GetWidth() const { return mWidth; }
  LONG GetHeight() const { return mHeight; }

 private:
  void Clear();
  bool LoadBlock(const void* pData, size_t size, const StretchInfo& rScale, bool useSystemStretch);
  void Scale(HDC screen, const BitmapBlock& rBlock, const StretchInfo& rScale, bool useSystemStretch);
  void SystemStretch(HDC screen, const BitmapBlock& rBlock, int width, int height);
  bool StretchBitmap(unsigned newWidth, unsigned newHeight);

  HPALETTE mPalette = nullptr;  // of a resource with 8 bits per pixel or fewer
  HBITMAP mBitmap = nullptr;    // a section of 24 bits, bottom row first
  LONG mWidth = 0;
  LONG mHeight = 0;
};

// Realises a palette when the window gains the focus or another window has changed the system palette.
class ORMUTIL_API PaletteMessageMap {
 public:
  // Returns 1 when the message was handled; `rResult` is its result then.
  virtual int ProcessWindowMessage(HWND window, UINT message, WPARAM first, LPARAM second, LONG& rResult,
                                   DWORD messageMapId);
  // The palette to realise, or null.
  virtual HPALETTE GetPalette() = 0;

 protected:
  PaletteMessageMap() = default;
  ~PaletteMessageMap() = default;
};

// Paints a bitmap as the window's background as well.
class ORMUTIL_API BitmapBackground : public PaletteMessageMap {
 public:
  int ProcessWindowMessage(HWND window, UINT message, WPARAM first, LPARAM second, LONG& rResult,
                           DWORD messageMapId) override;
  // The bitmap to paint, or null.
  virtual const Bitmap* GetBitmap() = 0;
  // The arguments of Bitmap::Draw.
  virtual void GetPlacement(POINT& rDestination, SIZE& rSize, POINT& rSource) = 0;

 protected:
  BitmapBackground() = default;
  ~BitmapBackground() = default;
};

}  // namespace orm
