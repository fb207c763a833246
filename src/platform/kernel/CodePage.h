// The code pages as the platform's own code sees them: tables built once for each page, and conversions
// between UTF-8 (names on disk, keys in stores) and the ANSI code page (names in the interfaces).
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "win32/types.h"

namespace orm::platform {

// A 16-bit value for each UTF-16 unit, in rows of 256: most pages have characters in few rows, and a row is
// made when its first value is set.
class WideTable {
 public:
  static constexpr std::uint16_t noValue = 0xFFFF;

  std::uint16_t operator[](std::size_t unit) const {
    const auto& row = mRows[unit >> 8];
    return row ? row[unit & 0xFF] : noValue;
  }
  void Set(std::size_t unit, std::uint16_t value);

 private:
  std::array<std::unique_ptr<std::uint16_t[]>, 256> mRows;
};

// Tables of one code page, immutable once built and never freed. In a double-byte page the code of a
// character is its one byte, or lead byte * 256 + trail byte. The tables of pairs stand in double-byte pages
// only.
struct CodePage {
  enum class Kind { SingleByte, DoubleByte, Utf8 };
  using PairTable = std::unique_ptr<std::uint16_t[]>;  // 65,536 entries

  // No page has this code, nor this UTF-16 unit.
  static constexpr std::uint16_t noCharacter = WideTable::noValue;

  UINT number = 0;
  Kind kind = Kind::SingleByte;
  std::uint16_t defaultWide = '?';         // stands for bytes without meaning
  std::array<bool, 256> isLead{};          // begins a double-byte character
  std::array<unsigned char, 256> lower{};  // of single bytes
  std::array<unsigned char, 256> upper{};
  std::array<std::uint16_t, 256> toWide{};  // of single bytes; noCharacter for a lead byte
  PairTable pairToWide, pairLower, pairUpper;
  WideTable fromWide;  // code, or noCharacter; empty in UTF-8

  // Bytes of the character at `text`; nothing at or after `end` is looked at. `text` lies before `end`.
  [[nodiscard]] std::size_t CharacterSize(const unsigned char* text, const unsigned char* end) const;
};

// The tables of a supported code page, CP_ACP and its like resolved; null when `number` is none. Thread-safe.
const CodePage* FindCodePage(UINT number);

extern constinit std::atomic<const CodePage*> ansiCodePage;
const CodePage& ResolveAnsiCodePage();

// The tables of the process's ANSI code page. While the registry is being asked for it, the asking thread
// sees 1252.
inline const CodePage& AnsiCodePage() {
  const CodePage* page = ansiCodePage.load(std::memory_order_acquire);
  return page != nullptr ? *page : ResolveAnsiCodePage();
}

// Makes `number` the ANSI code page of the process from now on, for tests; false when it is not supported.
// Texts that were converted before are the caller's concern.
ORM_PLATFORM_API bool SetAnsiCodePage(UINT number);

// UTF-8 of a text in the ANSI code page. A UTF-8 page leaves the text as it is, so that a name on disk that
// is not well-formed survives the round trip.
ORM_PLATFORM_API std::string Utf8FromAnsi(std::string_view text);

// The text in the ANSI code page; a character that the page lacks becomes '?', bytes that are not UTF-8 too.
ORM_PLATFORM_API std::string AnsiFromUtf8(std::string_view text);

// The same conversions for a page of the caller's choice.
std::string Utf8From(const CodePage& page, std::string_view text);

}  // namespace orm::platform
