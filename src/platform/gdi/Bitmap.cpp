// Making and describing bitmaps.
#include "gdi/Bitmap.h"

#include <cstring>

#include "gdi/Context.h"
#include "gdi/Dib.h"
#include "gdi/Screen.h"

namespace orm::platform::gdi {
namespace {

constexpr int deviceAlignment = 2;
constexpr int sectionAlignment = 4;

std::shared_ptr<Bitmap> MakeBitmap(const PixelFormat& format, int width, int height) {
  auto bitmap = std::make_shared<Bitmap>();
  if (!bitmap->surface.AllocateForUse(format, width, height, deviceAlignment, false)) return nullptr;
  if (format.kind == PixelFormat::Kind::Indexed) bitmap->surface.colors = StandardColors(format.bits);
  return bitmap;
}

}  // namespace

BITMAP Bitmap::Describe() {
  if (IsSection()) {  // whoever learns where the pixels are may use them without a lock
    const SurfaceLock completes(surface);
  }
  BITMAP description{};
  description.bmWidth = surface.width;
  description.bmHeight = surface.height;
  description.bmWidthBytes = static_cast<LONG>(surface.stride);
  description.bmPlanes = 1;
  description.bmBitsPixel = static_cast<WORD>(surface.format.bits);
  description.bmBits = IsSection() ? surface.bits : nullptr;
  return description;
}

BITMAPINFOHEADER Bitmap::HeaderFor(int width, int height) const {
  BITMAPINFOHEADER header = mHeader;
  header.biSize = sizeof header;
  header.biWidth = width;
  header.biHeight = surface.bottomUp ? height : -height;
  header.biSizeImage = 0;
  return header;
}

DIBSECTION Bitmap::DescribeSection() {
  DIBSECTION description{};
  description.dsBm = Describe();
  description.dsBmih = mHeader;
  description.dsBmih.biSizeImage = static_cast<DWORD>(surface.stride * surface.height);
  if (mHeader.biCompression == BI_BITFIELDS) {
    description.dsBitfields[0] = surface.format.red.mask;
    description.dsBitfields[1] = surface.format.green.mask;
    description.dsBitfields[2] = surface.format.blue.mask;
  }
  return description;
}

std::shared_ptr<Bitmap> MakeBitmapLike(const Bitmap& other, int width, int height) {
  const Surface& model = other.surface;
  auto bitmap = std::make_shared<Bitmap>();
  if (!bitmap->surface.AllocateForUse(model.format, width, height,
                                      other.IsSection() ? sectionAlignment : deviceAlignment, model.bottomUp))
    return nullptr;
  bitmap->surface.colors = model.colors;
  if (other.IsSection()) bitmap->MakeSection(other.HeaderFor(width, height));
  return bitmap;
}

std::shared_ptr<Bitmap> MakePlainBitmap(int width, int height, int bits) {
  const PixelFormat screen = Screen::The().Format();
  if (bits == screen.bits) return MakeBitmap(screen, width, height);
  if (bits == 1) return MakeBitmap(PixelFormat::Mono(), width, height);
  return MakeBitmap(bits <= 8 ? PixelFormat::Indexed(bits) : PixelFormat::Direct(bits), width, height);
}

}  // namespace orm::platform::gdi

using namespace orm::platform::gdi;

namespace {

HBITMAP Publish(std::shared_ptr<Bitmap> bitmap) {
  if (!bitmap) {
    Fail(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  return static_cast<HBITMAP>(AddObject(std::move(bitmap)));
}

bool IsDepth(UINT bits) {
  return bits == 1 || bits == 4 || bits == 8 || bits == 16 || bits == 24 || bits == 32;
}

}  // namespace

extern "C" {

HBITMAP WINAPI CreateBitmap(int width, int height, UINT planes, UINT bitsPerPixel,
                            const void* bits) noexcept {
  return OrNoMemory<HBITMAP>(nullptr, [&]() -> HBITMAP {
    if (planes != 1 || !IsDepth(bitsPerPixel)) {
      Fail(ERROR_INVALID_PARAMETER);
      return nullptr;
    }
    auto bitmap = MakePlainBitmap(width, height, static_cast<int>(bitsPerPixel));
    if (bitmap && bits) {
      bitmap->surface.Complete();
      std::memcpy(bitmap->surface.bits, bits, static_cast<std::size_t>(bitmap->surface.stride * height));
    }
    return Publish(std::move(bitmap));
  });
}

HBITMAP WINAPI CreateCompatibleBitmap(HDC handle, int width, int height) noexcept {
  return OrNoMemory<HBITMAP>(nullptr, [&]() -> HBITMAP {
    const auto context = Require<Context>(handle);
    if (!context) return nullptr;
    // An empty size gives the smallest bitmap, so that callers need not treat it apart.
    if (width == 0 || height == 0) return Publish(MakePlainBitmap(1, 1, 1));
    return Publish(MakeBitmapLike(*context->bitmap, width, height));
  });
}

HBITMAP WINAPI CreateDIBSection(HDC handle, const BITMAPINFO* info, UINT usage, void** bits, HANDLE section,
                                DWORD offset) noexcept {
  return OrNoMemory<HBITMAP>(nullptr, [&]() -> HBITMAP {
    if (bits) *bits = nullptr;
    if (section || offset) {
      Fail(ERROR_NOT_SUPPORTED);
      return nullptr;
    }
    const auto context = handle ? Require<Context>(handle) : nullptr;
    if (handle && !context) return nullptr;
    const auto dib = ParseDib(info, usage, context.get());
    if (!dib || dib->runLength) {
      Fail(ERROR_INVALID_PARAMETER);
      return nullptr;
    }
    auto bitmap = std::make_shared<Bitmap>();
    if (!bitmap->surface.Allocate(dib->format, dib->width, dib->height, sectionAlignment, dib->bottomUp))
      return Publish(nullptr);
    bitmap->surface.colors = dib->colors;
    bitmap->MakeSection(info->bmiHeader);
    void* const pixels = bitmap->surface.bits;
    const HBITMAP result = Publish(std::move(bitmap));
    if (result && bits) *bits = pixels;
    return result;
  });
}

}  // extern "C"
