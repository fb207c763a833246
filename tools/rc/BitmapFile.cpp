// Bringing bitmap files into the form of resource data.
#include "BitmapFile.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>

namespace orm::rc {
namespace {

constexpr std::size_t fileHeaderSize = 14;
constexpr std::size_t coreHeader = 12;  // of files from before the 40-byte header
constexpr std::size_t shortHeader = 40;
constexpr std::size_t masksSize = 12;
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
  return result.append(file.substr(pixels));
}

}  // namespace

std::string ResourceFromBitmapFile(std::string_view file) {
  if (file.size() < 2 || file.substr(0, 2) != "BM") throw std::invalid_argument("is no bitmap file");
  if (file.size() < fileHeaderSize + coreHeader) throw std::invalid_argument("is cut short");
  const std::size_t pixels = Read32(file, 10);
  const std::string_view block = file.substr(fileHeaderSize);
  const std::size_t headerSize = Read32(block, 0);
  if (headerSize == coreHeader && pixels <= file.size() && pixels >= fileHeaderSize + coreHeader)
    return FromCoreFile(file, pixels);
  if (block.size() < shortHeader) throw std::invalid_argument("is cut short");
  const std::uint32_t bits = Read16(block, 14);
  const std::uint32_t compression = Read32(block, 16);
  if (headerSize < shortHeader) throw std::invalid_argument("has a header of a kind that is not supported");
  if (headerSize > block.size() || pixels > file.size() || pixels < fileHeaderSize + headerSize)
    throw std::invalid_argument("is cut short");

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
  return result.append(file.substr(pixels));
}

}  // namespace orm::rc
