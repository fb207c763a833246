// Conversions over the platform's code page functions.
#include "Text.h"

#include <climits>
#include <cstdio>

namespace orm::tool {

namespace {

constexpr char32_t NO_CHARACTER = 0xFFFFFFFF;

std::string UnicodeName(char32_t character) {
  char name[16];
  std::snprintf(name, sizeof name, "U+%04X", static_cast<unsigned>(character));
  return name;
}

// The character at `at`, whose size is stored; NO_CHARACTER when the bytes are not UTF-8 (RFC 3629).
char32_t DecodeUtf8(std::string_view text, std::size_t at, std::size_t& size) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
  const unsigned char first = byte(0);
  size = 1;
  if (first < 0x80) return first;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() - at < length) return NO_CHARACTER;
  char32_t character = first & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return NO_CHARACTER;
    character = character << 6 | (byte(i) & 0x3F);
  }
  constexpr char32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
  if (character < least[length] || character > 0x10FFFF || (character >= 0xD800 && character < 0xE000)) {
    return NO_CHARACTER;
  }
  size = length;
  return character;
}

void AppendWide(std::u16string& wide, char32_t character) {
  if (character < 0x10000) {
    wide.push_back(static_cast<char16_t>(character));
  } else {
    wide.push_back(static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10)));
    wide.push_back(static_cast<char16_t>(0xDC00 + ((character - 0x10000) & 0x3FF)));
  }
}

void AppendUtf8(std::string& text, char32_t character) {
  const auto add = [&](char32_t bits) { text.push_back(static_cast<char>(bits)); };
  if (character < 0x80) {
    add(character);
  } else if (character < 0x800) {
    add(0xC0 | character >> 6);
    add(0x80 | (character & 0x3F));
  } else if (character < 0x10000) {
    add(0xE0 | character >> 12);
    add(0x80 | (character >> 6 & 0x3F));
    add(0x80 | (character & 0x3F));
  } else {
    add(0xF0 | character >> 18);
    add(0x80 | (character >> 12 & 0x3F));
    add(0x80 | (character >> 6 & 0x3F));
    add(0x80 | (character & 0x3F));
  }
}

// The character at unit `at`; NO_CHARACTER for half a surrogate pair.
char32_t DecodeWide(std::u16string_view wide, std::size_t at, std::size_t& size) {
  size = 1;
  const char16_t unit = wide[at];
  if (unit < 0xD800 || unit >= 0xE000) return unit;
  if (unit >= 0xDC00 || at + 1 == wide.size()) return NO_CHARACTER;
  const char16_t low = wide[at + 1];
  if (low < 0xDC00 || low >= 0xE000) return NO_CHARACTER;
  size = 2;
  return 0x10000u + (static_cast<char32_t>(unit - 0xD800) << 10) + static_cast<char32_t>(low - 0xDC00);
}

const WCHAR* Units(const char16_t* wide) {
  return reinterpret_cast<const WCHAR*>(wide);
}

// Converts one character; false when the code page lacks it.
bool AppendAnsi(std::string& ansi, std::u16string_view character) {
  char bytes[8];
  const bool utf8 = GetACP() == CP_UTF8;
  BOOL replaced = FALSE;
  const int size = WideCharToMultiByte(CP_ACP, utf8 ? WC_ERR_INVALID_CHARS : WC_NO_BEST_FIT_CHARS,
                                       Units(character.data()), static_cast<int>(character.size()), bytes,
                                       sizeof bytes, nullptr, utf8 ? nullptr : &replaced);
  if (size <= 0 || replaced) return false;
  ansi.append(bytes, static_cast<std::size_t>(size));
  return true;
}

}  // namespace

std::size_t Utf8CharacterSize(std::string_view text, std::size_t at) {
  std::size_t size = 0;
  return DecodeUtf8(text, at, size) == NO_CHARACTER ? 0 : size;
}

std::size_t AnsiCharacterSize(std::string_view text, std::size_t at) {
  if (static_cast<unsigned char>(text[at]) < 0x80) return 1;
  if (GetACP() == CP_UTF8) return std::max<std::size_t>(Utf8CharacterSize(text, at), 1);
  return IsDBCSLeadByte(static_cast<BYTE>(text[at])) && at + 1 < text.size() ? 2 : 1;
}

std::u16string WideFromText(std::string_view utf8) {
  std::u16string wide;
  wide.reserve(utf8.size());
  for (std::size_t at = 0, size = 0; at < utf8.size(); at += size) {
    const char32_t character = DecodeUtf8(utf8, at, size);
    if (character == NO_CHARACTER) throw TextError(at, "the bytes are not UTF-8 text");
    AppendWide(wide, character);
  }
  return wide;
}

