// Bitmap::StretchBitmap: takes the pixels out of the bitmap, has them resampled, and puts them into a new
// one.
#include <ormutil/Bitmap.h>

#include <memory>
#include <new>

#include "Areas.h"
#include "BitmapResampler.h"
#include "BitmapSection.h"
#include "GdiHandles.h"

namespace orm {

namespace {

constexpr const char* FILE_NAME = "src/shared/Bitmap";

constexpr int64_t GetStride(int64_t width) {
  return (width * 24 + 31) / 32 * 4;
}

// The depths that are left to the system: pictures of these depths have a palette there.
int GetRefusedDepth() {
  OSVERSIONINFOA version{};
  version.dwOSVersionInfoSize = sizeof version;
  ORM_ASSERT(GetVersionExA(&version), "::GetVersionExA(&osvi)", FILE_NAME, 61);
  return version.dwPlatformId == VER_PLATFORM_WIN32_WINDOWS ? 16 : 8;
}

// A header with room for a colour table.
struct InfoBlock {
  BITMAPINFO info;
  RGBQUAD more[255];
};

template <class T>
std::unique_ptr<T[]> Allocate(size_t count) {
  return std::unique_ptr<T[]>(new (std::nothrow) T[count]());
}

}  // namespace

bool Bitmap::StretchBitmap(unsigned newWidth, unsigned newHeight) {
  const ScreenContext screen;
  ORM_ASSERT(screen.Get() != nullptr, "dc != 0", FILE_NAME, 54);
  BITMAP description{};
  const bool described = GetObjectA(mBitmap, sizeof description, &description) == sizeof description;
  ORM_ASSERT(described, "::GetObjectA(mBitmap, sizeof(BITMAP), &bitmapInfo) == sizeof(BITMAP)", FILE_NAME,
             56);
  if (description.bmBitsPixel <= GetRefusedDepth()) {
    TraceWrite(areaBitmap, TRACE_TRACE, false, FILE_NAME, 64, "StretchBitmap cannot work with %d bit image",
               description.bmBitsPixel);
    return false;
  }
  // The factors come from the caller: a size that no bitmap can have is left to the system's refusal.
  if (newWidth == 0 || newHeight == 0 || newWidth > INT32_MAX || newHeight > INT32_MAX ||
      GetStride(newWidth) > INT32_MAX / static_cast<int64_t>(newHeight))
    return false;

  const std::unique_ptr<InfoBlock> block(new (std::nothrow) InfoBlock());
  ORM_ASSERT(block != nullptr, "pHeader != NULL", FILE_NAME, 70);
  if (!block) return false;
  BITMAPINFOHEADER& header = block->info.bmiHeader;
  header.biSize = sizeof header;
  header.biWidth = description.bmWidth;
  header.biHeight = description.bmHeight;
  header.biPlanes = 1;
  header.biBitCount = 24;
  header.biCompression = BI_RGB;
  const auto lines = static_cast<UINT>(description.bmHeight);
  int result = GetDIBits(screen.Get(), mBitmap, 0, lines, nullptr, &block->info, DIB_RGB_COLORS);
  ORM_ASSERT(result != 0, "iRet != 0", FILE_NAME, 86);
  if (result == 0) {
    TraceWrite(areaBitmap, TRACE_ERROR, false, FILE_NAME, 283, "StretchBitmap cannot get DIBIts (Error %X)",
               GetLastError());
    return false;
  }

  const int64_t sourceStride = GetStride(description.bmWidth);
  if (header.biSizeImage == 0) header.biSizeImage = static_cast<DWORD>(sourceStride * description.bmHeight);
  const auto source = Allocate<BYTE>(header.biSizeImage + ResampleJob::SOURCE_SPARE);
  result =
      source ? GetDIBits(screen.Get(), mBitmap, 0, lines, source.get(), &block->info, DIB_RGB_COLORS) : 0;
  ORM_ASSERT(result != 0, "iRet != 0", FILE_NAME, 112);
  const auto row = Allocate<float>(ResampleJob::Pad(newWidth) * 3);
  ORM_ASSERT(row != nullptr, "row != NULL", FILE_NAME, 119);
  const auto pieces = Allocate<float>(size_t{newWidth} + static_cast<size_t>(description.bmWidth));
  ORM_ASSERT(pieces != nullptr, "fpIndexX != NULL", FILE_NAME, 122);
  const int64_t targetStride = GetStride(newWidth);
  const auto target = Allocate<BYTE>(static_cast<size_t>(targetStride * newHeight));
  if (result == 0 || !row || !pieces || !target) return false;

  Resample({.source = source.get(),
            .sourceWidth = description.bmWidth,
            .sourceHeight = description.bmHeight,
            .sourceStride = sourceStride,
            .target = target.get(),
            .targetWidth = static_cast<int>(newWidth),
            .targetHeight = static_cast<int>(newHeight),
            .targetStride = targetStride,
            .sums = row.get(),
            .pieces = pieces.get()});

  header.biWidth = static_cast<LONG>(newWidth);
  header.biHeight = static_cast<LONG>(newHeight);
  header.biSizeImage = static_cast<DWORD>(targetStride * newHeight);
  ORM_ASSERT(DeleteObject(mBitmap), "::DeleteObject(mBitmap)", FILE_NAME, 261);
  void* bits = nullptr;
  mBitmap = CreateDIBSection(screen.Get(), &block->info, DIB_RGB_COLORS, &bits, nullptr, 0);
  ORM_ASSERT(mBitmap != nullptr, "mBitmap", FILE_NAME, 267);
  const bool stored = mBitmap && SetDIBits(screen.Get(), mBitmap, 0, newHeight, target.get(), &block->info,
                                           DIB_RGB_COLORS) != 0;
  ORM_ASSERT(stored, "SetDIBits(dc, mBitmap, 0, (WORD)pbitInfo->bmiHeader.biHeight, pData2, pbitInfo, 0)",
             FILE_NAME, 269);
  return true;
}

}  // namespace orm
