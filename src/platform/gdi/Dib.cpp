// Reading BITMAPINFO headers and run-length data.
#include "gdi/Dib.h"

#include <algorithm>
#include <cstring>

namespace orm::platform::gdi {
namespace {

constexpr DWORD longestHeader = 124;

struct Masks {
  std::uint32_t red, green, blue;
};

Masks ReadMasks(const BITMAPINFO* info, const PixelFormat* model) {
  // Headers longer than 40 bytes hold the masks themselves, at the place where the shorter one's table
  // begins.
  Masks masks;
  std::memcpy(&masks, reinterpret_cast<const std::uint8_t*>(info) + sizeof(BITMAPINFOHEADER), sizeof masks);
  const bool isModelled = model && model->kind == PixelFormat::Kind::Direct &&
                          model->bits == info->bmiHeader.biBitCount &&
                          (masks.red | masks.green | masks.blue) == 0;
  return isModelled ? Masks{model->red.mask, model->green.mask, model->blue.mask} : masks;
}

bool ReadPaletteColors(Dib& dib, const std::uint8_t* table, std::size_t count, const Context& context) {
  const std::vector<Xrgb>& palette = context.palette->Colors();
  for (std::size_t i = 0; i < count; ++i) {
    WORD index;
    std::memcpy(&index, table + 2 * i, 2);
    dib.colors[i] = palette[index % palette.size()];
  }
  return true;
}

bool ReadColors(Dib& dib, const BITMAPINFO* info, UINT usage, const Context* context) {
  const std::size_t room = std::size_t{1} << dib.format.bits;
  const std::size_t used = info->bmiHeader.biClrUsed;
  const std::size_t count = used == 0 ? room : std::min(used, room);
  const std::uint8_t* table = reinterpret_cast<const std::uint8_t*>(info) + info->bmiHeader.biSize;
  dib.colors.assign(room, 0);
  if (usage == DIB_PAL_COLORS) return context && ReadPaletteColors(dib, table, count, *context);
  for (std::size_t i = 0; i < count; ++i) {
    RGBQUAD color;
    std::memcpy(&color, table + sizeof color * i, sizeof color);
    dib.colors[i] =
        static_cast<Xrgb>(color.rgbRed) << 16 | static_cast<Xrgb>(color.rgbGreen) << 8 | color.rgbBlue;
  }
  return true;
}

bool ReadFormat(Dib& dib, const BITMAPINFO* info, const PixelFormat* model) {
  const BITMAPINFOHEADER& header = info->bmiHeader;
  const int bits = header.biBitCount;
  switch (header.biCompression) {
    case BI_RGB:
      if (bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32) return false;
      dib.format = bits <= 8 ? PixelFormat::Indexed(bits) : PixelFormat::Direct(bits);
      return true;
    case BI_RLE8:
    case BI_RLE4:
      if (bits != (header.biCompression == BI_RLE8 ? 8 : 4) || !dib.bottomUp) return false;
      dib.format = PixelFormat::Indexed(bits);
      dib.runLength = true;
      dib.runBytes = header.biSizeImage;
      return true;
    case BI_BITFIELDS: {
      if (bits != 16 && bits != 32) return false;
      const Masks masks = ReadMasks(info, model);
      if (!PixelFormat::ValidMasks(bits, masks.red, masks.green, masks.blue)) return false;
      dib.format = PixelFormat::Direct(bits, masks.red, masks.green, masks.blue);
      return true;
    }
    default:
      return false;
  }
}

// Walks the data of one picture.
class RunDecoder {
 public:
  RunDecoder(const Dib& dib, std::span<const std::uint8_t> data, const RunSink& sink)
      : mDib(dib), mData(data), mSink(sink), mIndices(256) {}

  void Decode() {
    while (mY < mDib.height && mAt + 2 <= mData.size()) {
      const std::uint8_t count = mData[mAt];
      const std::uint8_t value = mData[mAt + 1];
      mAt += 2;
      if (count > 0) {
        Repeat(count, value);
      } else if (value == endOfLine) {
        mX = 0;
        ++mY;
      } else if (value == endOfPicture || !(value == delta ? Skip() : Literal(value))) {
        return;
      }
    }
  }

 private:
  static constexpr std::uint8_t endOfLine = 0;
  static constexpr std::uint8_t endOfPicture = 1;
  static constexpr std::uint8_t delta = 2;

  void Repeat(int count, std::uint8_t value) {
    const bool nibbles = mDib.format.bits == 4;
    for (int i = 0; i < count; ++i)
      mIndices[static_cast<std::size_t>(i)] = nibbles ? (i % 2 ? value & 0xFu : value >> 4u) : value;
    Put(count);
  }

  bool Skip() {
    if (mAt + 2 > mData.size()) return false;
    mX = std::min(mX + mData[mAt], mDib.width);
    mY += mData[mAt + 1];
    mAt += 2;
    return true;
  }

  bool Literal(int count) {
    const bool nibbles = mDib.format.bits == 4;
    const std::size_t bytes =
        nibbles ? static_cast<std::size_t>(count + 1) / 2 : static_cast<std::size_t>(count);
    if (bytes > mData.size() - mAt) return false;
    for (int i = 0; i < count; ++i) {
      const std::uint8_t byte = mData[mAt + static_cast<std::size_t>(nibbles ? i / 2 : i)];
      mIndices[static_cast<std::size_t>(i)] = !nibbles ? byte : i % 2 ? byte & 0xFu : byte >> 4u;
    }
    Put(count);
    mAt += std::min(bytes + bytes % 2, mData.size() - mAt);  // padded to an even number of bytes
    return true;
  }

  void Put(int count) {
    const int fit = std::min(count, mDib.width - mX);
    if (fit > 0) mSink(mX, mY, fit, mIndices.data());
    mX += fit;
  }

  const Dib& mDib;
  std::span<const std::uint8_t> mData;
  const RunSink& mSink;
  std::vector<std::uint32_t> mIndices;
  std::size_t mAt = 0;
  int mX = 0;
  int mY = 0;
};

}  // namespace

std::optional<Dib> ParseDibHeader(const BITMAPINFO* info, const PixelFormat* model) {
  if (!info) return std::nullopt;
  const BITMAPINFOHEADER& header = info->bmiHeader;
  if (header.biSize < sizeof(BITMAPINFOHEADER) || header.biSize > longestHeader || header.biPlanes != 1)
    return std::nullopt;
  if (header.biWidth <= 0 || header.biHeight == 0 || header.biHeight == INT32_MIN) return std::nullopt;
  Dib dib;
  dib.width = header.biWidth;
  dib.height = header.biHeight < 0 ? -header.biHeight : header.biHeight;
  dib.bottomUp = header.biHeight > 0;
  if (!ReadFormat(dib, info, model)) return std::nullopt;
  dib.stride = Surface::StrideFor(dib.width, dib.format.bits, 4);
  if (dib.stride > INT32_MAX / dib.height) return std::nullopt;
  return dib;
}

std::optional<Dib> ParseDib(const BITMAPINFO* info, UINT usage, const Context* context) {
  auto dib = ParseDibHeader(info);
  if (!dib || usage > DIB_PAL_COLORS) return std::nullopt;
  if (dib->format.bits <= 8 && !ReadColors(*dib, info, usage, context)) return std::nullopt;
  return dib;
}

void DecodeRuns(const Dib& dib, std::span<const std::uint8_t> data, const RunSink& sink) {
  RunDecoder(dib, data, sink).Decode();
}

}  // namespace orm::platform::gdi
