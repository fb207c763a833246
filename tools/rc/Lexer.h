// Splits the text of one file into tokens, in the code page that holds at each place.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Source.h"
#include "win32/nls.h"

namespace orm::rc {

struct Token {
  enum class Kind { End, NewLine, Number, Identifier, String, Punctuation };

  Kind kind = Kind::End;
  Location at;
  std::string text;           // identifier, one punctuation character, or what stands between quotation marks
  std::uint32_t value = 0;    // of a number
  UINT codePage = CP_UTF8;    // of a string
  bool isWide = false;        // L"..."
  bool isAngled = false;      // <...> of an include
  bool followsBlank = false;  // not glued to the token before it

  [[nodiscard]] bool Is(char punctuation) const {
    return kind == Kind::Punctuation && text[0] == punctuation;
  }
};

class Lexer {
 public:
  // `content` is the whole file; a byte order mark chooses the code page, as UTF-8 or UTF-16.
  Lexer(const std::string& fileName, std::string content, UINT codePage);

  // The next token; comments are skipped, each line ends with a NewLine. Throws SourceError.
  Token Next();
  // After `#include`: takes a name in angle brackets as one string.
  Token NextHeaderName();

  // From the next token on.
  void SetCodePage(UINT codePage) { mCodePage = codePage; }
  [[nodiscard]] UINT CodePage() const { return mCodePage; }

 private:
  [[nodiscard]] bool AtEnd() const { return mPosition == mContent.size(); }
  [[nodiscard]] char Peek(std::size_t ahead = 0) const {
    return mPosition + ahead < mContent.size() ? mContent[mPosition + ahead] : '\0';
  }
  // Steps over one character of the code page.
  void Step();
  // Steps over blanks, comments and continued line ends; returns whether there were any.
  bool SkipBlanks();
  void SkipBlockComment();
  Token Begin(Token::Kind kind) const;
  Token TakeNumber();
  Token TakeIdentifier();
  Token TakeString();

  std::shared_ptr<const std::string> mFile;
  std::string mContent;
  std::size_t mPosition = 0;
  unsigned mLine = 1;
  unsigned mColumn = 1;
  UINT mCodePage;
};

// The text of a string token as UTF-16, with its escapes resolved: \n \r \t \a \\ \" "" \ooo \xhh (a byte of
// the code page; in L"..." \xhhhh, a UTF-16 unit). Throws SourceError for an unknown escape or bytes that the
// code page lacks.
std::u16string Unescape(const Token& string);

// The text of a file name, as UTF-8 with slashes: back slashes, single or doubled, separate folders and
// escape nothing.
std::string FileName(const Token& string);

}  // namespace orm::rc
