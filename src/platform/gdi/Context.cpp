// Device contexts: making, releasing, attributes, selection.
#include "gdi/Context.h"

#include <algorithm>

#include "gdi/Screen.h"

namespace orm::platform::gdi {

RECT Intersect(const RECT& a, const RECT& b) {
  return {std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
          std::min(a.bottom, b.bottom)};
}

Context::Context(Origin contextOrigin)
    : Object(objectKind), origin(contextOrigin), mClip{0, 0, INT32_MAX, INT32_MAX} {
  const auto choose = [](auto& selection, int index) {
    using T = std::remove_reference_t<decltype(*selection)>;
    selection.Select(StockObject(index), Find<T>(StockObject(index)));
  };
  choose(font, SYSTEM_FONT);
  choose(brush, WHITE_BRUSH);
  choose(palette, DEFAULT_PALETTE);
  if (origin == Origin::Memory)
    bitmap.Select(StockMonoBitmap(), Find<Bitmap>(StockMonoBitmap()));
  else
    bitmap.Select(nullptr, Screen::The().bitmap);
}

bool Context::IsPaletteDevice() const {
  return Screen::The().HasPalette();
}

RECT Context::Clip() const {
  return Intersect(mClip, {0, 0, Target().width, Target().height});
}

void Context::Narrow(const RECT& rect) {
  mClip = Intersect(mClip, rect);
}

Xrgb Context::Resolve(COLORREF color) const {
  if ((color & 0xFF000000) == PALETTEINDEX(0)) {
    const std::vector<Xrgb>& colors = palette->Colors();
    return colors[(color & 0xFFFF) < colors.size() ? color & 0xFFFF : 0];
  }
  return XrgbFromRef(color);
}

}  // namespace orm::platform::gdi

using namespace orm::platform::gdi;

namespace {

// The common part of the attribute setters: returns the old value, or `failure` for a dead context.
template <class T, class Result = T>
Result Exchange(HDC handle, T Context::*member, T value, Result failure) {
  const auto context = Require<Context>(handle);
  return context ? std::exchange((*context).*member, value) : failure;
}

template <class T>
T Peek(HDC handle, T Context::*member, T failure) {
  const auto context = Require<Context>(handle);
  return context ? (*context).*member : failure;
}

HGDIOBJ SelectBitmap(Context& context, HGDIOBJ handle, const std::shared_ptr<Bitmap>& bitmap) {
  if (context.bitmap.Handle() == handle) return handle;
  if (context.origin != Context::Origin::Memory) {
    Fail(ERROR_INVALID_FUNCTION);
    return nullptr;
  }
  // One context at a time. The count is raised first, so that of two threads at most one succeeds.
  const bool busy = bitmap->selections++ > 0 && !bitmap->stock;
  if (!busy) {
    HGDIOBJ previous = context.bitmap.Select(handle, bitmap);
    --bitmap->selections;
    return previous;
  }
  --bitmap->selections;
  Fail(ERROR_BUSY);
  return nullptr;
}

int RasterCaps() {
  const int caps = RC_BITBLT | RC_BITMAP64 | RC_DI_BITMAP | RC_DIBTODEV | RC_STRETCHBLT | RC_STRETCHDIB;
  return Screen::The().HasPalette() ? caps | RC_PALETTE : caps;
}

int ClipComplexity(const Context& context) {
  constexpr int nullRegion = 1;
  constexpr int simpleRegion = 2;
  return IsEmpty(context.Clip()) ? nullRegion : simpleRegion;
}

}  // namespace

