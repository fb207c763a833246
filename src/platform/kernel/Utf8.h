// UTF-8 (RFC 3629) one character at a time: shortest forms only, no surrogates, nothing above U+10FFFF.
#pragma once

#include <cstddef>
#include <cstdint>

namespace orm::platform {

inline constexpr std::uint32_t replacementCharacter = 0xFFFD;

struct Utf8Character {
  std::uint32_t value;  // scalar value; replacementCharacter when not valid
  std::uint32_t
      size;  // bytes taken; of an ill-formed sequence, its longest start that could have become valid
  bool valid;
};

// Reads the character at `text`, which lies before `end`; nothing at or after `end` is looked at.
inline Utf8Character ReadUtf8(const unsigned char* text, const unsigned char* end) {
  const unsigned first = text[0];
  if (first < 0x80) return {first, 1, true};
  if (first < 0xC2 || first > 0xF4) return {replacementCharacter, 1, false};
  const std::uint32_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  // The second byte is narrower after four lead bytes: it excludes overlong forms, surrogates and what lies
  // above U+10FFFF.
  unsigned low = first == 0xE0 ? 0xA0u : first == 0xF0 ? 0x90u : 0x80u;
  unsigned high = first == 0xED ? 0x9Fu : first == 0xF4 ? 0x8Fu : 0xBFu;
  std::uint32_t value = first & (0x7Fu >> length);
  for (std::uint32_t i = 1; i < length; ++i) {
    if (text + i >= end || text[i] < low || text[i] > high) return {replacementCharacter, i, false};
    value = value << 6 | (text[i] & 0x3Fu);
    low = 0x80;
    high = 0xBF;
  }
  return {value, length, true};
}

// Writes a scalar value; returns the bytes used, at most 4.
inline std::size_t WriteUtf8(std::uint32_t value, unsigned char* bytes) {
  if (value < 0x80) {
    bytes[0] = static_cast<unsigned char>(value);
    return 1;
  }
  const std::size_t length = value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
  for (std::size_t i = length - 1; i > 0; --i) {
    bytes[i] = static_cast<unsigned char>(0x80 | (value & 0x3F));
    value >>= 6;
  }
  bytes[0] = static_cast<unsigned char>((0xF00u >> length) | value);
  return length;
}

}  // namespace orm::platform
