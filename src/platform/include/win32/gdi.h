// Drawing (libormgdi.so): device contexts, bitmaps, palettes, block transfers and text.
//
// The screen is a memory surface of the process, whose size, depth and dots per inch are settings of the
// machine (docs/platform-drawing.md). OrmSaveSurfaceA writes what a device context shows as a PNG file.
//
// Handles belong to the process. A function that is given a dead or foreign handle fails with
// ERROR_INVALID_HANDLE and changes nothing; an object that is still selected into a device context cannot be
// deleted (ERROR_BUSY). GetGuiResources counts the objects that were made and not yet deleted.
//
// Any thread may call any function; one device context is used by one thread at a time. Two device contexts
// may draw onto one surface at once.
//
// Colours are 0x00BBGGRR. Texts are in the ANSI code page; their lengths are in bytes.
#pragma once

#include "win32/geometry.h"
#include "win32/types.h"

using HGDIOBJ = void*;
using HDC = struct HDC__*;
using HBITMAP = struct HBITMAP__*;
using HPALETTE = struct HPALETTE__*;
using HFONT = struct HFONT__*;
using HBRUSH = struct HBRUSH__*;

// ---- Records -------------------------------------------------------------------------------------------

struct BITMAP {
  LONG bmType;
  LONG bmWidth;
  LONG bmHeight;
  LONG bmWidthBytes;  // bytes from one row to the next
  WORD bmPlanes;
  WORD bmBitsPixel;
  void* bmBits;  // the pixels of a section, else null
};

struct RGBQUAD {
  BYTE rgbBlue;
  BYTE rgbGreen;
  BYTE rgbRed;
  BYTE rgbReserved;
};

struct BITMAPINFOHEADER {
  DWORD biSize;
  LONG biWidth;
  LONG biHeight;  // negative: the first row is the top one
  WORD biPlanes;
  WORD biBitCount;
  DWORD biCompression;
  DWORD biSizeImage;  // bytes of pixels; may be 0 for BI_RGB
  LONG biXPelsPerMeter;
  LONG biYPelsPerMeter;
  DWORD biClrUsed;  // entries in the colour table; 0: as many as the depth allows
  DWORD biClrImportant;
};

struct BITMAPINFO {
  BITMAPINFOHEADER bmiHeader;
  RGBQUAD bmiColors[1];  // the colour table, or three channel masks for BI_BITFIELDS
};

struct DIBSECTION {
  BITMAP dsBm;
  BITMAPINFOHEADER dsBmih;
  DWORD dsBitfields[3];
  HANDLE dshSection;
  DWORD dsOffset;
};

struct PALETTEENTRY {
  BYTE peRed;
  BYTE peGreen;
  BYTE peBlue;
  BYTE peFlags;
};

struct LOGPALETTE {
  WORD palVersion;  // 0x300
  WORD palNumEntries;
  PALETTEENTRY palPalEntry[1];
};

inline constexpr int LF_FACESIZE = 32;

struct LOGFONTA {
  LONG lfHeight;  // > 0: height of the character cell; < 0: of the characters (the em); 0: the default
  LONG lfWidth;   // average character width, 0: as the face has it
  LONG lfEscapement;
  LONG lfOrientation;
  LONG lfWeight;
  BYTE lfItalic;
  BYTE lfUnderline;
  BYTE lfStrikeOut;
  BYTE lfCharSet;
  BYTE lfOutPrecision;
  BYTE lfClipPrecision;
  BYTE lfQuality;
  BYTE lfPitchAndFamily;
  char lfFaceName[LF_FACESIZE];
};

struct TEXTMETRICA {
  LONG tmHeight;  // tmAscent + tmDescent: the cell
  LONG tmAscent;
  LONG tmDescent;
  LONG tmInternalLeading;
  LONG tmExternalLeading;
  LONG tmAveCharWidth;
  LONG tmMaxCharWidth;
  LONG tmWeight;
  LONG tmOverhang;
  LONG tmDigitizedAspectX;
  LONG tmDigitizedAspectY;
  BYTE tmFirstChar;
  BYTE tmLastChar;
  BYTE tmDefaultChar;
  BYTE tmBreakChar;
  BYTE tmItalic;
  BYTE tmUnderlined;
  BYTE tmStruckOut;
  BYTE tmPitchAndFamily;
  BYTE tmCharSet;
};

