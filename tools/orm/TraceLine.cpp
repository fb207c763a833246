// Reads trace lines by their header format.
#include "TraceLine.h"

#include <win32.h>

#include <array>
#include <charconv>

namespace orm::tool {

namespace {

std::string Trimmed(std::string_view text) {
  while (text.starts_with(' ')) text.remove_prefix(1);
  while (text.ends_with(' ')) text.remove_suffix(1);
  return std::string(text);
}

using Field = std::string TraceLine::*;
constexpr std::array<Field, 10> fields = {
    &TraceLine::module,  &TraceLine::area,         &TraceLine::level, &TraceLine::process, &TraceLine::thread,
    &TraceLine::seconds, &TraceLine::milliseconds, &TraceLine::clock, &TraceLine::file,    &TraceLine::line};

// Takes an insert, "6!6u!" behind its per cent sign, off the front; 0 when it is none.
int TakeInsert(std::string_view& format) {
  int insert = 0;
  const auto [end, error] =
      std::from_chars(format.data(), format.data() + std::min<std::size_t>(format.size(), 2), insert);
  if (error != std::errc() || insert < 1 || insert > 10) return 0;
  format.remove_prefix(static_cast<std::size_t>(end - format.data()));
  if (format.starts_with('!')) {
    const std::size_t close = format.find('!', 1);
    if (close == std::string_view::npos) return 0;
    format.remove_prefix(close + 1);
  }
  return insert;
}

bool Consists(const std::string& text, std::string_view characters) {
  return text.find_first_not_of(characters) == std::string::npos;
}

// Whether each field holds what its insert can produce, so that a line of another format is not taken for
// one.
bool IsSound(const TraceLine& line) {
  constexpr std::string_view digits = "0123456789";
  constexpr std::string_view hex = "0123456789abcdef";
  return line.level.size() <= 1 && Consists(line.level, TRACE_LEVELS) && Consists(line.process, hex) &&
         Consists(line.thread, hex) && Consists(line.seconds, digits) &&
         Consists(line.milliseconds, digits) && Consists(line.line, digits);
}

}  // namespace

TraceFormat::TraceFormat(std::string_view format) {
  const auto literal = [&]() -> std::string& { return mPieces.empty() ? mBefore : mPieces.back().after; };
  while (!format.empty()) {
    const char c = format.front();
    format.remove_prefix(1);
    if (c != '%' || format.empty()) {
      literal() += c == '\r' || c == '\n' ? ' ' : c;
    } else if (const int insert = TakeInsert(format)) {
      mPieces.push_back({insert, ""});
    } else {
      literal() += format.front();
      format.remove_prefix(1);
    }
  }
}

std::optional<TraceLine> TraceFormat::Parse(std::string_view text) const {
  if (!text.starts_with(mBefore)) return std::nullopt;
  text.remove_prefix(mBefore.size());
  TraceLine line;
  for (const Piece& piece : mPieces) {
    // Without a text behind it nothing tells where an insert ends: a letter is one character, others a word.
    std::size_t end = piece.after.empty()
                          ? (piece.insert == 3 ? 1 : text.find(' ', text.find_first_not_of(' ')))
                          : text.find(piece.after);
    if (piece.after.empty() && end == std::string_view::npos) end = text.size();
    if (end > text.size()) return std::nullopt;
    line.*fields[static_cast<std::size_t>(piece.insert - 1)] = Trimmed(text.substr(0, end));
    text.remove_prefix(end + piece.after.size());
  }
  if (!IsSound(line)) return std::nullopt;
  line.message = text;
  return line;
}

std::optional<std::string> ExampleTraceHeader(const std::string& format) {
  const auto text = [](const char* value) { return reinterpret_cast<DWORD_PTR>(value); };
  DWORD_PTR inserts[] = {text("ormutil"), text("thread"), 'd', 0x4d2, 0x10, 12, 345,
                         text("5:07 PM"), text("Thread"), 120};
  char header[256];
  const DWORD flags =
      FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY | FORMAT_MESSAGE_MAX_WIDTH_MASK;
  const DWORD length =
      FormatMessageA(flags, format.c_str(), 0, 0, header, sizeof header, reinterpret_cast<va_list*>(inserts));
  if (length == 0 && GetLastError() != 0) return std::nullopt;
  return std::string(header, length);
}

}  // namespace orm::tool
