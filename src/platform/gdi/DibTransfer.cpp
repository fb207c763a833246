// Copying device-independent bits into bitmaps and contexts, and out of bitmaps.
#include <algorithm>
#include <array>
#include <cstring>

#include "gdi/Dib.h"
#include "gdi/SystemPalette.h"
#include "gdi/Transfer.h"

namespace orm::platform::gdi {
namespace {

// A surface over a caller's uncompressed rows. Rows `start` to `start + lines` of the picture, counted as the
// data count them, are at `bits`.
void ViewRows(Surface& view, const Dib& dib, const void* bits, int lines) {
  view.View(dib.format, dib.width, lines, dib.stride, dib.bottomUp, const_cast<void*>(bits));
  view.colors = dib.colors;
}

void CopyRuns(Surface& destination, const Dib& dib, const void* bits) {
  Surface meaning;  // no pixels: what the indices stand for
  meaning.format = dib.format;
  meaning.colors = dib.colors;
  Translation translation(meaning, destination, MonoColors{});
  std::vector<std::uint32_t> values;
  DecodeRuns(dib, {static_cast<const std::uint8_t*>(bits), dib.runBytes},
             [&](int x, int rowFromBottom, int count, const std::uint32_t* indices) {
               const int y = destination.height - 1 - rowFromBottom;
               const int fit = std::min(count, destination.width - x);
               if (y < 0 || fit <= 0) return;
               values.assign(indices, indices + fit);
               translation.Apply(values.data(), fit);
               destination.Write(x, y, fit, values.data());
             });
}

// The rectangle of a bitmap that rows [start, start + lines) from the bottom cover, and the rows of the view.
void CopyRows(Surface& destination, Surface& view, int start) {
  RECT target{0, destination.height - start - view.height, std::min(view.width, destination.width),
              destination.height - start};
  POINT from{0, 0};
  if (target.top < 0) {
    from.y = -target.top;
    target.top = 0;
  }
  Transfer(destination, target, view, from, RasterOperation(SRCCOPY), 0, MonoColors{});
}

// The colour table that GetDIBits gives for indexed formats.
std::vector<Xrgb> ColorsFor(const Surface& source, int bits) {
  if (source.format.bits == bits && source.format.kind == PixelFormat::Kind::Indexed) return source.colors;
  if (source.format.bits == bits && source.format.kind == PixelFormat::Kind::Device)
    return SystemPalette::The().Colors();
  return StandardColors(bits);
}

void StoreColors(const std::vector<Xrgb>& colors, BITMAPINFO* info) {
  auto* table = reinterpret_cast<std::uint8_t*>(info) + info->bmiHeader.biSize;
  for (std::size_t i = 0; i < colors.size(); ++i) {
    const RGBQUAD color{static_cast<BYTE>(colors[i]), static_cast<BYTE>(colors[i] >> 8),
                        static_cast<BYTE>(colors[i] >> 16), 0};
    std::memcpy(table + sizeof color * i, &color, sizeof color);
  }
}

// The table that names the palette's entries in their order.
void StorePaletteIndices(std::size_t count, BITMAPINFO* info) {
  auto* table = reinterpret_cast<std::uint8_t*>(info) + info->bmiHeader.biSize;
  for (std::size_t i = 0; i < count; ++i) {
    const auto index = static_cast<WORD>(i);
    std::memcpy(table + sizeof index * i, &index, sizeof index);
  }
}

// Whether BI_RGB says where the channels of such pixels are.
bool HasUsualChannels(const PixelFormat& format) {
  return format.kind != PixelFormat::Kind::Direct || format.SameDirect(PixelFormat::Direct(format.bits));
}

void DescribeBitmap(const Surface& surface, BITMAPINFOHEADER& header) {
  header.biWidth = surface.width;
  header.biHeight = surface.height;
  header.biPlanes = 1;
  header.biBitCount = static_cast<WORD>(surface.format.bits);
  header.biCompression = HasUsualChannels(surface.format) ? BI_RGB : BI_BITFIELDS;
  header.biSizeImage =
      static_cast<DWORD>(Surface::StrideFor(surface.width, surface.format.bits, 4) * surface.height);
  header.biClrUsed = header.biClrImportant = 0;
}

void StoreMasks(const PixelFormat& format, BITMAPINFO* info) {
  const std::array<std::uint32_t, 3> masks{format.red.mask, format.green.mask, format.blue.mask};
  std::memcpy(reinterpret_cast<std::uint8_t*>(info) + sizeof info->bmiHeader, masks.data(), sizeof masks);
}

// Puts all of a picture's rows onto a surface of its own: run-length data decoded, pixels that they skip 0.
bool Unpack(Surface& picture, const Dib& dib, const void* bits) {
  if (!dib.runLength) {
    ViewRows(picture, dib, bits, dib.height);
    return true;
  }
  if (!picture.Allocate(dib.format, dib.width, dib.height, 4, false)) return false;
  picture.colors = dib.colors;
  CopyRuns(picture, dib, bits);
  return true;
}

// Takes an object of this function's own out of the table again, also when memory runs out.
struct Removal {
  HGDIOBJ handle;
  ~Removal() {
    if (handle) RemoveObject(handle);
  }
};

}  // namespace
}  // namespace orm::platform::gdi

