// Directives of a resource script: includes, definitions, conditions and the code page.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Lexer.h"

namespace orm::rc {

// Reads a whole file; nothing when there is none. Tests and fuzzers bring their own.
using FileReader = std::function<std::optional<std::string>(const std::string& path)>;

struct PreprocessorOptions {
  FileReader readFile;
  std::vector<std::string> includeFolders;
  std::map<std::string, std::string> definitions;
  UINT codePage = CP_UTF8;
};

// The tokens of a script after its directives were carried out. Of an included header (.h and the like) only
// the directives count, so that a program and its script can share it.
class Preprocessor {
 public:
  Preprocessor(const std::string& path, PreprocessorOptions options);

  // The next token, never a NewLine; definitions are replaced. Throws SourceError.
  Token Next();

  // The path of a file that a source names, found beside that source or in the include folders; and its
  // content. Throws SourceError at the token that names it.
  std::string ReadNamedFile(const Token& name, std::string& content, bool besideSource = true);

  // Every file that was read, for dependency lists.
  [[nodiscard]] const std::set<std::string>& FilesRead() const { return mFilesRead; }

 private:
  struct File {
    Lexer lexer;
    bool directivesOnly;
    std::size_t conditionDepth;  // conditions that were open when it began
  };
  struct Condition {
    Location at;
    bool isActive;   // lines are taken
    bool wasActive;  // one of its branches was taken already
    bool hasElse;
  };
  using Line = std::vector<Token>;

  void Open(const std::string& path, std::string content);
  [[nodiscard]] bool IsActive() const { return mConditions.empty() || mConditions.back().isActive; }
  void EndFile(const Token& end);
  Line TakeLine();
  void Directive();
  bool ConditionDirective(const Token& name, const Line& line);
  void Include(const Token& directive);
  void Define(const Line& line);
  void Pragma(const Line& line);
  void Expand(const Token& token, unsigned depth);

  PreprocessorOptions mOptions;
  std::vector<File> mFiles;  // the innermost last
  std::vector<Condition> mConditions;
  std::map<std::string, Line> mDefinitions;
  std::set<std::string> mOnce;
  std::set<std::string> mFilesRead;
  std::vector<Token> mPending;  // expanded, the next one last
  std::size_t mExpansions = 0;
  bool mAtLineStart = true;
};

}  // namespace orm::rc
