// The message handlers of windows that show a bitmap.
#include <ormutil/Bitmap.h>

#include "GdiHandles.h"

namespace orm {

namespace {

constexpr const char* FILE_NAME = "src/shared/Bitmap";

}  // namespace

int PaletteMessageMap::ProcessWindowMessage(HWND window, UINT message, WPARAM first, LPARAM, LONG& rResult,
                                            DWORD) {
  if (message != WM_QUERYNEWPALETTE && message != WM_PALETTECHANGED) return 0;
  // The change that this window has made itself: answering it would never end.
  if (message == WM_PALETTECHANGED && reinterpret_cast<HWND>(first) == window) {
    rResult = 0;
    return 0;
  }
  const HPALETTE palette = GetPalette();
  if (!palette) return 0;
  const HDC context = GetDC(window);
  ORM_ASSERT(context != nullptr, "dc != 0", FILE_NAME, 822);
  {
    SelectedPalette selected;
    ORM_ASSERT(selected.Realize(context, palette), "dc.RealizePalette() != (0xFFFFFFFFL)", FILE_NAME, 826);
    InvalidateRect(window, nullptr, TRUE);
  }
  if (context) ReleaseDC(window, context);
  rResult = 1;
  return 1;
}

int BitmapBackground::ProcessWindowMessage(HWND window, UINT message, WPARAM first, LPARAM second,
                                           LONG& rResult, DWORD messageMapId) {
  if (PaletteMessageMap::ProcessWindowMessage(window, message, first, second, rResult, messageMapId))
    return 1;
  if (message != WM_ERASEBKGND) return 0;
  POINT destination{0, 0};
  SIZE size{0, 0};
  POINT source{0, 0};
  GetPlacement(destination, size, source);
  const Bitmap* const bitmap = GetBitmap();
  if (!bitmap) return 0;
  bitmap->Draw(reinterpret_cast<HDC>(first), destination, size, source);
  rResult = 1;
  return 1;
}

}  // namespace orm
