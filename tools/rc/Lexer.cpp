// The tokens of a resource script.
#include "Lexer.h"

#include <cctype>

namespace orm::rc {
namespace {

bool IsLetter(char c) {
  return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_';
}
bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

int HexDigit(char c) {
  if (IsDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// A UTF-16 file as UTF-8, so that one lexer reads both.
std::string FromUtf16(const std::string& bytes, bool isBigEndian) {
  std::basic_string<WCHAR> wide;
  for (std::size_t i = 2; i + 1 < bytes.size(); i += 2) {
    const auto first = static_cast<unsigned char>(bytes[i]);
    const auto second = static_cast<unsigned char>(bytes[i + 1]);
    wide.push_back(static_cast<WCHAR>(isBigEndian ? first << 8 | second : second << 8 | first));
  }
  std::string text(wide.size() * 3, '\0');
  if (!wide.empty())
    text.resize(static_cast<std::size_t>(
        WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), text.data(),
                            static_cast<int>(text.size()), nullptr, nullptr)));
  return text;
}

std::size_t CharacterSize(UINT codePage, const std::string& text, std::size_t at) {
  const bool isPair = IsDBCSLeadByteEx(codePage, static_cast<BYTE>(text[at])) != 0 && at + 1 < text.size() &&
                      static_cast<unsigned char>(text[at + 1]) >= ' ';
  return isPair ? 2 : 1;
}

}  // namespace

Lexer::Lexer(const std::string& fileName, std::string content, UINT codePage)
    : mFile(std::make_shared<const std::string>(fileName)),
      mContent(std::move(content)),
      mCodePage(codePage) {
  if (mContent.starts_with("\xEF\xBB\xBF")) {
    mContent.erase(0, 3);
    mCodePage = CP_UTF8;
  } else if (mContent.starts_with("\xFF\xFE") || mContent.starts_with("\xFE\xFF")) {
    mContent = FromUtf16(mContent, mContent[0] == '\xFE');
    mCodePage = CP_UTF8;
  }
}

void Lexer::Step() {
  const std::size_t size = CharacterSize(mCodePage, mContent, mPosition);
  if (mContent[mPosition] == '\n') {
    ++mLine;
    mColumn = 0;
  }
  mPosition += size;
  // The bytes after the first of a UTF-8 character take no column.
  const bool continues = mCodePage == CP_UTF8 && (static_cast<unsigned char>(Peek()) & 0xC0) == 0x80;
  if (!continues) ++mColumn;
}

Token Lexer::Begin(Token::Kind kind) const {
  Token token;
  token.kind = kind;
  token.at = {mFile, mLine, mColumn};
  token.codePage = mCodePage;
  return token;
}

void Lexer::SkipBlockComment() {
  const Location start{mFile, mLine, mColumn};
  Step();
  Step();
  while (!(Peek() == '*' && Peek(1) == '/')) {
    if (AtEnd()) throw SourceError(start, "this comment does not end");
    Step();
  }
  Step();
  Step();
}

bool Lexer::SkipBlanks() {
  const std::size_t start = mPosition;
  while (!AtEnd()) {
    if (Peek() == ' ' || Peek() == '\t' || Peek() == '\r' || Peek() == '\f') {
      Step();
    } else if (Peek() == '\\' && (Peek(1) == '\n' || (Peek(1) == '\r' && Peek(2) == '\n'))) {
      while (Peek() != '\n') Step();
      Step();
    } else if (Peek() == '/' && Peek(1) == '/') {
      while (!AtEnd() && Peek() != '\n') Step();
    } else if (Peek() == '/' && Peek(1) == '*') {
      SkipBlockComment();
    } else {
      break;
    }
  }
  return mPosition != start;
}

Token Lexer::Next() {
  const bool blank = SkipBlanks();
  Token token;
  if (AtEnd()) {
    token = Begin(Token::Kind::End);
  } else if (Peek() == '\n') {
    token = Begin(Token::Kind::NewLine);
    Step();
  } else if (IsDigit(Peek())) {
    token = TakeNumber();
  } else if (Peek() == '"' || (Peek() == 'L' && Peek(1) == '"')) {
    token = TakeString();
  } else if (IsLetter(Peek())) {
    token = TakeIdentifier();
  } else {
    token = Begin(Token::Kind::Punctuation);
    const std::size_t start = mPosition;
    Step();
    token.text = mContent.substr(start, mPosition - start);
  }
  token.followsBlank = blank;
  return token;
}

Token Lexer::NextHeaderName() {
  SkipBlanks();
  if (Peek() != '<') return Next();
  Token token = Begin(Token::Kind::String);
  token.isAngled = true;
  Step();
  while (Peek() != '>') {
    if (AtEnd() || Peek() == '\n') throw SourceError(token.at, "this header name does not end with '>'");
    token.text.push_back(Peek());
    Step();
  }
  Step();
  return token;
}

Token Lexer::TakeNumber() {
  Token token = Begin(Token::Kind::Number);
  while (std::isalnum(static_cast<unsigned char>(Peek())) != 0 || Peek() == '_') {
    token.text.push_back(Peek());
    Step();
  }
  std::string_view digits = token.text;
  while (!digits.empty() &&
         (digits.back() == 'L' || digits.back() == 'l' || digits.back() == 'U' || digits.back() == 'u'))
    digits.remove_suffix(1);
  unsigned base = 10;
  if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
    base = 16;
    digits.remove_prefix(2);
  } else if (digits.size() > 1 && digits[0] == '0') {
    base = 8;
  }
  std::uint64_t value = 0;
  for (const char c : digits) {
    const int digit = HexDigit(c);
    if (digit < 0 || static_cast<unsigned>(digit) >= base)
      throw SourceError(token.at, "'" + token.text + "' is no number");
    value = value * base + static_cast<unsigned>(digit);
    if (value > 0xFFFFFFFF) throw SourceError(token.at, "the number " + token.text + " does not fit 32 bits");
  }
  token.value = static_cast<std::uint32_t>(value);
  return token;
}

