// Block transfers between contexts, single pixels, and fills.
#include <algorithm>

#include "gdi/Transfer.h"

namespace orm::platform::gdi {
namespace {

MonoColors MonoColorsOf(const Context& destination, const Context* source) {
  MonoColors colors;
  colors.zero = destination.Resolve(destination.textColor);
  colors.one = destination.Resolve(destination.bkColor);
  if (source) colors.sourceOne = source->Resolve(source->bkColor);
  return colors;
}

std::uint32_t PatternOf(const Context& context) {
  return context.Target().Nearest(context.Resolve(context.brush->color));
}

RECT SurfaceRect(const Context& context, int x, int y, int width, int height) {
  const LONG left = SaturatedAdd(x, context.offset.x);
  const LONG top = SaturatedAdd(y, context.offset.y);
  return {left, top, SaturatedAdd(left, width), SaturatedAdd(top, height)};
}

// A rectangle whose size may be negative, in surface coordinates, cut to what cannot overflow.
bool MakeSpan(const Context& context, int x, int y, int width, int height, Span2D& span) {
  constexpr int limit = 1 << 24;
  const auto fits = [](int value) { return value > -limit && value < limit; };
  if (!fits(x) || !fits(y) || !fits(width) || !fits(height)) return false;
  span = {SaturatedAdd(x, context.offset.x), SaturatedAdd(y, context.offset.y), width, height};
  return true;
}

void CopyPart(Context& destination, const RECT& wanted, Context& source, POINT from,
              RasterOperation operation) {
  // Cut to the clip, then to the pixels that the source has.
  RECT target = Intersect(wanted, destination.Clip());
  const std::int64_t moveX = std::int64_t{from.x} - wanted.left;
  const std::int64_t moveY = std::int64_t{from.y} - wanted.top;
  const RECT available = source.Clip();
  const auto limit = [](std::int64_t value) {
    return static_cast<LONG>(std::clamp<std::int64_t>(value, INT32_MIN, INT32_MAX));
  };
  target = Intersect(target, {limit(available.left - moveX), limit(available.top - moveY),
                              limit(available.right - moveX), limit(available.bottom - moveY)});
  if (IsEmpty(target)) return;
  const POINT start{static_cast<LONG>(target.left + moveX), static_cast<LONG>(target.top + moveY)};
  const bool overwrites = !operation.UsesDestination() && &destination.Target() != &source.Target();
  const SurfaceLock lock = overwrites ? SurfaceLock(destination.Target(), target, source.Target())
                                      : SurfaceLock(destination.Target(), source.Target());
  Transfer(destination.Target(), target, source.Target(), start, operation, PatternOf(destination),
           MonoColorsOf(destination, &source));
}

bool FillPart(Context& context, const RECT& wanted, RasterOperation operation, const Brush& brush) {
  if (brush.null && operation.UsesPattern()) return true;
  const RECT target = Intersect(wanted, context.Clip());
  if (IsEmpty(target)) return true;
  const std::uint32_t pattern = context.Target().Nearest(context.Resolve(brush.color));
  const SurfaceLock lock(context.Target());
  Fill(context.Target(), target, operation, pattern);
  return true;
}

}  // namespace
}  // namespace orm::platform::gdi

using namespace orm::platform::gdi;

extern "C" {

BOOL WINAPI PatBlt(HDC handle, int x, int y, int width, int height, DWORD code) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    const auto context = Require<Context>(handle);
    if (!context) return FALSE;
    const RasterOperation operation(code);
    if (operation.UsesSource()) {
      Fail(ERROR_INVALID_PARAMETER);
      return FALSE;
    }
    return FillPart(*context, SurfaceRect(*context, x, y, width, height), operation, *context->brush);
  });
}

BOOL WINAPI BitBlt(HDC handle, int x, int y, int width, int height, HDC sourceHandle, int sourceX,
                   int sourceY, DWORD code) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    const RasterOperation operation(code);
    if (!operation.UsesSource()) return PatBlt(handle, x, y, width, height, code);
    const auto destination = Require<Context>(handle);
    const auto source = destination ? Require<Context>(sourceHandle) : nullptr;
    if (!source) return FALSE;
    if (width < 0 || height < 0)
      return StretchBlt(handle, x, y, width, height, sourceHandle, sourceX, sourceY, width, height, code);
    const POINT from{SaturatedAdd(sourceX, source->offset.x), SaturatedAdd(sourceY, source->offset.y)};
    CopyPart(*destination, SurfaceRect(*destination, x, y, width, height), *source, from, operation);
    return TRUE;
  });
}

BOOL WINAPI StretchBlt(HDC handle, int x, int y, int width, int height, HDC sourceHandle, int sourceX,
                       int sourceY, int sourceWidth, int sourceHeight, DWORD code) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    const RasterOperation operation(code);
    if (!operation.UsesSource()) return PatBlt(handle, x, y, width, height, code);
    const auto destination = Require<Context>(handle);
    const auto source = destination ? Require<Context>(sourceHandle) : nullptr;
    if (!source) return FALSE;
    Span2D target, from;
    if (!MakeSpan(*destination, x, y, width, height, target) ||
        !MakeSpan(*source, sourceX, sourceY, sourceWidth, sourceHeight, from)) {
      Fail(ERROR_INVALID_PARAMETER);
      return FALSE;
    }
    const SurfaceLock lock(destination->Target(), source->Target());
    Stretch(destination->Target(), target, destination->Clip(), source->Target(), from, operation,
            PatternOf(*destination), MonoColorsOf(*destination, source.get()), destination->stretchMode);
    return TRUE;
  });
}

int WINAPI FillRect(HDC handle, const RECT* rect, HBRUSH brushHandle) noexcept {
  return OrNoMemory<int>(0, [&]() -> int {
    const auto context = Require<Context>(handle);
    const auto brush = context ? Require<Brush>(brushHandle) : nullptr;
    if (!brush || !rect) return 0;
    const POINT offset = context->offset;
    return FillPart(*context,
                    {SaturatedAdd(rect->left, offset.x), SaturatedAdd(rect->top, offset.y),
                     SaturatedAdd(rect->right, offset.x), SaturatedAdd(rect->bottom, offset.y)},
                    RasterOperation(PATCOPY), *brush);
  });
}

COLORREF WINAPI GetPixel(HDC handle, int x, int y) noexcept {
  return OrNoMemory<COLORREF>(CLR_INVALID, [&]() -> COLORREF {
    const auto context = Require<Context>(handle);
    if (!context) return CLR_INVALID;
    const RECT pixel = Intersect(SurfaceRect(*context, x, y, 1, 1), context->Clip());
    if (IsEmpty(pixel)) return CLR_INVALID;
    const SurfaceLock lock(context->Target());
    std::uint32_t value;
    context->Target().Read(pixel.left, pixel.top, 1, &value);
    return RefFromXrgb(context->Target().ColorOf(value));
  });
}

COLORREF WINAPI SetPixel(HDC handle, int x, int y, COLORREF color) noexcept {
  return OrNoMemory<COLORREF>(CLR_INVALID, [&]() -> COLORREF {
    const auto context = Require<Context>(handle);
    if (!context) return CLR_INVALID;
    const RECT pixel = Intersect(SurfaceRect(*context, x, y, 1, 1), context->Clip());
    if (IsEmpty(pixel)) return CLR_INVALID;
    const std::uint32_t value = context->Target().Nearest(context->Resolve(color));
    const SurfaceLock lock(context->Target());
    context->Target().Write(pixel.left, pixel.top, 1, &value);
    return RefFromXrgb(context->Target().ColorOf(value));
  });
}

}  // extern "C"