std::string TextFromWide(std::u16string_view wide) {
  std::string text;
  text.reserve(wide.size());
  for (std::size_t at = 0, size = 0; at < wide.size(); at += size) {
    const char32_t character = DecodeWide(wide, at, size);
    if (character == NO_CHARACTER) throw TextError(at * 2, "half a surrogate pair is not UTF-16 text");
    AppendUtf8(text, character);
  }
  return text;
}

std::string AnsiFromText(std::string_view utf8) {
  std::string ansi;
  ansi.reserve(utf8.size());
  std::u16string unit;
  for (std::size_t at = 0, size = 0; at < utf8.size(); at += size) {
    const char32_t character = DecodeUtf8(utf8, at, size);
    if (character == NO_CHARACTER) throw TextError(at, "the bytes are not UTF-8 text");
    if (character < 0x80) {
      ansi.push_back(static_cast<char>(character));
      continue;
    }
    unit.clear();
    AppendWide(unit, character);
    if (!AppendAnsi(ansi, unit)) {
      throw TextError(
          at, "character " + UnicodeName(character) + " is not in code page " + std::to_string(GetACP()));
    }
  }
  return ansi;
}

std::string AnsiFromWide(std::u16string_view wide) {
  std::string ansi;
  ansi.reserve(wide.size());
  for (std::size_t at = 0, size = 0; at < wide.size(); at += size) {
    const char32_t character = DecodeWide(wide, at, size);
    if (character == NO_CHARACTER) throw TextError(at * 2, "half a surrogate pair is not UTF-16 text");
    if (character < 0x80) {
      ansi.push_back(static_cast<char>(character));
    } else if (!AppendAnsi(ansi, wide.substr(at, size))) {
      throw TextError(
          at * 2, "character " + UnicodeName(character) + " is not in code page " + std::to_string(GetACP()));
    }
  }
  return ansi;
}

std::u16string WideFromAnsi(std::string_view ansi) {
  if (ansi.empty()) return {};
  if (ansi.size() > INT_MAX) throw TextError(0, "the text is too long");
  std::u16string wide(ansi.size(), u'\0');
  const int units =
      MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, ansi.data(), static_cast<int>(ansi.size()),
                          reinterpret_cast<WCHAR*>(wide.data()), static_cast<int>(wide.size()));
  if (units <= 0) throw TextError(0, "the bytes are not text in code page " + std::to_string(GetACP()));
  wide.resize(static_cast<std::size_t>(units));
  return wide;
}

std::string TextFromAnsi(std::string_view ansi) {
  return TextFromWide(WideFromAnsi(ansi));
}

std::string ToDisplay(std::string_view ansi) {
  std::string text;
  for (std::size_t at = 0, size = 0; at < ansi.size(); at += size) {
    size = AnsiCharacterSize(ansi, at);
    try {
      text += TextFromAnsi(ansi.substr(at, size));
    } catch (const TextError&) {
      text += "\xEF\xBF\xBD";
    }
  }
  return text;
}

std::string ToDisplayLine(std::string_view ansi) {
  std::string line;
  for (const char c : ToDisplay(ansi)) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n') {
      line += "\\n";
    } else if (c == '\r') {
      line += "\\r";
    } else if (c == '\t') {
      line += "\\t";
    } else if (byte < 0x20 || byte == 0x7F) {
      line += "\\x" + HexOf({&c, 1});
    } else {
      line += c;
    }
  }
  return line;
}

std::size_t DisplayWidth(std::string_view utf8) {
  std::size_t width = 0;
  for (const char c : utf8) width += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  return width;
}

std::string HexOf(std::string_view bytes) {
  constexpr char digits[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(bytes.size() * 2);
  for (const char c : bytes) {
    hex += digits[static_cast<unsigned char>(c) >> 4];
    hex += digits[c & 0xF];
  }
  return hex;
}

std::optional<std::string> BytesFromHex(std::string_view hex) {
  const auto digit = [](char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  std::string bytes;
  for (std::size_t i = 0; i < hex.size();) {
    if (hex[i] == ' ' || hex[i] == ',') {
      ++i;
      continue;
    }
    if (i + 1 == hex.size() || digit(hex[i]) < 0 || digit(hex[i + 1]) < 0) return std::nullopt;
    bytes += static_cast<char>(digit(hex[i]) << 4 | digit(hex[i + 1]));
    i += 2;
  }
  return bytes;
}

}  // namespace orm::tool