struct DRAWTEXTPARAMS {
  UINT cbSize;
  int iTabLength;    // in average character widths
  int iLeftMargin;   // in average character widths
  int iRightMargin;  // in average character widths
  UINT uiLengthDrawn;
};

struct PAINTSTRUCT {
  HDC hdc;
  BOOL fErase;
  RECT rcPaint;
  BOOL fRestore;
  BOOL fIncUpdate;
  BYTE rgbReserved[32];
};

// ---- Constants -----------------------------------------------------------------------------------------

inline constexpr COLORREF CLR_INVALID = 0xFFFFFFFF;
inline constexpr DWORD GDI_ERROR = 0xFFFFFFFF;

constexpr COLORREF RGB(BYTE red, BYTE green, BYTE blue) {
  return red | static_cast<COLORREF>(green) << 8 | static_cast<COLORREF>(blue) << 16;
}
constexpr BYTE GetRValue(COLORREF color) {
  return static_cast<BYTE>(color);
}
constexpr BYTE GetGValue(COLORREF color) {
  return static_cast<BYTE>(color >> 8);
}
constexpr BYTE GetBValue(COLORREF color) {
  return static_cast<BYTE>(color >> 16);
}
// A colour by its index in the device context's palette.
constexpr COLORREF PALETTEINDEX(WORD index) {
  return 0x01000000u | index;
}

// Bitmap data: compression, use of the colour table.
inline constexpr DWORD BI_RGB = 0;
inline constexpr DWORD BI_RLE8 = 1;
inline constexpr DWORD BI_RLE4 = 2;
inline constexpr DWORD BI_BITFIELDS = 3;
inline constexpr UINT DIB_RGB_COLORS = 0;
inline constexpr UINT DIB_PAL_COLORS = 1;  // 16-bit indices into the device context's palette
inline constexpr DWORD CBM_INIT = 4;

// Object types of GetObjectType and GetCurrentObject.
inline constexpr UINT OBJ_BRUSH = 2;
inline constexpr UINT OBJ_DC = 3;
inline constexpr UINT OBJ_PAL = 5;
inline constexpr UINT OBJ_FONT = 6;
inline constexpr UINT OBJ_BITMAP = 7;
inline constexpr UINT OBJ_MEMDC = 10;

// Stock objects; they are never deleted.
inline constexpr int WHITE_BRUSH = 0;
inline constexpr int LTGRAY_BRUSH = 1;
inline constexpr int GRAY_BRUSH = 2;
inline constexpr int DKGRAY_BRUSH = 3;
inline constexpr int BLACK_BRUSH = 4;
inline constexpr int NULL_BRUSH = 5;
inline constexpr int SYSTEM_FONT = 13;
inline constexpr int DEFAULT_PALETTE = 15;
inline constexpr int DEFAULT_GUI_FONT = 17;

// GetDeviceCaps.
inline constexpr int TECHNOLOGY = 2;
inline constexpr int HORZSIZE = 4;
inline constexpr int VERTSIZE = 6;
inline constexpr int HORZRES = 8;
inline constexpr int VERTRES = 10;
inline constexpr int BITSPIXEL = 12;
inline constexpr int PLANES = 14;
inline constexpr int NUMCOLORS = 24;
inline constexpr int RASTERCAPS = 38;
inline constexpr int LOGPIXELSX = 88;
inline constexpr int LOGPIXELSY = 90;
inline constexpr int SIZEPALETTE = 104;
inline constexpr int NUMRESERVED = 106;
inline constexpr int COLORRES = 108;
inline constexpr int RC_BITBLT = 0x0001;
inline constexpr int RC_BITMAP64 = 0x0008;
inline constexpr int RC_DI_BITMAP = 0x0080;
inline constexpr int RC_PALETTE = 0x0100;
inline constexpr int RC_DIBTODEV = 0x0200;
inline constexpr int RC_STRETCHBLT = 0x0800;
inline constexpr int RC_STRETCHDIB = 0x2000;
inline constexpr int DT_RASDISPLAY = 1;

// Raster operations.
inline constexpr DWORD BLACKNESS = 0x00000042;
inline constexpr DWORD NOTSRCERASE = 0x001100A6;
inline constexpr DWORD NOTSRCCOPY = 0x00330008;
inline constexpr DWORD SRCERASE = 0x00440328;
inline constexpr DWORD DSTINVERT = 0x00550009;
inline constexpr DWORD PATINVERT = 0x005A0049;
inline constexpr DWORD SRCINVERT = 0x00660046;
inline constexpr DWORD SRCAND = 0x008800C6;
inline constexpr DWORD MERGEPAINT = 0x00BB0226;
inline constexpr DWORD MERGECOPY = 0x00C000CA;
inline constexpr DWORD SRCCOPY = 0x00CC0020;
inline constexpr DWORD SRCPAINT = 0x00EE0086;
inline constexpr DWORD PATCOPY = 0x00F00021;
inline constexpr DWORD PATPAINT = 0x00FB0A09;
inline constexpr DWORD WHITENESS = 0x00FF0062;