extern "C" {

HDC WINAPI CreateCompatibleDC(HDC handle) noexcept {
  return OrNoMemory<HDC>(nullptr, [&]() -> HDC {
    if (handle && !Require<Context>(handle)) return nullptr;
    return static_cast<HDC>(Make<Context>(Context::Origin::Memory));
  });
}

BOOL WINAPI DeleteDC(HDC handle) noexcept {
  const auto context = Find<Context>(handle);
  if (context && context->origin != Context::Origin::Memory) {
    Fail(ERROR_INVALID_FUNCTION);
    return FALSE;
  }
  if (RemoveObject(handle)) return TRUE;
  Fail(ERROR_INVALID_HANDLE);
  return FALSE;
}

int WINAPI GetDeviceCaps(HDC handle, int index) noexcept {
  return OrNoMemory<int>(0, [&]() -> int {
    if (!Require<Context>(handle)) return 0;
    const ScreenSettings& screen = Screen::The().settings;
    const auto millimetres = [&](int pixels) {
      return (pixels * 254 + screen.dotsPerInch * 5) / (screen.dotsPerInch * 10);
    };
    switch (index) {
      case TECHNOLOGY:
        return DT_RASDISPLAY;
      case HORZSIZE:
        return millimetres(screen.width);
      case VERTSIZE:
        return millimetres(screen.height);
      case HORZRES:
        return screen.width;
      case VERTRES:
        return screen.height;
      case BITSPIXEL:
        return screen.bitsPerPixel;
      case PLANES:
        return 1;
      case NUMCOLORS:
        return screen.bitsPerPixel == 8 ? 20 : -1;
      case RASTERCAPS:
        return RasterCaps();
      case LOGPIXELSX:
      case LOGPIXELSY:
        return screen.dotsPerInch;
      case SIZEPALETTE:
        return screen.bitsPerPixel == 8 ? 256 : 0;
      case NUMRESERVED:
        return screen.bitsPerPixel == 8 ? 20 : 0;
      case COLORRES:
        return screen.bitsPerPixel == 8 ? 18 : 0;
      default:
        return 0;
    }
  });
}

HGDIOBJ WINAPI SelectObject(HDC handle, HGDIOBJ objectHandle) noexcept {
  const auto context = Require<Context>(handle);
  if (!context) return nullptr;
  auto object = FindObject(objectHandle);
  switch (object ? object->kind : Kind::Context) {
    case Kind::Bitmap:
      return SelectBitmap(*context, objectHandle, std::static_pointer_cast<Bitmap>(object));
    case Kind::Font:
      return context->font.Select(objectHandle, std::static_pointer_cast<Font>(object));
    case Kind::Brush:
      return context->brush.Select(objectHandle, std::static_pointer_cast<Brush>(object));
    case Kind::Palette:
    case Kind::Context:
      break;
  }
  Fail(ERROR_INVALID_HANDLE);
  return nullptr;
}

HGDIOBJ WINAPI GetCurrentObject(HDC handle, UINT type) noexcept {
  const auto context = Require<Context>(handle);
  if (!context) return nullptr;
  switch (type) {
    case OBJ_BITMAP:
      return context->bitmap.Handle();
    case OBJ_FONT:
      return context->font.Handle();
    case OBJ_BRUSH:
      return context->brush.Handle();
    case OBJ_PAL:
      return context->palette.Handle();
    default:
      Fail(ERROR_INVALID_PARAMETER);
      return nullptr;
  }
}

DWORD WINAPI GetObjectType(HGDIOBJ handle) noexcept {
  const auto object = FindObject(handle);
  if (!object) {
    Fail(ERROR_INVALID_HANDLE);
    return 0;
  }
  switch (object->kind) {
    case Kind::Context:
      return static_cast<const Context&>(*object).origin == Context::Origin::Memory ? OBJ_MEMDC : OBJ_DC;
    case Kind::Bitmap:
      return OBJ_BITMAP;
    case Kind::Palette:
      return OBJ_PAL;
    case Kind::Font:
      return OBJ_FONT;
    case Kind::Brush:
      return OBJ_BRUSH;
  }
  return 0;
}

COLORREF WINAPI SetTextColor(HDC dc, COLORREF color) noexcept {
  return Exchange(dc, &Context::textColor, color, CLR_INVALID);
}
COLORREF WINAPI GetTextColor(HDC dc) noexcept {
  return Peek(dc, &Context::textColor, CLR_INVALID);
}
COLORREF WINAPI SetBkColor(HDC dc, COLORREF color) noexcept {
  return Exchange(dc, &Context::bkColor, color, CLR_INVALID);
}
COLORREF WINAPI GetBkColor(HDC dc) noexcept {
  return Peek(dc, &Context::bkColor, CLR_INVALID);
}
int WINAPI GetBkMode(HDC dc) noexcept {
  return Peek(dc, &Context::bkMode, 0);
}
UINT WINAPI SetTextAlign(HDC dc, UINT align) noexcept {
  return Exchange(dc, &Context::textAlign, align, GDI_ERROR);
}
UINT WINAPI GetTextAlign(HDC dc) noexcept {
  return Peek(dc, &Context::textAlign, UINT{GDI_ERROR});
}
int WINAPI GetStretchBltMode(HDC dc) noexcept {
  return Peek(dc, &Context::stretchMode, 0);
}

int WINAPI SetBkMode(HDC dc, int mode) noexcept {
  if (mode == TRANSPARENT || mode == OPAQUE) return Exchange(dc, &Context::bkMode, mode, 0);
  Fail(ERROR_INVALID_PARAMETER);
  return 0;
}

int WINAPI SetStretchBltMode(HDC dc, int mode) noexcept {
  if (mode >= BLACKONWHITE && mode <= HALFTONE) return Exchange(dc, &Context::stretchMode, mode, 0);
  Fail(ERROR_INVALID_PARAMETER);
  return 0;
}

int WINAPI IntersectClipRect(HDC handle, int left, int top, int right, int bottom) noexcept {
  const auto context = Require<Context>(handle);
  if (!context) return 0;
  const POINT offset = context->offset;
  context->Narrow({SaturatedAdd(left, offset.x), SaturatedAdd(top, offset.y), SaturatedAdd(right, offset.x),
                   SaturatedAdd(bottom, offset.y)});
  return ClipComplexity(*context);
}

int WINAPI GetClipBox(HDC handle, RECT* box) noexcept {
  const auto context = Require<Context>(handle);
  if (!context || !box) return 0;
  const RECT clip = context->Clip();
  *box = IsEmpty(clip) ? RECT{}
                       : RECT{clip.left - context->offset.x, clip.top - context->offset.y,
                              clip.right - context->offset.x, clip.bottom - context->offset.y};
  return ClipComplexity(*context);
}

}  // extern "C"
