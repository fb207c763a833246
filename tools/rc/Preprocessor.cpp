// Carries out the directives of a resource script.
#include "Preprocessor.h"

#include <algorithm>
#include <filesystem>

namespace orm::rc {
namespace {

using Kind = Token::Kind;

constexpr std::size_t mostFiles = 32;           // nested includes
constexpr unsigned deepestDefinition = 64;      // definitions that use definitions
constexpr std::size_t mostExpansions = 65'536;  // that one name may take

bool IsHeader(const std::string& path) {
  const std::string extension = std::filesystem::path(path).extension().string();
  return extension == ".h" || extension == ".H" || extension == ".hpp" || extension == ".hxx" ||
         extension == ".hh" || extension == ".c" || extension == ".cpp";
}

}  // namespace

Preprocessor::Preprocessor(const std::string& path, PreprocessorOptions options)
    : mOptions(std::move(options)) {
  for (const auto& [name, text] : mOptions.definitions) {
    Lexer lexer("command line", text, CP_UTF8);
    Line& line = mDefinitions[name];
    for (Token token = lexer.Next(); token.kind != Kind::End; token = lexer.Next())
      if (token.kind != Kind::NewLine) line.push_back(token);
  }
  std::optional<std::string> content = mOptions.readFile(path);
  if (!content) throw std::runtime_error(path + ": error: cannot read this file");
  Open(path, std::move(*content));
}

void Preprocessor::Open(const std::string& path, std::string content) {
  mFilesRead.insert(path);
  mFiles.push_back(
      {Lexer(path, std::move(content), mFiles.empty() ? mOptions.codePage : mFiles.back().lexer.CodePage()),
       !mFiles.empty() && IsHeader(path), mConditions.size()});
  mAtLineStart = true;
}

Token Preprocessor::Next() {
  for (;;) {
    if (!mPending.empty()) {
      Token token = std::move(mPending.back());
      mPending.pop_back();
      return token;
    }
    Token token = mFiles.back().lexer.Next();
    const bool atLineStart = mAtLineStart;
    mAtLineStart = token.kind == Kind::NewLine;
    if (token.kind == Kind::End) {
      EndFile(token);
      if (mFiles.empty()) return token;
    } else if (token.Is('#') && atLineStart) {
      Directive();
    } else if (token.kind != Kind::NewLine && IsActive() && !mFiles.back().directivesOnly) {
      Expand(token, 0);
      std::reverse(mPending.begin(), mPending.end());
    }
  }
}

void Preprocessor::EndFile(const Token&) {
  if (mConditions.size() > mFiles.back().conditionDepth)
    throw SourceError(mConditions.back().at, "this condition has no #endif in its file");
  mFiles.pop_back();
  mAtLineStart = true;
}

// The rest of a directive's line.
Preprocessor::Line Preprocessor::TakeLine() {
  Line line;
  for (;;) {
    Token token = mFiles.back().lexer.Next();
    if (token.kind == Kind::NewLine || token.kind == Kind::End) break;
    line.push_back(std::move(token));
  }
  mAtLineStart = true;
  return line;
}

void Preprocessor::Directive() {
  const Token name = mFiles.back().lexer.Next();
  if (name.kind == Kind::NewLine || name.kind == Kind::End) {
    mAtLineStart = true;
    return;
  }
  if (name.text == "include" && IsActive()) return Include(name);
  const Line line = TakeLine();
  if (ConditionDirective(name, line) || !IsActive()) return;
  if (name.text == "define")
    Define(line);
  else if (name.text == "undef" && !line.empty())
    mDefinitions.erase(line[0].text);
  else if (name.text == "pragma")
    Pragma(line);
  else if (name.text == "error")
    throw SourceError(name.at, "#error");
  else
    throw SourceError(name.at,
                      "unknown directive '#" + name.text +
                          "' (include, define, undef, ifdef, ifndef, else, endif and pragma are known)");
}

bool Preprocessor::ConditionDirective(const Token& name, const Line& line) {
  if (name.text == "ifdef" || name.text == "ifndef") {
    if (line.empty() || line[0].kind != Kind::Identifier)
      throw SourceError(name.at, "#" + name.text + " needs a name");
    const bool holds = mDefinitions.contains(line[0].text) == (name.text == "ifdef");
    const bool isActive = IsActive() && holds;
    mConditions.push_back({name.at, isActive, isActive || !IsActive(), false});
    return true;
  }
  if (name.text == "if" || name.text == "elif") {
    // Inside a branch that is left out anyway the condition does not matter.
    if (IsActive() || name.text == "elif")
      throw SourceError(name.at, "#" + name.text + " is not supported, use #ifdef");
    mConditions.push_back({name.at, false, true, false});
    return true;
  }
  if (name.text != "else" && name.text != "endif") return false;
  if (mConditions.size() <= mFiles.back().conditionDepth)
    throw SourceError(name.at, "#" + name.text + " without #ifdef");
  Condition& condition = mConditions.back();
  if (name.text == "endif") {
    mConditions.pop_back();
  } else if (condition.hasElse) {
    throw SourceError(name.at, "a second #else");
  } else {
    condition.hasElse = true;
    condition.isActive = !condition.wasActive;
  }
  return true;
}

void Preprocessor::Include(const Token& directive) {
  Token name = mFiles.back().lexer.NextHeaderName();
  if (name.kind != Kind::String)
    throw SourceError(directive.at, "#include needs a file name in \"...\" or <...>");
  const Line rest = TakeLine();
  if (!rest.empty()) throw SourceError(rest[0].at, "this does not belong to #include");
  if (mFiles.size() == mostFiles) throw SourceError(name.at, "includes are nested too deeply");
  std::string content;
  const std::string path = ReadNamedFile(name, content, !name.isAngled);
  if (!mOnce.contains(path)) Open(path, std::move(content));
}

std::string Preprocessor::ReadNamedFile(const Token& name, std::string& content, bool besideSource) {
  const std::filesystem::path file = FileName(name);
  if (file.empty()) throw SourceError(name.at, "the file name is empty");
  std::vector<std::filesystem::path> candidates;
  if (besideSource && name.at.file != nullptr)
    candidates.push_back(std::filesystem::path(*name.at.file).parent_path() / file);
  for (const std::string& folder : mOptions.includeFolders) candidates.push_back(folder / file);
  for (const std::filesystem::path& candidate : candidates) {
    std::optional<std::string> found = mOptions.readFile(candidate.string());
    if (!found) continue;
    content = std::move(*found);
    mFilesRead.insert(candidate.string());
    return candidate.string();
  }
  throw SourceError(name.at, "cannot read the file '" + file.string() + "'");
}

void Preprocessor::Define(const Line& line) {
  if (line.empty() || line[0].kind != Kind::Identifier)
    throw SourceError(mFiles.back().lexer.Next().at, "#define needs a name");
  // A macro with parameters is for the compiler of the program, which may share the header.
  if (line.size() > 1 && line[1].Is('(') && !line[1].followsBlank) return;
  mDefinitions[line[0].text] = Line(line.begin() + 1, line.end());
}

void Preprocessor::Pragma(const Line& line) {
  if (line.empty()) return;
  if (line[0].text == "once") mOnce.insert(*line[0].at.file);
  if (line[0].text != "code_page") return;
  if (line.size() < 4 || !line[1].Is('(') || !line[3].Is(')'))
    throw SourceError(line[0].at, "#pragma code_page needs a number in parentheses");
  UINT codePage = mOptions.codePage;
  if (line[2].kind == Kind::Number)
    codePage = line[2].value;
  else if (line[2].text != "default")
    throw SourceError(line[2].at, "'" + line[2].text + "' is no code page");
  if (!IsValidCodePage(codePage))
    throw SourceError(line[2].at, "there is no code page " + std::to_string(codePage));
  mFiles.back().lexer.SetCodePage(codePage);
}

void Preprocessor::Expand(const Token& token, unsigned depth) {
  if (depth == 0) mExpansions = 0;
  // Definitions can double each other; what they become is counted, tokens or not.
  if (++mExpansions > mostExpansions) throw SourceError(token.at, "the definition grows beyond all bounds");
  const auto definition = token.kind == Kind::Identifier ? mDefinitions.find(token.text) : mDefinitions.end();
  if (definition == mDefinitions.end()) {
    mPending.push_back(token);
    return;
  }
  if (depth == deepestDefinition)
    throw SourceError(token.at, "the definition of '" + token.text + "' refers to itself");
  for (Token part : definition->second) {
    part.at = token.at;  // an error is where the name was used
    Expand(part, depth + 1);
  }
}

}  // namespace orm::rc