// SetStretchBltMode.
inline constexpr int BLACKONWHITE = 1;
inline constexpr int WHITEONBLACK = 2;
inline constexpr int COLORONCOLOR = 3;
inline constexpr int HALFTONE = 4;

// SetBkMode.
inline constexpr int TRANSPARENT = 1;
inline constexpr int OPAQUE = 2;

// SetTextAlign.
inline constexpr UINT TA_LEFT = 0;
inline constexpr UINT TA_TOP = 0;
inline constexpr UINT TA_RIGHT = 2;
inline constexpr UINT TA_CENTER = 6;
inline constexpr UINT TA_BOTTOM = 8;
inline constexpr UINT TA_BASELINE = 24;

// ExtTextOutA.
inline constexpr UINT ETO_OPAQUE = 2;
inline constexpr UINT ETO_CLIPPED = 4;

// DrawTextA.
inline constexpr UINT DT_TOP = 0;
inline constexpr UINT DT_LEFT = 0;
inline constexpr UINT DT_CENTER = 0x1;
inline constexpr UINT DT_RIGHT = 0x2;
inline constexpr UINT DT_VCENTER = 0x4;
inline constexpr UINT DT_BOTTOM = 0x8;
inline constexpr UINT DT_WORDBREAK = 0x10;
inline constexpr UINT DT_SINGLELINE = 0x20;
inline constexpr UINT DT_EXPANDTABS = 0x40;
inline constexpr UINT DT_TABSTOP = 0x80;  // bits 8 to 15 of the flags: characters from tab to tab
inline constexpr UINT DT_NOCLIP = 0x100;
inline constexpr UINT DT_EXTERNALLEADING = 0x200;
inline constexpr UINT DT_CALCRECT = 0x400;
inline constexpr UINT DT_NOPREFIX = 0x800;
inline constexpr UINT DT_EDITCONTROL = 0x2000;
inline constexpr UINT DT_PATH_ELLIPSIS = 0x4000;
inline constexpr UINT DT_END_ELLIPSIS = 0x8000;
inline constexpr UINT DT_MODIFYSTRING = 0x10000;
inline constexpr UINT DT_WORD_ELLIPSIS = 0x40000;
inline constexpr UINT DT_HIDEPREFIX = 0x100000;
inline constexpr UINT DT_PREFIXONLY = 0x200000;

// Fonts.
inline constexpr int FW_DONTCARE = 0;
inline constexpr int FW_NORMAL = 400;
inline constexpr int FW_BOLD = 700;
inline constexpr BYTE ANSI_CHARSET = 0;
inline constexpr BYTE DEFAULT_CHARSET = 1;
inline constexpr BYTE SYMBOL_CHARSET = 2;
inline constexpr BYTE SHIFTJIS_CHARSET = 128;
inline constexpr BYTE HANGUL_CHARSET = 129;
inline constexpr BYTE GB2312_CHARSET = 134;
inline constexpr BYTE CHINESEBIG5_CHARSET = 136;
inline constexpr BYTE GREEK_CHARSET = 161;
inline constexpr BYTE TURKISH_CHARSET = 162;
inline constexpr BYTE HEBREW_CHARSET = 177;
inline constexpr BYTE ARABIC_CHARSET = 178;
inline constexpr BYTE RUSSIAN_CHARSET = 204;
inline constexpr BYTE THAI_CHARSET = 222;
inline constexpr BYTE OUT_DEFAULT_PRECIS = 0;
inline constexpr BYTE OUT_TT_ONLY_PRECIS = 7;
inline constexpr BYTE CLIP_DEFAULT_PRECIS = 0;
inline constexpr BYTE DEFAULT_QUALITY = 0;
inline constexpr BYTE NONANTIALIASED_QUALITY = 3;
inline constexpr BYTE ANTIALIASED_QUALITY = 4;
inline constexpr BYTE DEFAULT_PITCH = 0;
inline constexpr BYTE FIXED_PITCH = 1;
inline constexpr BYTE VARIABLE_PITCH = 2;
inline constexpr BYTE FF_DONTCARE = 0;
inline constexpr BYTE FF_ROMAN = 0x10;
inline constexpr BYTE FF_SWISS = 0x20;
inline constexpr BYTE FF_MODERN = 0x30;

