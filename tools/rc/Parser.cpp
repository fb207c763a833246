// Reads STRINGTABLE, BITMAP and LANGUAGE statements.
#include "Parser.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "BitmapFile.h"
#include "kernel/ResourceDirectory.h"

namespace orm::rc {
namespace {

using Kind = Token::Kind;

constexpr int deepestExpression = 64;

std::string Upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

std::string Describe(const Token& token) {
  if (token.kind == Kind::End) return "the end of the file";
  if (token.kind == Kind::String) return "a string";
  return "'" + token.text + "'";
}

// A bitmap file as resource data, or an error about the file.
std::string BitmapData(const Token& name, const std::string& file) {
  try {
    return ResourceFromBitmapFile(file);
  } catch (const std::invalid_argument& reason) {
    throw SourceError(name.at, "'" + FileName(name) + "' " + reason.what());
  }
}

class Parser {
 public:
  Parser(Preprocessor& source, Directory& directory)
      : mSource(source), mDirectory(directory), mToken(source.Next()) {}

  void Run() {
    while (mToken.kind != Kind::End) Statement();
  }

 private:
  void Advance() { mToken = mSource.Next(); }

  [[nodiscard]] bool IsWord(const char* word) const {
    return mToken.kind == Kind::Identifier && Upper(mToken.text) == word;
  }
  [[nodiscard]] bool IsBegin() const { return mToken.Is('{') || IsWord("BEGIN"); }
  [[nodiscard]] bool IsEnd() const { return mToken.Is('}') || IsWord("END"); }
  [[noreturn]] void Expected(const std::string& what) const {
    throw SourceError(mToken.at, "expected " + what + ", not " + Describe(mToken));
  }

  void Statement() {
    if (IsWord("STRINGTABLE")) return StringTable();
    if (IsWord("LANGUAGE")) {
      mLanguage = Language();
      return;
    }
    const Location at = mToken.at;
    const Name name = ResourceName();
    if (!IsWord("BITMAP")) {
      if (mToken.kind != Kind::Identifier) Expected("a resource type after the name '" + ToText(name) + "'");
      throw SourceError(mToken.at,
                        "resource type '" + mToken.text + "' is not supported (STRINGTABLE and BITMAP are)");
    }
    Bitmap(name, at);
  }

  // A number, or a word that no definition replaced.
  Name ResourceName() {
    if (mToken.kind == Kind::Identifier || mToken.kind == Kind::String) {
      Name name{Upper(mToken.text), 0};
      const bool isPlain =
          std::all_of(name.text.begin(), name.text.end(), [](char c) { return c > ' ' && c < 0x7F; });
      if (name.text.empty() || !isPlain || name.text[0] == '#')
        throw SourceError(mToken.at,
                          "a resource name is made of ASCII letters, digits and marks, without blanks");
      Advance();
      return name;
    }
    const Location at = mToken.at;
    if (mToken.kind != Kind::Number && !mToken.Is('(')) Expected("a resource's name or number");
    const std::uint32_t number = Expression();
    if (number == 0 || number > 0xFFFF) throw SourceError(at, "a resource's number lies between 1 and 65535");
    return {"", static_cast<std::uint16_t>(number)};
  }

  void StringTable() {
    Advance();
    const std::uint16_t language = Attributes();
    const Location start = mToken.at;
    if (!IsBegin()) Expected("BEGIN");
    Advance();
    while (!IsEnd()) {
      if (mToken.kind == Kind::End) throw SourceError(start, "this string table has no END");
      StringEntry(language);
    }
    Advance();
  }

  void StringEntry(std::uint16_t language) {
    const Location at = mToken.at;
    if (mToken.kind == Kind::Identifier) throw SourceError(at, "'" + mToken.text + "' is not defined");
    if (mToken.kind == Kind::String) Expected("a string's number");
    const std::uint32_t id = Expression();
    if (id > 0xFFFF) throw SourceError(at, "a string's number lies between 0 and 65535");
    if (mToken.Is(',')) Advance();
    if (mToken.kind != Kind::String) Expected("the text of string " + std::to_string(id));
    std::u16string text;
    for (; mToken.kind == Kind::String; Advance()) text += Unescape(mToken);
    mDirectory.AddString(static_cast<std::uint16_t>(id), language, at, text);
  }

  void Bitmap(const Name& name, const Location& at) {
    Advance();
    SkipMemoryFlags();
    if (mToken.kind != Kind::String) Expected("the name of a bitmap file in quotation marks");
    std::string file;
    mSource.ReadNamedFile(mToken, file);
    mDirectory.Add({{"", bitmapType}, name, mLanguage}, at, BitmapData(mToken, file));
    Advance();
  }

  // Words that once told a loader where to put a resource; they have had no effect for a long time.
  void SkipMemoryFlags() {
    static constexpr const char* flags[] = {"PRELOAD", "LOADONCALL", "FIXED",  "MOVEABLE", "DISCARDABLE",
                                            "PURE",    "IMPURE",     "SHARED", "NONSHARED"};
    while (std::any_of(std::begin(flags), std::end(flags), [&](const char* flag) { return IsWord(flag); }))
      Advance();
  }

  // What may stand between STRINGTABLE and BEGIN; returns the table's language.
  std::uint16_t Attributes() {
    std::uint16_t language = mLanguage;
    for (;;) {
      SkipMemoryFlags();
      if (IsWord("LANGUAGE")) {
        language = Language();
      } else if (IsWord("CHARACTERISTICS") || IsWord("VERSION")) {
        Advance();
        Expression();
      } else {
        return language;
      }
    }
  }

  // LANGUAGE primary, sub.
  std::uint16_t Language() {
    Advance();
    const Location at = mToken.at;
    const std::uint32_t primary = Expression();
    if (!mToken.Is(',')) Expected("',' and a sublanguage");
    Advance();
    const std::uint32_t sub = Expression();
    if (primary > 0x3FF || sub > 0x3F) throw SourceError(at, "there is no such language");
    return static_cast<std::uint16_t>(sub << 10 | primary);
  }

  // Terms joined by + - | &, from the left, in 32 bits.
  std::uint32_t Expression() {
    std::uint32_t value = Term();
    for (;;) {
      if (mToken.Is('+')) {
        Advance();
        value += Term();
      } else if (mToken.Is('-')) {
        Advance();
        value -= Term();
      } else if (mToken.Is('|')) {
        Advance();
        value |= Term();
      } else if (mToken.Is('&')) {
        Advance();
        value &= Term();
      } else {
        return value;
      }
    }
  }

  std::uint32_t Term() {
    if (mToken.kind == Kind::Identifier) throw SourceError(mToken.at, "'" + mToken.text + "' is not defined");
    if (++mDepth > deepestExpression) throw SourceError(mToken.at, "this expression is nested too deeply");
    std::uint32_t value = 0;
    if (mToken.kind == Kind::Number) {
      value = mToken.value;
      Advance();
    } else if (mToken.Is('-')) {
      Advance();
      value = 0 - Term();
    } else if (mToken.Is('~')) {
      Advance();
      value = ~Term();
    } else if (mToken.Is('(')) {
      Advance();
      value = Expression();
      if (!mToken.Is(')')) Expected("')'");
      Advance();
    } else {
      Expected("a number");
    }
    --mDepth;
    return value;
  }

  Preprocessor& mSource;
  Directory& mDirectory;
  Token mToken;
  std::uint16_t mLanguage = platform::resource::usEnglish;
  int mDepth = 0;
};

}  // namespace

void Parse(Preprocessor& source, Directory& directory) {
  Parser(source, directory).Run();
}

}  // namespace orm::rc
