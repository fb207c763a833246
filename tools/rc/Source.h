// Places in source text and the errors that are reported there.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

namespace orm::rc {

// A character of a source file; lines and columns count from 1.
struct Location {
  std::shared_ptr<const std::string> file;
  unsigned line = 0;
  unsigned column = 0;
};

// "file:line:column"
inline std::string ToText(const Location& at) {
  if (at.file == nullptr) return "command line";
  return *at.file + ':' + std::to_string(at.line) + ':' + std::to_string(at.column);
}

// What is wrong with a source, as the user reads it: "file:line:column: error: text".
class SourceError : public std::runtime_error {
 public:
  SourceError(const Location& at, const std::string& text)
      : std::runtime_error(ToText(at) + ": error: " + text) {}
};

}  // namespace orm::rc