inline constexpr DWORD GR_GDIOBJECTS = 0;

extern "C" {

// ---- Device contexts -----------------------------------------------------------------------------------

// The device context of a window's client area, or of the whole screen for null. Give it back with ReleaseDC.
// Null when the window does not exist.
ORM_PLATFORM_API HDC WINAPI GetDC(HWND window) noexcept;
// 1 when the context was released, 0 when it did not come from GetDC.
ORM_PLATFORM_API int WINAPI ReleaseDC(HWND window, HDC context) noexcept;
// Begins painting a window: erases its update area (WM_ERASEBKGND) when that was asked for, validates it and
// gives a context that is clipped to it. Null when the window does not exist.
ORM_PLATFORM_API HDC WINAPI BeginPaint(HWND window, PAINTSTRUCT* paint) noexcept;
ORM_PLATFORM_API BOOL WINAPI EndPaint(HWND window, const PAINTSTRUCT* paint) noexcept;
// A memory context like the given one (null: like the screen); it starts with a monochrome bitmap of one
// pixel. Delete it with DeleteDC.
ORM_PLATFORM_API HDC WINAPI CreateCompatibleDC(HDC context) noexcept;
// Deselects everything and deletes a memory context. Fails for contexts that have to be released instead.
ORM_PLATFORM_API BOOL WINAPI DeleteDC(HDC context) noexcept;
// A property of the device behind the context; 0 for a property that is not known.
ORM_PLATFORM_API int WINAPI GetDeviceCaps(HDC context, int index) noexcept;

// Selects a bitmap (memory contexts only, one context at a time), font or brush; gives the object that was
// selected before, or null and leaves the selection. A palette is selected with SelectPalette.
ORM_PLATFORM_API HGDIOBJ WINAPI SelectObject(HDC context, HGDIOBJ object) noexcept;
ORM_PLATFORM_API HGDIOBJ WINAPI GetCurrentObject(HDC context, UINT type) noexcept;
ORM_PLATFORM_API HGDIOBJ WINAPI GetStockObject(int index) noexcept;
// Deletes a bitmap, font, brush or palette. Fails for a dead handle (ERROR_INVALID_HANDLE) and for an object
// that is selected (ERROR_BUSY); stock objects stay and the call succeeds.
ORM_PLATFORM_API BOOL WINAPI DeleteObject(HGDIOBJ object) noexcept;
// Copies the object's description (BITMAP or DIBSECTION, LOGFONTA, a WORD entry count for a palette, COLORREF
// for a brush) and returns its size; with a null buffer only the size. 0 when size bytes do not hold it.
ORM_PLATFORM_API int WINAPI GetObjectA(HGDIOBJ object, int size, void* buffer) noexcept;
// One of OBJ_..., 0 for a dead handle.
ORM_PLATFORM_API DWORD WINAPI GetObjectType(HGDIOBJ object) noexcept;

ORM_PLATFORM_API COLORREF WINAPI SetTextColor(HDC context, COLORREF color) noexcept;
ORM_PLATFORM_API COLORREF WINAPI GetTextColor(HDC context) noexcept;
ORM_PLATFORM_API COLORREF WINAPI SetBkColor(HDC context, COLORREF color) noexcept;
ORM_PLATFORM_API COLORREF WINAPI GetBkColor(HDC context) noexcept;
ORM_PLATFORM_API int WINAPI SetBkMode(HDC context, int mode) noexcept;
ORM_PLATFORM_API int WINAPI GetBkMode(HDC context) noexcept;
ORM_PLATFORM_API UINT WINAPI SetTextAlign(HDC context, UINT align) noexcept;
ORM_PLATFORM_API UINT WINAPI GetTextAlign(HDC context) noexcept;
ORM_PLATFORM_API int WINAPI SetStretchBltMode(HDC context, int mode) noexcept;
ORM_PLATFORM_API int WINAPI GetStretchBltMode(HDC context) noexcept;
// Narrows the clipping rectangle. NULLREGION is 1, SIMPLEREGION 2, failure 0.
ORM_PLATFORM_API int WINAPI IntersectClipRect(HDC context, int left, int top, int right, int bottom) noexcept;
ORM_PLATFORM_API int WINAPI GetClipBox(HDC context, RECT* box) noexcept;

// ---- Bitmaps -------------------------------------------------------------------------------------------

// A device-dependent bitmap, initialised from rows that are padded to 16 bits, top row first, or zero.
ORM_PLATFORM_API HBITMAP WINAPI CreateBitmap(int width, int height, UINT planes, UINT bitsPerPixel,
                                             const void* bits) noexcept;
// A bitmap like the one that the context draws on: the device's for a context of the screen or a window; for
// a memory context the selected bitmap's format and colour table, a section when that is one. An empty size
// gives a monochrome bitmap of one pixel.
ORM_PLATFORM_API HBITMAP WINAPI CreateCompatibleBitmap(HDC context, int width, int height) noexcept;
// A bitmap whose pixels the caller can reach through *bits; they are zero at first and live as long as the
// bitmap. A section object and offset are not supported and have to be null and 0.
ORM_PLATFORM_API HBITMAP WINAPI CreateDIBSection(HDC context, const BITMAPINFO* info, UINT usage, void** bits,
                                                 HANDLE section, DWORD offset) noexcept;
// A bitmap as CreateCompatibleBitmap makes it, initialised from device-independent bits when init is
// CBM_INIT.
ORM_PLATFORM_API HBITMAP WINAPI CreateDIBitmap(HDC context, const BITMAPINFOHEADER* header, DWORD init,
                                               const void* bits, const BITMAPINFO* info, UINT usage) noexcept;
// Copies rows of a bitmap out in the format of info (BI_RGB or BI_BITFIELDS); start counts from the bottom.
// With bits null it fills in biSizeImage and, when biBitCount is 0, the whole header. A table is written
// whole, so there has to be room for 2^biBitCount colours or, for DIB_PAL_COLORS, indices into the context's
// palette. Masks of 0 are replaced by those of a bitmap of this depth. No more rows are written than biHeight
// says. Returns the number of rows, 0 for a failure.
ORM_PLATFORM_API int WINAPI GetDIBits(HDC context, HBITMAP bitmap, UINT start, UINT lines, void* bits,
                                      BITMAPINFO* info, UINT usage) noexcept;
// Copies rows into a bitmap; bits holds the rows from start on. Returns the number of rows, 0 for a failure.
// info and bits have to be as large as the header says (biSizeImage bytes for run-length data).
ORM_PLATFORM_API int WINAPI SetDIBits(HDC context, HBITMAP bitmap, UINT start, UINT lines, const void* bits,
                                      const BITMAPINFO* info, UINT usage) noexcept;
// Draws a part of device-independent bits; the source point counts from the lower left for bottom-up bits.
// Returns the number of rows of the source, 0 or GDI_ERROR for a failure.
ORM_PLATFORM_API int WINAPI StretchDIBits(HDC context, int x, int y, int width, int height, int sourceX,
                                          int sourceY, int sourceWidth, int sourceHeight, const void* bits,
                                          const BITMAPINFO* info, UINT usage, DWORD operation) noexcept;
ORM_PLATFORM_API UINT WINAPI GetDIBColorTable(HDC context, UINT start, UINT count, RGBQUAD* colors) noexcept;
ORM_PLATFORM_API UINT WINAPI SetDIBColorTable(HDC context, UINT start, UINT count,
                                              const RGBQUAD* colors) noexcept;
// The colour of a pixel, CLR_INVALID outside the clipping area.
ORM_PLATFORM_API COLORREF WINAPI GetPixel(HDC context, int x, int y) noexcept;
// Sets a pixel and returns the colour it really got, or CLR_INVALID.
ORM_PLATFORM_API COLORREF WINAPI SetPixel(HDC context, int x, int y, COLORREF color) noexcept;

// ---- Palettes ------------------------------------------------------------------------------------------

ORM_PLATFORM_API HPALETTE WINAPI CreatePalette(const LOGPALETTE* palette) noexcept;
// Selects a palette and gives the previous one. A background palette never takes system entries from others.
ORM_PLATFORM_API HPALETTE WINAPI SelectPalette(HDC context, HPALETTE palette, BOOL background) noexcept;
// Maps the selected palette to the system palette; returns how many entries changed (0 on a device without a
// palette), GDI_ERROR for a failure.
ORM_PLATFORM_API UINT WINAPI RealizePalette(HDC context) noexcept;
ORM_PLATFORM_API UINT WINAPI GetPaletteEntries(HPALETTE palette, UINT start, UINT count,
                                               PALETTEENTRY* entries) noexcept;
ORM_PLATFORM_API UINT WINAPI GetSystemPaletteEntries(HDC context, UINT start, UINT count,
                                                     PALETTEENTRY* entries) noexcept;
ORM_PLATFORM_API UINT WINAPI GetNearestPaletteIndex(HPALETTE palette, COLORREF color) noexcept;

// ---- Block transfers -----------------------------------------------------------------------------------

// Combines source, destination and brush with any of the 256 raster operations. Between monochrome and colour
// bitmaps: a source pixel of the source's background colour is 1, others 0; a 0 gets the destination's text
// colour, a 1 its background colour. Pixels that the source does not have are left as they are.
ORM_PLATFORM_API BOOL WINAPI BitBlt(HDC destination, int x, int y, int width, int height, HDC source,
                                    int sourceX, int sourceY, DWORD operation) noexcept;
// The same with scaling by the destination's stretching mode; a negative size mirrors.
ORM_PLATFORM_API BOOL WINAPI StretchBlt(HDC destination, int x, int y, int width, int height, HDC source,
                                        int sourceX, int sourceY, int sourceWidth, int sourceHeight,
                                        DWORD operation) noexcept;
ORM_PLATFORM_API BOOL WINAPI PatBlt(HDC context, int x, int y, int width, int height,
                                    DWORD operation) noexcept;
ORM_PLATFORM_API HBRUSH WINAPI CreateSolidBrush(COLORREF color) noexcept;
// Fills a rectangle with a brush; 0 for a failure.
ORM_PLATFORM_API int WINAPI FillRect(HDC context, const RECT* rect, HBRUSH brush) noexcept;

// ---- Text ----------------------------------------------------------------------------------------------

// The installed face that comes nearest to the description; a bold or italic that the face lacks is made.
ORM_PLATFORM_API HFONT WINAPI CreateFontIndirectA(const LOGFONTA* description) noexcept;
ORM_PLATFORM_API BOOL WINAPI GetTextMetricsA(HDC context, TEXTMETRICA* metrics) noexcept;
// The name of the face that is really used. Returns the bytes copied, terminator included (with a null
// buffer: needed).
ORM_PLATFORM_API int WINAPI GetTextFaceA(HDC context, int size, char* name) noexcept;
ORM_PLATFORM_API BOOL WINAPI GetTextExtentPoint32A(HDC context, const char* text, int length,
                                                   SIZE* size) noexcept;
ORM_PLATFORM_API BOOL WINAPI TextOutA(HDC context, int x, int y, const char* text, int length) noexcept;
// advances, when not null, holds the distance to the next character for every byte of the text.
ORM_PLATFORM_API BOOL WINAPI ExtTextOutA(HDC context, int x, int y, UINT options, const RECT* rect,
                                         const char* text, UINT length, const int* advances) noexcept;
// Draws (or with DT_CALCRECT measures) lines of text in a rectangle. Returns the height of the text, or for
// DT_VCENTER and DT_BOTTOM its bottom relative to the rectangle's top; 0 for a failure. A length of -1 stands
// for a terminated text. DT_MODIFYSTRING is ignored: the text is never written.
ORM_PLATFORM_API int WINAPI DrawTextA(HDC context, const char* text, int length, RECT* rect,
                                      UINT format) noexcept;
// The same with margins and a tab width.
ORM_PLATFORM_API int WINAPI DrawTextExA(HDC context, char* text, int length, RECT* rect, UINT format,
                                        DRAWTEXTPARAMS* parameters) noexcept;

// ---- The process ---------------------------------------------------------------------------------------

// The number of drawing objects (contexts included, stock objects not) that are alive in this process; the
// process handle is not looked at.
ORM_PLATFORM_API DWORD WINAPI GetGuiResources(HANDLE process, DWORD kind) noexcept;

// ---- Extensions of this platform -----------------------------------------------------------------------

// Writes what the context's surface shows (a window context: its client area) as a PNG file. The path is in
// the ANSI code page. Fails with ERROR_INVALID_HANDLE or the error of the file operation.
ORM_PLATFORM_API BOOL WINAPI OrmSaveSurfaceA(HDC context, const char* path) noexcept;
// How often a handle was deleted that was already dead, since the process started.
ORM_PLATFORM_API DWORD WINAPI OrmGetDeadDeletes(void) noexcept;

}  // extern "C"
