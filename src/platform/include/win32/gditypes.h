// What drawing is told in: handles, records and constants of the functions in gdi.h.
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
