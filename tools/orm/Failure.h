// How a sub-command ends otherwise than well: with a message and a documented exit code.
#pragma once

#include <win32.h>

#include <stdexcept>
#include <string>

namespace orm::tool {

inline constexpr int EXIT_OK = 0;
inline constexpr int EXIT_FAILED = 1;
inline constexpr int EXIT_DIFFERENT = 2;  // a comparison or check found something
inline constexpr int EXIT_USAGE = 2;      // the command line could not be understood

// Printed as "orm: MESSAGE".
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& message) : std::runtime_error(message) {}
};

// Ends the command with that code; everything that is to be said has been printed.
struct Exit {
  int code;
};

// A text of the command line in the ANSI code page. Throws Failure, which names the text.
std::string AnsiFromArgument(const std::string& text);

// "DOING: text of the error number (number)".
Failure SystemFailure(const std::string& doing, DWORD error);
// The system's text for the error number, in UTF-8 and without its line end.
std::string SystemMessage(DWORD error);

}  // namespace orm::tool
