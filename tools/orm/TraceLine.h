// Trace lines taken apart again: the header format that a module is configured with, read backwards.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orm::tool {

inline constexpr std::string_view TRACE_LEVELS = "ewdtln";
inline constexpr const char* TRACE_DEFAULT_FORMAT = "%1!-8s!|%2!-8s!|%6!6u!.%7!03u!|";
inline constexpr const char* TRACE_FULL_FORMAT =
    "%1!-8s!|%2!-8s!|%3!c!|%4!4x!:%5!4x!|%6!6u!.%7!03u!|%8!8s!|%9!12s!|%10!4u!|";
inline constexpr std::size_t TRACE_LONGEST_FORMAT = 95;

// What a line's header says; a field that its format leaves out is empty.
struct TraceLine {
  std::string module, area, level, process, thread, seconds, milliseconds, clock, file, line;
  std::string message;
};

class TraceFormat {
 public:
  explicit TraceFormat(std::string_view format);

  // Nothing when the text does not begin with a header of this format.
  std::optional<TraceLine> Parse(std::string_view text) const;

 private:
  // An insert (1 to 10) and the text that follows it.
  struct Piece {
    int insert;
    std::string after;
  };
  std::string mBefore;
  std::vector<Piece> mPieces;
};

// A header as the format makes it for an example line; nothing when the format cannot be carried out.
std::optional<std::string> ExampleTraceHeader(const std::string& format);

}  // namespace orm::tool
