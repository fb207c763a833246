// Bringing bitmap files into the form of resource data.
#include "BitmapFile.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <stdexcept>

namespace orm::rc {
namespace {

constexpr std::size_t fileHeaderSize = 14;
constexpr std::size_t coreHeader = 12;  // of files from before the 40-byte header
constexpr std::size_t shortHeader = 40;
constexpr std::size_t longestHeader = 124;
constexpr std::size_t masksSize = 12;
constexpr std::uint32_t uncompressed = 0;
constexpr std::uint32_t runs8 = 1;
constexpr std::uint32_t runs4 = 2;
constexpr std::uint32_t bitFields = 3;
constexpr std::uint32_t fourBitFields = 6;  // with an opacity mask

std::uint32_t Read32(std::string_view bytes, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = 4; i-- > 0;) value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
  return value;
}

std::uint32_t Read16(std::string_view bytes, std::size_t at) {
  return static_cast<unsigned char>(bytes[at]) |
         static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at + 1])) << 8;
}

void Write32(std::string& bytes, std::size_t at, std::uint32_t value) {
  for (std::size_t i = 0; i < 4; ++i, value >>= 8) bytes[at + i] = static_cast<char>(value);
}

bool IsRunOfBits(std::uint32_t mask) {
  return mask != 0 && std::popcount(mask) + std::countr_zero(mask) + std::countl_zero(mask) == 32;
}

// The masks are part of the header when it is long enough, else they follow it.
bool AreMasksSound(std::string_view resource, std::uint32_t bits) {
  const std::size_t headerSize = Read32(resource, 0);
  const std::size_t at = headerSize >= shortHeader + masksSize ? shortHeader : headerSize;
  if (resource.size() < at + masksSize) return false;
  const std::uint32_t red = Read32(resource, at);
  const std::uint32_t green = Read32(resource, at + 4);
  const std::uint32_t blue = Read32(resource, at + 8);
  return IsRunOfBits(red) && IsRunOfBits(green) && IsRunOfBits(blue) && (red & green) == 0 &&
         ((red | green) & blue) == 0 && (bits == 32 || (red | green | blue) >> bits == 0);
}

bool IsKnownForm(std::string_view resource, std::uint32_t bits, std::uint32_t compression) {
  switch (compression) {
    case uncompressed:
      return bits == 1 || bits == 4 || bits == 8 || bits == 16 || bits == 24 || bits == 32;
    case runs8:
      return bits == 8;
    case runs4:
      return bits == 4;
    default:
      return compression == bitFields && (bits == 16 || bits == 32) && AreMasksSound(resource, bits);
  }
}

// Whoever loads the resource later may rely on it. `pixels` is where the pixels begin.
void Check(std::string& resource, std::size_t pixels) {
  constexpr std::int64_t mostBytes = INT32_MAX;
  constexpr std::int64_t mostRunPixels = std::int64_t{1}
                                         << 26;  // runs can announce any size with a few bytes
  const std::int64_t width = static_cast<std::int32_t>(Read32(resource, 4));
  const std::int64_t rows = static_cast<std::int32_t>(Read32(resource, 8));
  const std::int64_t height = rows < 0 ? -rows : rows;
  const std::uint32_t bits = Read16(resource, 14);
  const std::uint32_t compression = Read32(resource, 16);
  if (Read16(resource, 12) != 1 || !IsKnownForm(resource, bits, compression))
    throw std::invalid_argument("has " + std::to_string(bits) +
                                " bits per pixel in a form that is not known");
  const std::int64_t stride = (width * bits + 31) / 32 * 4;
  const bool isRuns = compression == runs8 || compression == runs4;
  if (width <= 0 || height == 0 || stride > mostBytes / height || (isRuns && rows < 0) ||
      (isRuns && width * height > mostRunPixels))
    throw std::invalid_argument("has a size that makes no sense");
  const auto present = static_cast<std::int64_t>(resource.size() - pixels);
  if (isRuns) {
    if (Read32(resource, 20) > present) throw std::invalid_argument("is cut short");
    return;
  }
  // Some programs leave out the filling of the last row.
  if (present < stride * height - stride + (width * bits + 7) / 8)
    throw std::invalid_argument("is cut short");
  if (present < stride * height) resource.resize(pixels + static_cast<std::size_t>(stride * height));
}

// The oldest files count in 16 bits, and their colours have three bytes.
std::string FromCoreFile(std::string_view file, std::size_t pixels) {
  const std::string_view block = file.substr(fileHeaderSize);
  const std::uint32_t bits = Read16(block, 10);
  std::string result(shortHeader, '\0');
  Write32(result, 0, shortHeader);
  Write32(result, 4, Read16(block, 4));
  Write32(result, 8, Read16(block, 6));
  Write32(result, 12, Read16(block, 8) | bits << 16);
  if (bits <= 8) {
    std::string_view colors = block.substr(coreHeader, pixels - fileHeaderSize - coreHeader);
    for (std::size_t i = 0; i < std::size_t{1} << bits; ++i) {
      result += colors.substr(0, 3);
      result.resize(shortHeader + 4 * (i + 1));
      colors.remove_prefix(std::min<std::size_t>(colors.size(), 3));
    }
  }
  const std::size_t start = result.size();
  result += file.substr(pixels);
  Check(result, start);
  return result;
}

}  // namespace

std::string ResourceFromBitmapFile(std::string_view file) {
  if (file.size() < 2 || file.substr(0, 2) != "BM") throw std::invalid_argument("is no bitmap file");
  if (file.size() < fileHeaderSize + coreHeader) throw std::invalid_argument("is cut short");
  const std::size_t pixels = Read32(file, 10);
  const std::string_view block = file.substr(fileHeaderSize);
  const std::size_t headerSize = Read32(block, 0);
  if (headerSize != coreHeader && (headerSize < shortHeader || headerSize > longestHeader))
    throw std::invalid_argument("has a header of a kind that is not supported");
  if (headerSize > block.size() || pixels > file.size() || pixels < fileHeaderSize + headerSize)
    throw std::invalid_argument("is cut short");
  if (headerSize == coreHeader) return FromCoreFile(file, pixels);

  const std::uint32_t bits = Read16(block, 14);
  const std::uint32_t compression = Read32(block, 16);
  std::string result(block.substr(0, headerSize));
  std::string_view before = block.substr(headerSize, pixels - fileHeaderSize - headerSize);
  if (compression == bitFields || compression == fourBitFields) {
    if (headerSize < shortHeader + masksSize && before.size() < masksSize)
      throw std::invalid_argument("is cut short");
    if (headerSize < shortHeader + masksSize) result += before.substr(0, masksSize);
    Write32(result, 16, bitFields);
  } else if (bits <= 8) {
    const std::size_t table = std::size_t{4} << bits;
    const std::size_t used = Read32(block, 32);
    result += before.substr(0, std::min({table, before.size(), used == 0 ? table : used * 4}));
    result.resize(headerSize + table);
    if (used * 4 < table) Write32(result, 32, 0);
  }
  const std::size_t start = result.size();
  result += file.substr(pixels);
  Check(result, start);
  return result;
}

}  // namespace orm::rc
