// What sub-commands print with: colours where a person looks, tables, JSON.
#pragma once

#include <cstdio>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace orm::tool {

enum class Colour { None, Red, Yellow, Green, Blue, Grey, Bold };

// Whether a person looks at the stream: a terminal that has colours, and NO_COLOR is not set.
bool IsForPerson(std::FILE* stream);

// The text in that colour when standard output is for a person, else as it is.
std::string Coloured(Colour colour, std::string_view text);

// Rows of UTF-8 cells, printed with aligned columns.
class Table {
 public:
  explicit Table(std::vector<std::string> heads) : mHeads(std::move(heads)) {}
  void Add(std::vector<std::string> cells) { mRows.push_back(std::move(cells)); }
  bool IsEmpty() const { return mRows.empty(); }
  // The cells of a narrow table on a line of their own; the head line only for a person or with `withHeads`.
  void Print(bool withHeads = true) const;

 private:
  std::vector<std::string> mHeads;
  std::vector<std::vector<std::string>> mRows;
};

// To standard output, indented, with a line end.
void PrintJson(const nlohmann::ordered_json& value);
// On one line, flushed: one event of a stream.
void PrintJsonLine(const nlohmann::ordered_json& value);
void Print(std::string_view text);
void PrintLine(std::string_view text);

// Whole files of bytes; "-" is standard input or output. Throw Failure. A file is replaced in one step.
std::string ReadWholeFile(const std::string& path);
void WriteWholeFile(const std::string& path, std::string_view bytes, unsigned mode = 0666);

}  // namespace orm::tool
