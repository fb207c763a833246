// Texts between the machine's ANSI code page, UTF-8 (command line, terminal, JSON) and UTF-16 (settings
// files). Conversions say when a character has no counterpart; nothing is replaced silently where data would
// be lost.
#pragma once

#include <win32.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace orm::tool {

// A text that cannot be converted: at which byte of the source, and why.
class TextError : public std::runtime_error {
 public:
  TextError(std::size_t where, const std::string& why) : std::runtime_error(why), at(where) {}
  std::size_t at;
};

// Strict conversions; throw TextError.
std::string AnsiFromText(std::string_view utf8);
std::string AnsiFromWide(std::u16string_view wide);
std::u16string WideFromAnsi(std::string_view ansi);
std::u16string WideFromText(std::string_view utf8);
std::string TextFromWide(std::u16string_view wide);
std::string TextFromAnsi(std::string_view ansi);

// For eyes only: what has no counterpart becomes a replacement character.
std::string ToDisplay(std::string_view ansi);
// The same with control characters as escapes, so that a text stays on its line.
std::string ToDisplayLine(std::string_view ansi);

// Length in bytes of the well-formed UTF-8 character at `at`, 0 when there is none.
std::size_t Utf8CharacterSize(std::string_view text, std::size_t at);
// Length in bytes of the character of the ANSI code page at `at`, which is inside the text.
std::size_t AnsiCharacterSize(std::string_view text, std::size_t at);
// Columns that a UTF-8 text takes on a terminal, one for each character.
std::size_t DisplayWidth(std::string_view utf8);

std::string HexOf(std::string_view bytes);
std::optional<std::string> BytesFromHex(std::string_view hex);

}  // namespace orm::tool
