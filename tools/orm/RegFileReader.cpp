// Reads settings files: a scanner over the decoded text that knows the line and column of everything it
// meets. The bytes come from anywhere.
#include <algorithm>
#include <cctype>

#include "RegDocument.h"
#include "Text.h"

namespace orm::tool {

namespace {

constexpr std::string_view HEAD_4 = "REGEDIT4";
constexpr std::string_view HEAD_5 = "Windows Registry Editor Version 5.00";

enum class Encoding { Ansi, Utf8 };  // of the scanned text

struct DecodedText {
  std::string text;
  Encoding encoding;
};

// The line and column of a byte of the text.
RegPosition PositionAt(std::string_view text, std::size_t at, Encoding encoding) {
  RegPosition position{1, 1};
  at = std::min(at, text.size());
  for (std::size_t i = 0; i < at;) {
    if (text[i] == '\n') {
      ++position.line;
      position.column = 0;
    }
    ++position.column;
    i += encoding == Encoding::Ansi ? AnsiCharacterSize(text, i)
                                    : std::max<std::size_t>(Utf8CharacterSize(text, i), 1);
  }
  return position;
}

DecodedText DecodeUtf16(std::string_view bytes) {
  std::u16string wide;
  wide.reserve(bytes.size() / 2);
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    wide += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                  static_cast<unsigned char>(bytes[i + 1]) << 8);
  }
  try {
    std::string text = TextFromWide(wide);
    if (bytes.size() % 2 != 0) {
      throw RegSyntaxError(PositionAt(text, text.size(), Encoding::Utf8),
                           "the file ends in the middle of a character");
    }
    return {std::move(text), Encoding::Utf8};
  } catch (const TextError& error) {
    const std::string before = TextFromWide(std::u16string_view(wide).substr(0, error.at / 2));
    throw RegSyntaxError(PositionAt(before, before.size(), Encoding::Utf8), error.what());
  }
}

DecodedText Decode(std::string_view bytes) {
  if (bytes.starts_with("\xFF\xFE")) return DecodeUtf16(bytes.substr(2));
  if (bytes.starts_with("\xFE\xFF")) {
    throw RegSyntaxError({1, 1}, "the file is UTF-16 in big-endian order; this form is little-endian");
  }
  const bool marked = bytes.starts_with("\xEF\xBB\xBF");
  if (marked) bytes.remove_prefix(3);
  if (!marked && !bytes.starts_with(HEAD_5)) return {std::string(bytes), Encoding::Ansi};
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t size = Utf8CharacterSize(bytes, at);
    if (size == 0) {
      throw RegSyntaxError(PositionAt(bytes, at, Encoding::Utf8),
                           "the bytes are not UTF-8 text; save the file as UTF-16, UTF-8 or REGEDIT4");
    }
    at += size;
  }
  return {std::string(bytes), Encoding::Utf8};
}

class Reader {
 public:
  explicit Reader(DecodedText decoded) : mText(std::move(decoded.text)), mEncoding(decoded.encoding) {}

  RegDocument Read() {
    ReadHead();
    RegDocument document;
    for (SkipToContent(); mAt < mText.size(); SkipToContent()) {
      if (Peek() == '[') {
        document.push_back(ReadSection());
      } else if (Peek() == '"' || Peek() == '@') {
        if (document.empty()) Fail("a value before the first [key]");
        if (document.back().isDeleted) Fail("a value of a key that is deleted");
        document.back().entries.push_back(ReadEntry());
      } else {
        Fail("expected a [key], a \"value\", @ or a comment");
      }
    }
    return document;
  }

 private:
  [[noreturn]] void Fail(const std::string& why) const { Fail(mAt, why); }
  [[noreturn]] void Fail(std::size_t at, const std::string& why) const {
    throw RegSyntaxError(PositionAt(mText, at, mEncoding), why);
  }

  char Peek() const { return mAt < mText.size() ? mText[mAt] : '\n'; }
  std::size_t CharacterSize() const {
    return mEncoding == Encoding::Ansi ? AnsiCharacterSize(mText, mAt) : 1;
  }
  RegPosition GetPosition() {
    // Positions are asked for in the order of the text, so each one starts at the one before it.
    const RegPosition step = PositionAt(std::string_view(mText).substr(mKnownAt), mAt - mKnownAt, mEncoding);
    mKnown = step.line == 1 ? RegPosition{mKnown.line, mKnown.column + step.column - 1}
                            : RegPosition{mKnown.line + step.line - 1, step.column};
    mKnownAt = mAt;
    return mKnown;
  }

