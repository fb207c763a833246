// The characters of multibyte text, one reader for each kind of code page. A function over text is written
// once, for any reader, and instantiated for the three.
#pragma once

#include <cstddef>

#include "kernel/CodePage.h"
#include "kernel/CodePageTables.h"
#include "kernel/Utf8.h"

namespace orm::platform {

inline const char* Chars(const unsigned char* text) {
  return reinterpret_cast<const char*>(text);
}

struct Character {
  unsigned code;  // the bytes as one big-endian number
  std::size_t size;
};

// Each reads one character of a terminated text and knows the letter case of codes.

struct SingleByteReader {
  static constexpr bool isSingleByte = true;
  const CodePage& page;

  Character Read(const unsigned char* text) const { return {*text, 1}; }
  unsigned Lower(unsigned code) const { return code < 256 ? page.lower[code] : code; }
  unsigned Upper(unsigned code) const { return code < 256 ? page.upper[code] : code; }
};

struct DoubleByteReader {
  static constexpr bool isSingleByte = false;
  const CodePage& page;

  Character Read(const unsigned char* text) const {
    if (!page.isLead[*text] || text[1] == 0) return {*text, 1};
    return {static_cast<unsigned>(text[0] << 8 | text[1]), 2};
  }
  unsigned Lower(unsigned code) const {
    return code < 256 ? page.lower[code] : code < 65536 ? page.pairLower[code] : code;
  }
  unsigned Upper(unsigned code) const {
    return code < 256 ? page.upper[code] : code < 65536 ? page.pairUpper[code] : code;
  }
};

struct Utf8Reader {
  static constexpr bool isSingleByte = false;
  const CodePage& page;

  Character Read(const unsigned char* text) const {
    if (*text < 0x80) return {*text, 1};
    // A terminator ends every sequence that it cuts, so no byte after it is looked at.
    const Utf8Character character = ReadUtf8(text, text + 4);
    if (!character.valid) return {*text, 1};
    unsigned code = 0;
    for (std::uint32_t i = 0; i < character.size; ++i) code = code << 8 | text[i];
    return {code, character.size};
  }
  unsigned Lower(unsigned code) const { return code < 128 ? page.lower[code] : Map(code, LowerCase); }
  unsigned Upper(unsigned code) const { return code < 128 ? page.upper[code] : Map(code, UpperCase); }

 private:
  // A partner of another length would not fit in its place.
  static unsigned Map(unsigned code, std::uint32_t (*map)(std::uint32_t)) {
    unsigned char bytes[4];
    std::size_t size = 0;
    for (unsigned shift = 32; shift > 0;) {
      shift -= 8;
      const auto byte = static_cast<unsigned char>(code >> shift);
      if (byte != 0 || size != 0) bytes[size++] = byte;
    }
    const Utf8Character character = ReadUtf8(bytes, bytes + size);
    if (!character.valid) return code;
    unsigned char mapped[4];
    if (WriteUtf8(map(character.value), mapped) != size) return code;
    unsigned result = 0;
    for (std::size_t i = 0; i < size; ++i) result = result << 8 | mapped[i];
    return result;
  }
};

// Calls `function` with the reader of the process's code page.
template <typename Function>
auto WithReader(Function function) {
  const CodePage& page = AnsiCodePage();
  switch (page.kind) {
    case CodePage::Kind::SingleByte:
      return function(SingleByteReader{page});
    case CodePage::Kind::DoubleByte:
      return function(DoubleByteReader{page});
    case CodePage::Kind::Utf8:
      break;
  }
  return function(Utf8Reader{page});
}

}  // namespace orm::platform
