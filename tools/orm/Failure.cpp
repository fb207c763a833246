// Texts of failures, and the failure of a text.
#include "Failure.h"

#include "Text.h"

namespace orm::tool {

std::string AnsiFromArgument(const std::string& text) {
  try {
    return AnsiFromText(text);
  } catch (const TextError& error) {
    throw Failure("'" + text + "': " + error.what());
  }
}

std::string SystemMessage(DWORD error) {
  char text[512];
  const DWORD flags =
      FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK;
  const DWORD length = FormatMessageA(flags, nullptr, error, 0, text, sizeof text, nullptr);
  std::string message = ToDisplay({text, length});
  while (!message.empty() && message.back() == ' ') message.pop_back();
  return message.empty() ? "error" : message;
}

Failure SystemFailure(const std::string& doing, DWORD error) {
  return Failure(doing + ": " + SystemMessage(error) + " (" + std::to_string(error) + ")");
}

}  // namespace orm::tool
