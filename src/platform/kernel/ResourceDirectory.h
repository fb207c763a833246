// The resources of a module as they lie in its image: one exported block of bytes that the resource compiler
// writes and the resource functions read. All numbers are 32 bits, little-endian; offsets count from the
// start of the block.
//
//   0  "ORMR"      16 + 20 * i  type      of entry i
//   4  version     20 + 20 * i  name
//   8  block size  24 + 20 * i  language
//   12 entries     28 + 20 * i  offset of the data, a multiple of 8
//                  32 + 20 * i  size of the data
//
// A type or name below 0x10000 is a number. One with the top bit set is the offset of a text: its length in
// 32 bits and its bytes, UTF-8 in upper case without a terminator.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace orm::platform::resource {

inline constexpr char symbolName[] = "orm_resource_directory";
inline constexpr std::string_view magic = "ORMR";
inline constexpr std::uint32_t version = 1;
inline constexpr std::size_t headerSize = 16;
inline constexpr std::size_t entrySize = 20;
inline constexpr std::size_t dataAlignment = 8;
inline constexpr std::uint32_t textFlag = 0x80000000;
inline constexpr std::uint16_t usEnglish = 0x409;

}  // namespace orm::platform::resource