  void ReadHead() {
    while (mAt < mText.size() && (Peek() == '\r' || Peek() == '\n')) ++mAt;
    const std::size_t end = std::min(mText.find_first_of("\r\n", mAt), mText.size());
    std::string_view line = std::string_view(mText).substr(mAt, end - mAt);
    while (line.ends_with(' ') || line.ends_with('\t')) line.remove_suffix(1);
    if (line == HEAD_4) {
      mForm = RegForm::Version4;
    } else if (line == HEAD_5) {
      mForm = RegForm::Version5;
    } else {
      Fail("a settings file begins with \"REGEDIT4\" or \"Windows Registry Editor Version 5.00\"");
    }
    mAt = end;
  }

  void SkipBlanks() {
    while (mAt < mText.size() && (Peek() == ' ' || Peek() == '\t')) ++mAt;
  }
  void SkipLine() { mAt = std::min(mText.find_first_of("\r\n", mAt), mText.size()); }
  void SkipToContent() {
    for (;;) {
      mAt = std::min(mText.find_first_not_of(" \t\r\n", mAt), mText.size());
      if (mAt == mText.size() || Peek() != ';') return;
      SkipLine();
    }
  }
  // Only blanks and a comment may stand between here and the end of the line.
  void ExpectLineEnd() {
    SkipBlanks();
    if (Peek() == ';') SkipLine();
    if (Peek() != '\r' && Peek() != '\n') Fail("unexpected text at the end of the line");
  }

  std::string ToAnsi(std::string_view text, std::size_t at) const {
    if (mEncoding == Encoding::Ansi) return std::string(text);
    try {
      return AnsiFromText(text);
    } catch (const TextError& error) {
      Fail(at + error.at, error.what());
    }
  }

  // The name may hold brackets: it ends at the last one of the line.
  RegSection ReadSection() {
    RegSection section;
    section.at = GetPosition();
    const std::size_t lineEnd = std::min(mText.find_first_of("\r\n", mAt), mText.size());
    const std::size_t end = FindLastBracket(lineEnd);
    if (end == mAt) Fail(lineEnd, "the ] that ends the key's name is missing");
    ++mAt;
    section.isDeleted = Peek() == '-';
    if (section.isDeleted) ++mAt;
    const std::string_view name = std::string_view(mText).substr(mAt, end - mAt);
    try {
      section.key = ParseRegPath(ToAnsi(name, mAt));
    } catch (const RegSyntaxError& error) {
      if (error.at.line != 0) throw;
      throw RegSyntaxError({section.at.line, GetPosition().column + error.at.column - 1}, error.what());
    }
    if (section.isDeleted && section.key.path.empty()) Fail("a root cannot be deleted");
    mAt = end + 1;
    ExpectLineEnd();
    return section;
  }

  // The last ] between here and `lineEnd` that is a character by itself; here when there is none.
  std::size_t FindLastBracket(std::size_t lineEnd) const {
    std::size_t found = mAt;
    for (std::size_t at = mAt; at < lineEnd;
         at += mEncoding == Encoding::Ansi ? AnsiCharacterSize(mText, at) : 1) {
      if (mText[at] == ']') found = at;
    }
    return found;
  }

  RegEntry ReadEntry() {
    RegEntry entry;
    entry.at = GetPosition();
    const std::size_t start = mAt;
    if (Peek() == '@') {
      ++mAt;
    } else {
      entry.name = ReadQuoted();
    }
    if (entry.name.size() > REG_LONGEST_VALUE_NAME) Fail(start, "a value's name is longer than 16383 bytes");
    if (entry.name.find('\0') != std::string::npos) Fail(start, "a value's name holds a zero byte");
    SkipBlanks();
    if (Peek() != '=') Fail("expected = behind the value's name");
    ++mAt;
    SkipBlanks();
    entry.data = ReadData();
    ExpectLineEnd();
    return entry;
  }

  // A text between quotes, which may run over line ends.
  std::string ReadQuoted() {
    const std::size_t start = mAt++;
    std::string text;
    std::size_t plain = mAt;
    for (;;) {
      if (mAt >= mText.size()) Fail(start, "the text that begins here is not closed by a quote");
      if (mText[mAt] == '"') break;
      if (mText[mAt] == '\\') {
        text += ToAnsi(std::string_view(mText).substr(plain, mAt - plain), plain);
        plain = ++mAt;
        if (mAt < mText.size() && mText[mAt] != '\\' && mText[mAt] != '"') {
          Fail(mAt - 1, "a back slash in a text must be written twice, or stand before a quote");
        }
        if (mAt >= mText.size()) continue;
      }
      mAt += CharacterSize();
    }
    text += ToAnsi(std::string_view(mText).substr(plain, mAt - plain), plain);
    ++mAt;
    return text;
  }

