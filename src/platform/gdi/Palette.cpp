// Logical palettes and their realisation.
#include "gdi/Palette.h"

#include <algorithm>

#include "gdi/Context.h"
#include "gdi/SystemPalette.h"

namespace orm::platform::gdi {
namespace {
std::atomic<std::uint64_t> nextOwner{1};
constexpr std::size_t entryLimit = 1024;
constexpr WORD paletteVersion = 0x300;
}  // namespace

Palette::Palette(std::vector<PALETTEENTRY> entries)
    : Object(objectKind), mEntries(std::move(entries)), mOwner(nextOwner++) {
  for (const PALETTEENTRY& entry : mEntries)
    mColors.push_back(XrgbFromRef(RGB(entry.peRed, entry.peGreen, entry.peBlue)));
}

UINT Palette::Realize(bool background) {
  std::lock_guard lock(mLock);
  std::vector<std::uint8_t> places = SystemPalette::The().Realize(mColors, mOwner, background);
  UINT moved = 0;
  for (std::size_t i = 0; i < places.size(); ++i) moved += i >= mPlaces.size() || places[i] != mPlaces[i];
  mPlaces = std::move(places);
  return moved;
}

}  // namespace orm::platform::gdi

using namespace orm::platform::gdi;

namespace {

// How many of `count` entries from `start` on exist.
UINT Available(std::size_t size, UINT start, UINT count) {
  return start >= size ? 0 : static_cast<UINT>(std::min<std::size_t>(size - start, count));
}

}  // namespace

extern "C" {

HPALETTE WINAPI CreatePalette(const LOGPALETTE* palette) noexcept {
  return OrNoMemory<HPALETTE>(nullptr, [&]() -> HPALETTE {
    if (!palette || palette->palVersion != paletteVersion || palette->palNumEntries == 0 ||
        palette->palNumEntries > entryLimit) {
      Fail(ERROR_INVALID_PARAMETER);
      return nullptr;
    }
    const PALETTEENTRY* first = palette->palPalEntry;
    return static_cast<HPALETTE>(
        Make<Palette>(std::vector<PALETTEENTRY>(first, first + palette->palNumEntries)));
  });
}

HPALETTE WINAPI SelectPalette(HDC handle, HPALETTE paletteHandle, BOOL background) noexcept {
  const auto context = Require<Context>(handle);
  if (!context) return nullptr;
  auto palette = Require<Palette>(paletteHandle);
  if (!palette) return nullptr;
  context->backgroundPalette = background != 0;
  return static_cast<HPALETTE>(context->palette.Select(paletteHandle, std::move(palette)));
}

UINT WINAPI RealizePalette(HDC handle) noexcept {
  return OrNoMemory<UINT>(GDI_ERROR, [&]() -> UINT {
    const auto context = Require<Context>(handle);
    if (!context) return GDI_ERROR;
    if (!context->IsPaletteDevice() || context->palette->stock) return 0;
    return context->palette->Realize(context->backgroundPalette);
  });
}

UINT WINAPI GetPaletteEntries(HPALETTE handle, UINT start, UINT count, PALETTEENTRY* entries) noexcept {
  const auto palette = Require<Palette>(handle);
  if (!palette) return 0;
  if (!entries) return palette->Count();
  const UINT available = Available(palette->Count(), start, count);
  std::copy_n(palette->Entries().begin() + static_cast<std::ptrdiff_t>(available ? start : 0), available,
              entries);
  return available;
}

UINT WINAPI GetSystemPaletteEntries(HDC handle, UINT start, UINT count, PALETTEENTRY* entries) noexcept {
  return OrNoMemory<UINT>(0, [&]() -> UINT {
    const auto context = Require<Context>(handle);
    if (!context || !context->IsPaletteDevice()) return 0;
    const std::vector<Xrgb> colors = SystemPalette::The().Colors();
    if (!entries) return static_cast<UINT>(colors.size());
    const UINT available = Available(colors.size(), start, count);
    for (UINT i = 0; i < available; ++i) {
      const COLORREF color = RefFromXrgb(colors[start + i]);
      entries[i] = {GetRValue(color), GetGValue(color), GetBValue(color), 0};
    }
    return available;
  });
}

UINT WINAPI GetNearestPaletteIndex(HPALETTE handle, COLORREF color) noexcept {
  const auto palette = Require<Palette>(handle);
  if (!palette) return CLR_INVALID;
  return NearestColor(palette->Colors().data(), palette->Colors().size(), XrgbFromRef(color));
}

}  // extern "C"
