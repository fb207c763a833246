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

#include "win32/gditypes.h"

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