Token Lexer::TakeIdentifier() {
  Token token = Begin(Token::Kind::Identifier);
  while (IsLetter(Peek()) || IsDigit(Peek())) {
    token.text.push_back(Peek());
    Step();
  }
  return token;
}

// The text is kept as it stands, up to the quotation mark that ends it; a doubled one and one after a back
// slash do not.
Token Lexer::TakeString() {
  Token token = Begin(Token::Kind::String);
  if (Peek() == 'L') {
    token.isWide = true;
    Step();
  }
  Step();
  const std::size_t start = mPosition;
  for (;;) {
    if (AtEnd() || Peek() == '\n') throw SourceError(token.at, "this string does not end on its line");
    if (Peek() == '"' && Peek(1) != '"') break;
    // Neither the second mark of a pair nor an escaped character, a line break among them, is looked at.
    if (Peek() == '\\' && Peek(1) == '\r' && Peek(2) == '\n') {
      Step();
      Step();
    }
    if ((Peek() == '"' || Peek() == '\\') && mPosition + 1 < mContent.size()) Step();
    Step();
  }
  token.text = mContent.substr(start, mPosition - start);
  Step();
  return token;
}

namespace {

// Resolves the escapes of one string token.
class Unescaper {
 public:
  explicit Unescaper(const Token& token) : mToken(token), mText(token.text) {}

  std::u16string Run() {
    while (mAt < mText.size()) {
      const char c = mText[mAt];
      if (c == '\\') {
        TakeEscape();
      } else {
        const std::size_t size = CharacterSize(mToken.codePage, mText, mAt);
        mBytes.append(mText, mAt, size);
        mAt += c == '"' ? 2 : size;  // a quotation mark inside is a doubled one
      }
    }
    Convert();
    return mResult;
  }

