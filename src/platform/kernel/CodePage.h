// The code pages as the platform's own code sees them: tables built once for each page, and conversions
// between UTF-8 (names on disk, keys in stores) and the ANSI code page (names in the interfaces).
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "win32/types.h"

namespace orm::platform {

// Tables of one code page, immutable once built and never freed. For a double-byte page the code of a
// character is the byte, or lead byte * 256 + trail byte.
struct CodePage {
  enum class Kind { SingleByte, DoubleByte, Utf8 };

  static constexpr std::uint16_t noCharacter = 0xFFFF;  // no page maps to this code or this unit

  UINT number;
  Kind kind;
  std::array<bool, 256> isLead;          // begins a double-byte character
  std::array<unsigned char, 256> lower;  // single bytes; a byte that changes its length or has no case stays
  std::array<unsigned char, 256> upper;
  std::array<std::uint16_t, 256>
      toWide;  // single bytes; noCharacter for a lead byte or a byte without meaning
  std::unique_ptr<std::uint16_t[]> pairToWide;  // [65536] by code; double-byte pages only
  std::unique_ptr<std::uint16_t[]> fromWide;    // [65536] code, or noCharacter; not in UTF-8

  // Bytes of the character at `text`, which is not empty; `end` bounds what may be looked at.
  [[nodiscard]] std::size_t CharacterSize(const unsigned char* text, const unsigned char* end) const;
};

// The tables of a supported code page; null when `number` is none. CP_ACP and its like are resolved.
// Thread-safe. Throws nothing; ends the process when memory runs out.
const CodePage* FindCodePage(UINT number);

// The tables of the process's ANSI code page. While the registry is being asked for it, the asking thread
// sees 1252.
const CodePage& AnsiCodePage();

// Makes `number` the ANSI code page of the process from now on, for tests; false when it is not supported.
// Texts that were converted before are the caller's concern.
ORM_PLATFORM_API bool SetAnsiCodePage(UINT number);

// UTF-8 of a text in the ANSI code page. Bytes without meaning become U+FFFD in a UTF-8 page, else what the
// page's table says.
ORM_PLATFORM_API std::string Utf8FromAnsi(std::string_view text);

// The text in the ANSI code page; a character that the page lacks, or that is not UTF-8, becomes '?'.
ORM_PLATFORM_API std::string AnsiFromUtf8(std::string_view text);

}  // namespace orm::platform
