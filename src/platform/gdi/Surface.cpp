// Memory of surfaces, pixel formats, and access to runs of pixel values.
#include "gdi/Surface.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "gdi/SystemPalette.h"

namespace orm::platform::gdi {
namespace {

bool IsRun(std::uint32_t mask) {
  if (mask == 0) return false;
  const std::uint32_t low = mask >> std::countr_zero(mask);
  return (low & (low + 1)) == 0;
}

template <int bits>
void ReadPacked(const std::uint8_t* row, int x, int count, std::uint32_t* values) {
  constexpr int perByte = 8 / bits;
  constexpr std::uint32_t mask = (1u << bits) - 1;
  const int end = x + count;
  const auto one = [&] { *values++ = row[x / perByte] >> (8 - bits - x % perByte * bits) & mask; };
  for (; x < end && x % perByte != 0; ++x) one();
  for (; x + perByte <= end; x += perByte, values += perByte) {
    const std::uint32_t byte = row[x / perByte];
    if constexpr (bits == 1) {  // by comparing, which is done for several at once
      for (int i = 0; i < perByte; ++i) values[i] = (byte & 0x80u >> i) != 0;
    } else {
      for (int i = 0; i < perByte; ++i) values[i] = byte >> (8 - bits - i * bits) & mask;
    }
  }
  for (; x < end; ++x) one();
}

// Puts the low bits of eight values into each byte, the first value's highest, for as many bytes as are done
// at once. Returns how many these were.
int PackBits(std::uint8_t* bytes, int count, const std::uint32_t* values) {
  constexpr int atOnce = 4;
  constexpr std::ptrdiff_t valuesAtOnce = std::ptrdiff_t{8} * atOnce;
  std::uint8_t single[valuesAtOnce];
  int done = 0;
  for (; done + atOnce <= count; done += atOnce, values += valuesAtOnce) {
    for (std::ptrdiff_t i = 0; i < valuesAtOnce; ++i) single[i] = static_cast<std::uint8_t>(values[i] & 1);
    const std::uint8_t* eight = single;
    for (int i = 0; i < atOnce; ++i, eight += 8) {
      std::uint64_t word;
      std::memcpy(&word, eight, sizeof word);
      // Each factor's bit brings one byte's bit to its place in the top byte; no two sums meet.
      bytes[done + i] = static_cast<std::uint8_t>(word * 0x8040201008040201u >> 56);
    }
  }
  return done;
}

template <int bits>
void WritePacked(std::uint8_t* row, int x, int count, const std::uint32_t* values) {
  constexpr int perByte = 8 / bits;
  constexpr std::uint32_t mask = (1u << bits) - 1;
  const int end = x + count;
  const auto one = [&] {
    const int shift = 8 - bits - x % perByte * bits;
    std::uint8_t& byte = row[x / perByte];
    byte = static_cast<std::uint8_t>((byte & ~(mask << shift)) | (*values++ & mask) << shift);
  };
  for (; x < end && x % perByte != 0; ++x) one();
  if constexpr (bits == 1) {
    const int packed = PackBits(row + x / perByte, (end - x) / perByte, values);
    x += packed * perByte;
    values += std::ptrdiff_t{packed} * perByte;
  }
  for (; x + perByte <= end; x += perByte, values += perByte) {
    std::uint32_t byte = 0;
    for (int i = 0; i < perByte; ++i) byte |= (values[i] & mask) << (8 - bits - i * bits);
    row[x / perByte] = static_cast<std::uint8_t>(byte);
  }
  for (; x < end; ++x) one();
}

}  // namespace

Channel Channel::FromMask(std::uint32_t mask) {
  if (mask == 0) return {};
  return {mask, std::countr_zero(mask), std::popcount(mask)};
}

std::uint32_t Channel::Expand(std::uint32_t pixel) const {
  const std::uint32_t value = (pixel & mask) >> shift;
  if (bits >= 8) return value >> (bits - 8);
  std::uint32_t wide = 0;  // the bits repeated, so that the largest value becomes 255
  for (int have = 8 - bits; have > -bits; have -= bits) wide |= have >= 0 ? value << have : value >> -have;
  return wide;
}

std::uint32_t Channel::Pack(std::uint32_t value) const {
  return (bits >= 8 ? value << (bits - 8) : value >> (8 - bits)) << shift & mask;
}

PixelFormat PixelFormat::Mono() {
  PixelFormat format;
  format.kind = Kind::Mono;
  format.bits = 1;
  return format;
}

PixelFormat PixelFormat::Indexed(int bits) {
  PixelFormat format;
  format.kind = Kind::Indexed;
  format.bits = bits;
  return format;
}

PixelFormat PixelFormat::Device() {
  PixelFormat format;
  format.kind = Kind::Device;
  format.bits = 8;
  return format;
}

PixelFormat PixelFormat::Direct(int bits) {
  return bits == 16 ? Direct(16, 0x7C00, 0x03E0, 0x001F) : Direct(bits, 0xFF0000, 0xFF00, 0xFF);
}

PixelFormat PixelFormat::Direct(int bits, std::uint32_t red, std::uint32_t green, std::uint32_t blue) {
  PixelFormat format;
  format.bits = bits;
  format.red = Channel::FromMask(red);
  format.green = Channel::FromMask(green);
  format.blue = Channel::FromMask(blue);
  format.plain = red == 0xFF0000 && green == 0xFF00 && blue == 0xFF;
  return format;
}

bool PixelFormat::ValidMasks(int bits, std::uint32_t red, std::uint32_t green, std::uint32_t blue) {
  const std::uint32_t all = red | green | blue;
  return IsRun(red) && IsRun(green) && IsRun(blue) && (red & green) == 0 && (red & blue) == 0 &&
         (green & blue) == 0 && (bits == 32 || all >> bits == 0);
}

bool PixelFormat::SameDirect(const PixelFormat& other) const {
  return kind == Kind::Direct && other.kind == Kind::Direct && red.mask == other.red.mask &&
         green.mask == other.green.mask && blue.mask == other.blue.mask;
}

std::int64_t Surface::StrideFor(std::int64_t width, int bits, int alignment) {
  const std::int64_t unit = std::int64_t{alignment} * 8;
  return (width * bits + unit - 1) / unit * alignment;
}

bool Surface::Allocate(const PixelFormat& pixels, int newWidth, int newHeight, int alignment, bool upwards) {
  if (!AllocateForUse(pixels, newWidth, newHeight, alignment, upwards)) return false;
  Complete();
  return true;
}

bool Surface::AllocateForUse(const PixelFormat& pixels, int newWidth, int newHeight, int alignment,
                             bool upwards) {
  if (newWidth <= 0 || newHeight <= 0) return false;
  const std::int64_t rowBytes = StrideFor(newWidth, pixels.bits, alignment);
  if (rowBytes > INT32_MAX / newHeight) return false;
  mMemory = PixelMemory(static_cast<std::size_t>(rowBytes) * static_cast<std::size_t>(newHeight));
  if (!mMemory.Get()) return false;
  View(pixels, newWidth, newHeight, rowBytes, upwards, mMemory.Get());
  if (!mMemory.IsZeroed()) mFreshRow = 0;
  return true;
}

void Surface::View(const PixelFormat& pixels, int newWidth, int newHeight, std::int64_t rowBytes,
                   bool upwards, void* memory) {
  format = pixels;
  width = newWidth;
  height = newHeight;
  stride = rowBytes;
  bottomUp = upwards;
  bits = static_cast<std::uint8_t*>(memory);
  mFreshRow = newHeight;
  mpTop = upwards ? bits + rowBytes * (newHeight - 1) : bits;
  mStep = upwards ? -rowBytes : rowBytes;
}

void Surface::Complete() {
  for (; mFreshRow < height; ++mFreshRow) std::memset(Row(mFreshRow), 0, static_cast<std::size_t>(stride));
}

void Surface::Overwrite(const RECT& target) {
  const bool coversRows = target.left == 0 && std::int64_t{target.right} * format.bits == stride * 8;
  if (coversRows && target.top <= mFreshRow)
    mFreshRow = std::max<int>(mFreshRow, target.bottom);
  else
    Complete();
}

void Surface::Read(int x, int y, int count, std::uint32_t* values) const {
  const std::uint8_t* row = Row(y);
  switch (format.bits) {
    case 1:
      return ReadPacked<1>(row, x, count, values);
    case 4:
      return ReadPacked<4>(row, x, count, values);
    case 8:
      for (int i = 0; i < count; ++i) values[i] = row[x + i];
      return;
    case 16:
      row += 2 * static_cast<std::ptrdiff_t>(x);
      for (int i = 0; i < count; ++i, row += 2) values[i] = row[0] | static_cast<std::uint32_t>(row[1]) << 8;
      return;
    case 24: {
      row += 3 * static_cast<std::ptrdiff_t>(x);
      int i = 0;
      // Two pixels of eight bytes, while what follows them is still of the row.
      for (; i < count - 2; i += 2, row += 6) {
        std::uint64_t two;
        std::memcpy(&two, row, sizeof two);
        two = (two & 0xFFFFFF) | (two << 8 & 0xFFFFFF00000000);
        std::memcpy(values + i, &two, sizeof two);
      }
      for (; i < count; ++i, row += 3)
        values[i] = row[0] | std::uint32_t{row[1]} << 8 | std::uint32_t{row[2]} << 16;
      return;
    }
    default:
      std::memcpy(values, row + 4 * static_cast<std::ptrdiff_t>(x), 4 * static_cast<std::size_t>(count));
  }
}

void Surface::Write(int x, int y, int count, const std::uint32_t* values) {
  std::uint8_t* row = Row(y);
  switch (format.bits) {
    case 1:
      return WritePacked<1>(row, x, count, values);
    case 4:
      return WritePacked<4>(row, x, count, values);
    case 8:
      for (int i = 0; i < count; ++i) row[x + i] = static_cast<std::uint8_t>(values[i]);
      return;
    case 16:
      row += 2 * static_cast<std::ptrdiff_t>(x);
      for (int i = 0; i < count; ++i, row += 2) {
        const auto value = static_cast<std::uint16_t>(values[i]);
        std::memcpy(row, &value, 2);
      }
      return;
    case 24:
      row += 3 * static_cast<std::ptrdiff_t>(x);
      for (int i = 0; i < count; ++i, row += 3) {
        row[0] = static_cast<std::uint8_t>(values[i]);
        row[1] = static_cast<std::uint8_t>(values[i] >> 8);
        row[2] = static_cast<std::uint8_t>(values[i] >> 16);
      }
      return;
    default:
      std::memcpy(row + 4 * static_cast<std::ptrdiff_t>(x), values, 4 * static_cast<std::size_t>(count));
  }
}

Xrgb Surface::ColorOf(std::uint32_t value) const {
  switch (format.kind) {
    case PixelFormat::Kind::Mono:
      return value & 1 ? 0xFFFFFF : 0;
    case PixelFormat::Kind::Indexed:
      return colors[value & (colors.size() - 1)];
    case PixelFormat::Kind::Device:
      return SystemPalette::The().ColorAt(value & 0xFF);
    case PixelFormat::Kind::Direct:
      break;
  }
  if (format.plain) return value & 0xFFFFFF;
  return format.red.Expand(value) << 16 | format.green.Expand(value) << 8 | format.blue.Expand(value);
}

std::uint32_t Surface::Nearest(Xrgb color) const {
  switch (format.kind) {
    case PixelFormat::Kind::Mono:
      return NearestColor(std::array<Xrgb, 2>{0, 0xFFFFFF}.data(), 2, color);
    case PixelFormat::Kind::Indexed:
      return NearestColor(colors.data(), colors.size(), color);
    case PixelFormat::Kind::Device:
      return SystemPalette::The().Nearest(color);
    case PixelFormat::Kind::Direct:
      break;
  }
  if (format.plain) return color & 0xFFFFFF;
  return format.red.Pack(color >> 16 & 0xFF) | format.green.Pack(color >> 8 & 0xFF) |
         format.blue.Pack(color & 0xFF);
}

SurfaceLock::SurfaceLock(Unprepared, Surface& first, Surface& second) {
  if (&first == &second) {
    mFirst = std::unique_lock(first.lock);
    return;
  }
  mFirst = std::unique_lock(first.lock, std::defer_lock);
  mSecond = std::unique_lock(second.lock, std::defer_lock);
  std::lock(mFirst, mSecond);
}

std::uint32_t NearestColor(const Xrgb* colors, std::size_t count, Xrgb color) {
  std::uint32_t best = 0;
  int bestDistance = INT32_MAX;
  for (std::size_t i = 0; i < count; ++i) {
    const int red = static_cast<int>(colors[i] >> 16 & 0xFF) - static_cast<int>(color >> 16 & 0xFF);
    const int green = static_cast<int>(colors[i] >> 8 & 0xFF) - static_cast<int>(color >> 8 & 0xFF);
    const int blue = static_cast<int>(colors[i] & 0xFF) - static_cast<int>(color & 0xFF);
    const int distance = red * red + green * green + blue * blue;
    if (distance < bestDistance) {
      bestDistance = distance;
      best = static_cast<std::uint32_t>(i);
    }
  }
  return best;
}

std::vector<Xrgb> StandardColors(int bits) {
  if (bits == 1) return {0, 0xFFFFFF};
  if (bits == 4)
    return {0x000000, 0x800000, 0x008000, 0x808000, 0x000080, 0x800080, 0x008080, 0x808080,
            0xC0C0C0, 0xFF0000, 0x00FF00, 0xFFFF00, 0x0000FF, 0xFF00FF, 0x00FFFF, 0xFFFFFF};
  std::vector<Xrgb> colors(256);
  for (std::uint32_t i = 0; i < 256; ++i) colors[i] = SystemPalette::FixedColor(i);
  std::uint32_t next = 10;
  for (Xrgb red = 0; red < 6; ++red)
    for (Xrgb green = 0; green < 6; ++green)
      for (Xrgb blue = 0; blue < 6; ++blue) colors[next++] = red * 51 << 16 | green * 51 << 8 | blue * 51;
  return colors;
}

}  // namespace orm::platform::gdi
