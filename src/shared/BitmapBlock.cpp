// Reading bitmap resources. They are bytes from outside: nothing is taken from them before it is known to be
// there, and no announced size reserves memory that the data do not justify.
#include "BitmapBlock.h"

#include <algorithm>
#include <cstring>

namespace orm {

namespace {

constexpr size_t LONGEST_HEADER = 124;
constexpr size_t MASKS_SIZE = 3 * sizeof(DWORD);

// Run-length data can announce any size with a few bytes, so their pictures have a limit of their own.
constexpr int64_t MOST_RUN_LENGTH_PIXELS = int64_t{1} << 26;

int64_t GetRowSize(int64_t width, int bitsPerPixel) {
  return (width * bitsPerPixel + 31) / 32 * 4;
}

}  // namespace

bool BitmapBlock::Read(const void* pData, size_t size) {
  if (!pData || size < sizeof header) return false;
  std::memcpy(&header, pData, sizeof header);
  const size_t headerSize = header.biSize;
  if (headerSize < sizeof header || headerSize > LONGEST_HEADER || headerSize > size) return false;
  const BYTE* const bytes = static_cast<const BYTE*>(pData);
  size_t at = headerSize;
  if (!ReadColors(bytes, size, at)) return false;
  bits = std::span(bytes, size).subspan(at);
  header.biSize = sizeof header;
  header.biClrUsed = header.biClrImportant = 0;  // the table is always whole
  complete = HasAllBits();
  MakeInfo();
  return true;
}

// Moves `rAt` behind what was read.
bool BitmapBlock::ReadColors(const BYTE* pData, size_t size, size_t& rAt) {
  if (header.biBitCount <= 8) {
    colors.resize(size_t{1} << header.biBitCount);
  } else if (header.biCompression == BI_BITFIELDS) {
    colors.resize(3);
    // Longer headers hold the masks themselves, where the table of the short one begins.
    if (rAt >= sizeof header + MASKS_SIZE) {
      std::memcpy(colors.data(), pData + sizeof header, MASKS_SIZE);
      return true;
    }
  }
  const size_t length = colors.size() * sizeof(RGBQUAD);
  if (length > size - rAt) return false;
  if (length > 0) std::memcpy(colors.data(), pData + rAt, length);
  rAt += length;
  return true;
}

LONG BitmapBlock::GetAbsoluteHeight() const {
  return header.biHeight < 0 && header.biHeight != INT32_MIN ? -header.biHeight : header.biHeight;
}

bool BitmapBlock::HasAllBits() {
  const int64_t height = GetAbsoluteHeight();
  if (header.biWidth <= 0 || height <= 0) return false;
  if (header.biCompression == BI_RLE8 || header.biCompression == BI_RLE4) {
    // The announced size bounds what is read; what was cut off is left out of the picture.
    const size_t announced = header.biSizeImage == 0 ? bits.size() : header.biSizeImage;
    header.biSizeImage = static_cast<DWORD>(std::min<size_t>({announced, bits.size(), INT32_MAX}));
    return announced <= bits.size() && header.biWidth * height <= MOST_RUN_LENGTH_PIXELS;
  }
  const int64_t rowSize = GetRowSize(header.biWidth, header.biBitCount);
  return rowSize > 0 && static_cast<int64_t>(bits.size()) / rowSize >= height;
}

void BitmapBlock::MakeInfo() {
  const size_t length = sizeof header + colors.size() * sizeof(RGBQUAD);
  mInfo.resize(std::max(length, sizeof(BITMAPINFO)) / sizeof(DWORD));
  std::memcpy(mInfo.data(), &header, sizeof header);
  if (!colors.empty())
    std::memcpy(reinterpret_cast<BYTE*>(mInfo.data()) + sizeof header, colors.data(),
                colors.size() * sizeof(RGBQUAD));
}

}  // namespace orm