using namespace orm::platform::gdi;

namespace {

// The context of a call that may have none.
bool FindContext(HDC handle, std::shared_ptr<Context>& context) {
  if (!handle) return true;
  context = Require<Context>(handle);
  return context != nullptr;
}

int FailWith(DWORD error) {
  Fail(error);
  return 0;
}

int StoreRows(Bitmap& bitmap, const Dib& dib, UINT start, UINT lines, const void* bits) {
  Surface& destination = bitmap.surface;
  const SurfaceLock lock(destination);
  if (dib.runLength) {
    CopyRuns(destination, dib, bits);
    return dib.height;
  }
  const auto height = static_cast<UINT>(dib.height);
  if (start >= height) return 0;
  const int count = static_cast<int>(std::min(lines, height - start));
  if (count == 0) return 0;
  Surface view;
  ViewRows(view, dib, bits, count);
  CopyRows(destination, view, static_cast<int>(start));
  return count;
}

// The form that a caller asks for. A colour table is written, not read; but not before the header is known to
// make sense, since it says where the table is and how long. Masks of 0, as who has only asked for the header
// has them, become the bitmap's own.
std::optional<Dib> PrepareOutput(const Surface& source, BITMAPINFO* info, UINT usage,
                                 const Context* context) {
  if (usage > DIB_PAL_COLORS || (usage == DIB_PAL_COLORS && !context)) return std::nullopt;
  auto dib = ParseDibHeader(info, &source.format);
  if (dib && info->bmiHeader.biCompression == BI_BITFIELDS) StoreMasks(dib->format, info);
  if (!dib || dib->runLength || dib->format.bits > 8) return dib;
  info->bmiHeader.biClrUsed = 0;
  if (usage == DIB_PAL_COLORS) {
    StorePaletteIndices(std::size_t{1} << dib->format.bits, info);
    return ParseDib(info, usage, context);
  }
  dib->colors = ColorsFor(source, dib->format.bits);
  StoreColors(dib->colors, info);
  return dib;
}

int CopyRowsOut(Bitmap& bitmap, UINT start, UINT lines, void* bits, BITMAPINFO* info, UINT usage,
                const Context* context) {
  Surface& source = bitmap.surface;
  const SurfaceLock lock(source);
  const auto dib = PrepareOutput(source, info, usage, context);
  if (!dib || dib->runLength) return FailWith(ERROR_INVALID_PARAMETER);
  info->bmiHeader.biSizeImage = static_cast<DWORD>(dib->stride * dib->height);
  if (!bits) return source.height;
  const auto height = static_cast<UINT>(source.height);
  if (start >= height) return 0;
  // No more rows than the header announces, whose size the caller takes for that of the buffer.
  const int count = static_cast<int>(std::min({lines, height - start, static_cast<UINT>(dib->height)}));
  if (count == 0) return 0;
  Surface view;
  ViewRows(view, *dib, bits, count);
  const POINT from{0, source.height - static_cast<int>(start) - count};
  Transfer(view, {0, 0, std::min(source.width, view.width), count}, source, from, RasterOperation(SRCCOPY), 0,
           MonoColors{});
  return count;
}

// The table of the indexed section that is selected, or null.
std::vector<Xrgb>* SelectedColors(const std::shared_ptr<Context>& context) {
  if (!context) return nullptr;
  Bitmap& bitmap = *context->bitmap;
  if (bitmap.IsSection() && !bitmap.surface.colors.empty()) return &bitmap.surface.colors;
  Fail(ERROR_INVALID_HANDLE);
  return nullptr;
}

}  // namespace