  std::optional<RegData> ReadData() {
    if (Peek() == '-') {
      ++mAt;
      return std::nullopt;
    }
    if (Peek() == '"') {
      std::string text = ReadQuoted();
      text += '\0';
      return RegData{REG_SZ, std::move(text)};
    }
    if (Skip("dword:")) return RegData{REG_DWORD, ReadNumber()};
    if (Skip("hex:")) return RegData{REG_BINARY, ReadList()};
    if (!Skip("hex(")) Fail("expected \"text\", dword:, hex:, hex(type): or -");
    const DWORD type = ReadHexNumber(8, "a type of up to eight hexadecimal digits");
    if (!Skip("):")) Fail("expected ): behind the type");
    const std::size_t start = mAt;
    std::string bytes = ReadList();
    if (mForm == RegForm::Version5 && IsRegText(type)) bytes = NarrowBytes(bytes, start);
    return RegData{type, std::move(bytes)};
  }

  // Keywords are read without regard to case.
  bool Skip(std::string_view word) {
    if (mText.size() - mAt < word.size()) return false;
    for (std::size_t i = 0; i < word.size(); ++i) {
      const char c = mText[mAt + i];
      if ((c >= 'A' && c <= 'Z' ? c + 32 : c) != word[i]) return false;
    }
    mAt += word.size();
    return true;
  }

  static int Digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  }

  DWORD ReadHexNumber(int mostDigits, const char* what) {
    DWORD number = 0;
    int digits = 0;
    for (; Digit(Peek()) >= 0; ++mAt, ++digits) {
      if (digits == mostDigits) Fail(std::string("expected ") + what);
      number = number << 4 | static_cast<DWORD>(Digit(Peek()));
    }
    if (digits == 0) Fail(std::string("expected ") + what);
    return number;
  }

  std::string ReadNumber() {
    SkipBlanks();
    const DWORD number = ReadHexNumber(8, "a number of up to eight hexadecimal digits");
    std::string bytes;
    for (unsigned shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(number >> shift & 0xFF);
    return bytes;
  }

  // A back slash at the end of a line continues the list; comment lines may stand in between.
  bool SkipContinuation() {
    if (Peek() != '\\') return false;
    const std::size_t start = mAt++;
    SkipBlanks();
    if (Peek() == ';') SkipLine();
    if (Peek() != '\r' && Peek() != '\n') Fail(start, "a back slash in a list of bytes must end its line");
    SkipToContent();
    return true;
  }

  std::string ReadList() {
    std::string bytes;
    bool needed = false;  // a comma stands before
    for (;;) {
      SkipBlanks();
      if (SkipContinuation()) continue;
      if (Digit(Peek()) < 0) {
        if (Peek() == ',') Fail("expected a byte of two hexadecimal digits before the comma");
        if (needed && Peek() != '\r' && Peek() != '\n' && Peek() != ';') {
          Fail("expected a byte of two hexadecimal digits");
        }
        return bytes;  // a comma at the very end is tolerated, as the original editor does
      }
      bytes += static_cast<char>(ReadHexNumber(2, "a byte of two hexadecimal digits"));
      SkipBlanks();
      while (SkipContinuation()) SkipBlanks();
      if (Peek() != ',') return bytes;
      ++mAt;
      needed = true;
    }
  }

  // Strings that are written as bytes are UTF-16 in version 5.
  std::string NarrowBytes(std::string_view bytes, std::size_t at) const {
    if (bytes.size() % 2 != 0)
      Fail(at, "a text of this type has an odd number of bytes, so it is not UTF-16");
    std::u16string wide;
    for (std::size_t i = 0; i < bytes.size(); i += 2) {
      wide += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                    static_cast<unsigned char>(bytes[i + 1]) << 8);
    }
    try {
      return AnsiFromWide(wide);
    } catch (const TextError& error) {
      Fail(at, std::string(error.what()) + " (byte " + std::to_string(error.at) + " of the list)");
    }
  }

  std::string mText;
  Encoding mEncoding;
  RegForm mForm = RegForm::Version5;
  std::size_t mAt = 0;
  std::size_t mKnownAt = 0;
  RegPosition mKnown{1, 1};
};

}  // namespace

RegDocument ReadRegFile(std::string_view bytes) {
  return Reader(Decode(bytes)).Read();
}

}  // namespace orm::tool