 private:
  void TakeEscape() {
    const char c = ++mAt < mText.size() ? mText[mAt] : '\0';
    if (c == 'x' || c == 'X') return TakeHex();
    if (c >= '0' && c <= '7') return TakeOctal();
    ++mAt;
    switch (c) {
      case 'n':
        mBytes.push_back('\n');
        return;
      case 'r':
        mBytes.push_back('\r');
        return;
      case 't':
        mBytes.push_back('\t');
        return;
      case 'a':
        mBytes.push_back('\a');
        return;
      case '\\':
      case '"':
      case '\'':
        mBytes.push_back(c);
        return;
      case '\r':
        mAt += mText[mAt] == '\n';
        return;
      case '\n':
        return;
      default:
        throw SourceError(mToken.at, std::string("unknown escape '\\") + c + "' in this string");
    }
  }

  void TakeHex() {
    unsigned value = 0;
    std::size_t digits = 0;
    const std::size_t most = mToken.isWide ? 4 : 2;
    for (++mAt; digits < most && mAt < mText.size() && HexDigit(mText[mAt]) >= 0; ++mAt, ++digits)
      value = value * 16 + static_cast<unsigned>(HexDigit(mText[mAt]));
    if (digits == 0) throw SourceError(mToken.at, "'\\x' without hexadecimal digits in this string");
    Put(value);
  }

  void TakeOctal() {
    unsigned value = 0;
    for (std::size_t digits = 0; digits < 3 && mAt < mText.size() && mText[mAt] >= '0' && mText[mAt] <= '7';
         ++digits)
      value = value * 8 + static_cast<unsigned>(mText[mAt++] - '0');
    if (value > 0xFF) throw SourceError(mToken.at, "an octal escape in this string is larger than a byte");
    Put(value);
  }

  // A number is a byte of the code page, or in a wide string a unit of its own.
  void Put(unsigned value) {
    if (!mToken.isWide) {
      mBytes.push_back(static_cast<char>(value));
      return;
    }
    Convert();
    mResult.push_back(static_cast<char16_t>(value));
  }

  void Convert() {
    if (mBytes.empty()) return;
    std::u16string wide(mBytes.size(), u'\0');
    const int size = MultiByteToWideChar(
        mToken.codePage, MB_ERR_INVALID_CHARS, mBytes.data(), static_cast<int>(mBytes.size()),
        reinterpret_cast<WCHAR*>(wide.data()), static_cast<int>(wide.size()));
    if (size == 0)
      throw SourceError(mToken.at, "this string is not text in code page " + std::to_string(mToken.codePage) +
                                       " (say which it is with #pragma code_page(number))");
    mResult.append(wide, 0, static_cast<std::size_t>(size));
    mBytes.clear();
  }

  const Token& mToken;
  const std::string& mText;
  std::size_t mAt = 0;
  std::string mBytes;
  std::u16string mResult;
};

}  // namespace

std::u16string Unescape(const Token& string) {
  return Unescaper(string).Run();
}

std::string FileName(const Token& string) {
  std::string bytes;
  for (std::size_t at = 0; at < string.text.size();) {
    const std::size_t size = CharacterSize(string.codePage, string.text, at);
    if (string.text[at] == '\\') {
      if (!bytes.ends_with('/')) bytes.push_back('/');
    } else {
      bytes.append(string.text, at, size);
    }
    at += size;
  }
  if (string.codePage == CP_UTF8) return bytes;
  Token plain = string;
  plain.text = bytes;
  const std::u16string wide = Unescape(plain);
  std::string text(wide.size() * 3, '\0');
  if (!wide.empty())
    text.resize(static_cast<std::size_t>(WideCharToMultiByte(
        CP_UTF8, 0, reinterpret_cast<const WCHAR*>(wide.data()), static_cast<int>(wide.size()), text.data(),
        static_cast<int>(text.size()), nullptr, nullptr)));
  return text;
}

}  // namespace orm::rc