extern "C" {

int WINAPI SetDIBits(HDC handle, HBITMAP bitmapHandle, UINT start, UINT lines, const void* bits,
                     const BITMAPINFO* info, UINT usage) noexcept {
  return OrNoMemory<int>(0, [&]() -> int {
    std::shared_ptr<Context> context;
    if (!FindContext(handle, context)) return 0;
    const auto bitmap = Require<Bitmap>(bitmapHandle);
    if (!bitmap) return 0;
    const auto dib = ParseDib(info, usage, context.get());
    if (!dib || !bits) return FailWith(ERROR_INVALID_PARAMETER);
    return StoreRows(*bitmap, *dib, start, lines, bits);
  });
}

int WINAPI GetDIBits(HDC handle, HBITMAP bitmapHandle, UINT start, UINT lines, void* bits, BITMAPINFO* info,
                     UINT usage) noexcept {
  return OrNoMemory<int>(0, [&]() -> int {
    std::shared_ptr<Context> context;
    if (!FindContext(handle, context)) return 0;
    const auto bitmap = Require<Bitmap>(bitmapHandle);
    if (!bitmap) return 0;
    if (!info || info->bmiHeader.biSize < sizeof(BITMAPINFOHEADER)) return FailWith(ERROR_INVALID_PARAMETER);
    if (!bits && info->bmiHeader.biBitCount == 0) {
      DescribeBitmap(bitmap->surface, info->bmiHeader);
      return bitmap->surface.height;
    }
    return CopyRowsOut(*bitmap, start, lines, bits, info, usage, context.get());
  });
}

HBITMAP WINAPI CreateDIBitmap(HDC handle, const BITMAPINFOHEADER* header, DWORD init, const void* bits,
                              const BITMAPINFO* info, UINT usage) noexcept {
  if (!header || header->biHeight == INT32_MIN) {
    Fail(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  const int height = header->biHeight < 0 ? -header->biHeight : header->biHeight;
  const HBITMAP bitmap = CreateCompatibleBitmap(handle, header->biWidth, height);
  if (!bitmap || init != CBM_INIT) return bitmap;
  Removal removal{bitmap};
  if (SetDIBits(handle, bitmap, 0, static_cast<UINT>(height), bits, info, usage) == 0) return nullptr;
  removal.handle = nullptr;
  return bitmap;
}

int WINAPI StretchDIBits(HDC handle, int x, int y, int width, int height, int sourceX, int sourceY,
                         int sourceWidth, int sourceHeight, const void* bits, const BITMAPINFO* info,
                         UINT usage, DWORD operation) noexcept {
  return OrNoMemory<int>(0, [&]() -> int {
    const auto context = Require<Context>(handle);
    if (!context) return 0;
    const auto dib = ParseDib(info, usage, context.get());
    if (!dib || !bits) return FailWith(ERROR_INVALID_PARAMETER);
    auto picture = std::make_shared<Bitmap>();
    if (!Unpack(picture->surface, *dib, bits)) return FailWith(ERROR_NOT_ENOUGH_MEMORY);
    // A context around the picture, so that scaling has one road. Bottom-up data count their rows from below.
    auto source = std::make_shared<Context>(Context::Origin::Memory);
    source->bitmap.Select(nullptr, std::move(picture));
    const auto sourceHandle = static_cast<HDC>(AddObject(source));
    if (!sourceHandle) return 0;
    const Removal removal{sourceHandle};
    const std::int64_t fromTop =
        dib->bottomUp ? std::int64_t{dib->height} - sourceY - sourceHeight : std::int64_t{sourceY};
    const BOOL done = StretchBlt(handle, x, y, width, height, sourceHandle, sourceX,
                                 static_cast<int>(std::clamp<std::int64_t>(fromTop, INT32_MIN, INT32_MAX)),
                                 sourceWidth, sourceHeight, operation);
    return done ? dib->height : 0;
  });
}

UINT WINAPI GetDIBColorTable(HDC handle, UINT start, UINT count, RGBQUAD* table) noexcept {
  const auto context = Require<Context>(handle);
  const std::vector<Xrgb>* colors = SelectedColors(context);
  if (!colors || !table || start >= colors->size()) return 0;
  const SurfaceLock lock(context->Target());
  count = std::min(count, static_cast<UINT>(colors->size() - start));
  for (UINT i = 0; i < count; ++i) {
    const Xrgb color = (*colors)[start + i];
    table[i] = {static_cast<BYTE>(color), static_cast<BYTE>(color >> 8), static_cast<BYTE>(color >> 16), 0};
  }
  return count;
}

UINT WINAPI SetDIBColorTable(HDC handle, UINT start, UINT count, const RGBQUAD* table) noexcept {
  const auto context = Require<Context>(handle);
  std::vector<Xrgb>* colors = SelectedColors(context);
  if (!colors || !table || start >= colors->size()) return 0;
  const SurfaceLock lock(context->Target());
  count = std::min(count, static_cast<UINT>(colors->size() - start));
  for (UINT i = 0; i < count; ++i)
    (*colors)[start + i] = static_cast<Xrgb>(table[i].rgbRed) << 16 |
                           static_cast<Xrgb>(table[i].rgbGreen) << 8 | table[i].rgbBlue;
  return count;
}

}  // extern "C"
