// The printf format that an insert of a message may have, "%1!-*.3I64x!", and its reader.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace orm::platform {

// What stands between the exclamation marks of an insert.
struct InsertFormat {
  bool left = false, plus = false, blank = false, alternate = false, zero = false;
  bool starWidth = false, starPrecision = false;
  bool wide64 = false, half = false;          // of numbers
  bool narrowText = false, wideText = false;  // of text and characters: said by a prefix
  std::int64_t width = 0;
  std::int64_t precision = -1;  // -1: none
  char type = 's';
};

template <typename Char>
class InsertFormatReader {
 public:
  explicit InsertFormatReader(const Char*& at) : mAt(at) {}

  // Nothing but a complete, known format passes: the text may come from anywhere.
  bool Read(InsertFormat& format) {
    ++mAt;
    while (ReadFlag(format)) ++mAt;
    format.starWidth = ReadStarOrNumber(format.width);
    if (*mAt == '.') {
      ++mAt;
      format.precision = 0;
      format.starPrecision = ReadStarOrNumber(format.precision);
    }
    ReadSize(format);
    constexpr std::string_view types = "cCsSdiuxXop";
    if (*mAt > 0x7F || *mAt <= 0 || types.find(static_cast<char>(*mAt)) == std::string_view::npos)
      return false;
    format.type = static_cast<char>(*mAt++);
    return *mAt++ == '!';
  }

 private:
  bool ReadFlag(InsertFormat& format) const {
    switch (*mAt) {
      case '-':
        return format.left = true;
      case '+':
        return format.plus = true;
      case ' ':
        return format.blank = true;
      case '#':
        return format.alternate = true;
      case '0':
        return format.zero = true;
      default:
        return false;
    }
  }

  // Returns whether it was an asterisk. A number stops growing where no output could be that long.
  bool ReadStarOrNumber(std::int64_t& number) {
    if (*mAt == '*') {
      ++mAt;
      return true;
    }
    for (; *mAt >= '0' && *mAt <= '9'; ++mAt)
      number = std::min<std::int64_t>(number * 10 + (*mAt - '0'), INT32_MAX);
    return false;
  }

  void ReadSize(InsertFormat& format) {
    if (*mAt == 'h') {
      format.half = format.narrowText = true;
      ++mAt;
    } else if (*mAt == 'l' || *mAt == 'w') {
      format.wideText = true;
      format.wide64 = *mAt == 'l' && mAt[1] == 'l';
      mAt += format.wide64 ? 2 : 1;
    } else if (*mAt == 'I') {
      ++mAt;
      const bool is32 = *mAt == '3' && mAt[1] == '2';
      const bool is64 = *mAt == '6' && mAt[1] == '4';
      if (is32 || is64) mAt += 2;
      format.wide64 = !is32;
    }
  }

  const Char*& mAt;
};

// Reads "!...!" from `at` on and moves behind it; false when that is no format.
template <typename Char>
bool ReadInsertFormat(const Char*& at, InsertFormat& format) {
  return InsertFormatReader<Char>(at).Read(format);
}

}  // namespace orm::platform
