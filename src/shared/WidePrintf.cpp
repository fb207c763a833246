// printf-style formatting of UTF-16 text: numbers are formatted by the narrow printf and widened, texts are
// padded and cut here.
#include "WidePrintf.h"

#include <ormutil/BaseString.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <string>

namespace orm {

namespace {

using Unit = unsigned short;

// Writes what fits and counts all.
class Output {
 public:
  Output(Unit* buffer, size_t units)
      : mpBuffer(buffer), mRoom(units > 0 ? units - 1 : 0), mHasEnd(units > 0) {}
  ~Output() {
    if (mHasEnd) mpBuffer[std::min(mLength, mRoom)] = 0;
  }
  void Put(Unit unit) {
    if (mLength < mRoom) mpBuffer[mLength] = unit;
    ++mLength;
  }
  // Counts, beyond the room, without walking through what cannot be seen.
  void Fill(size_t count) {
    for (; count > 0 && mLength < mRoom; --count) Put(' ');
    mLength += count;
  }
  int GetLength() const { return mLength > INT_MAX ? -1 : static_cast<int>(mLength); }

 private:
  Unit* mpBuffer;
  size_t mRoom;
  bool mHasEnd;
  size_t mLength = 0;
};

enum class Size { Int, Char, Short, Long, LongLong, LongDouble };

struct Conversion {
  std::string flags;
  int width = 0;
  int precision = -1;
  Size size = Size::Int;
};

class Formatter {
 public:
  Formatter(Unit* buffer, size_t units, va_list arguments) : mOutput(buffer, units) {
    va_copy(mArguments, arguments);
  }
  ~Formatter() { va_end(mArguments); }
  Formatter(const Formatter&) = delete;

  int Run(const Unit* format) {
    for (mpPos = format; *mpPos != 0;) {
      if (*mpPos != '%' || *++mpPos == '%') {
        mOutput.Put(*mpPos++);
      } else if (!Convert()) {
        return -1;
      }
    }
    return mOutput.GetLength();
  }

 private:
  bool Convert() {
    Conversion conversion;
    for (; IsFlag(*mpPos); ++mpPos) conversion.flags += static_cast<char>(*mpPos);
    if (!ReadNumber(conversion.width)) return false;
    if (conversion.width < 0) {
      if (conversion.width == INT_MIN) return false;
      conversion.flags += '-';
      conversion.width = -conversion.width;
    }
    if (*mpPos == '.') {
      ++mpPos;
      conversion.precision = 0;
      if (!ReadNumber(conversion.precision)) return false;
      conversion.precision = std::max(conversion.precision, -1);
    }
    ReadSize(conversion);
    return Put(conversion, *mpPos != 0 ? *mpPos++ : Unit{0});
  }

  static bool IsFlag(Unit unit) {
    return unit == '-' || unit == '+' || unit == ' ' || unit == '#' || unit == '0';
  }

  // Digits or *; leaves the number alone when there are neither. False when it is no int.
  bool ReadNumber(int& number) {
    if (*mpPos == '*') {
      ++mpPos;
      number = va_arg(mArguments, int);
      return true;
    }
    long long value = 0;
    const Unit* begin = mpPos;
    for (; *mpPos >= '0' && *mpPos <= '9'; ++mpPos) {
      value = value * 10 + (*mpPos - '0');
      if (value > INT_MAX) return false;
    }
    if (mpPos != begin) number = static_cast<int>(value);
    return true;
  }

  bool Skip(const char* prefix) {
    const Unit* pos = mpPos;
    for (; *prefix != 0; ++prefix, ++pos) {
      if (*pos != static_cast<Unit>(*prefix)) return false;
    }
    mpPos = pos;
    return true;
  }

  void ReadSize(Conversion& conversion) {
    struct Prefix {
      const char* text;
      Size size;
    };
    static constexpr Prefix kPrefixes[] = {
        {"hh", Size::Char},      {"h", Size::Short},    {"ll", Size::LongLong}, {"l", Size::Long},
        {"I64", Size::LongLong}, {"I32", Size::Int},    {"I", Size::LongLong},  {"L", Size::LongDouble},
        {"j", Size::LongLong},   {"z", Size::LongLong}, {"t", Size::LongLong},  {"w", Size::Long},
    };
    for (const Prefix& prefix : kPrefixes) {
      if (!Skip(prefix.text)) continue;
      conversion.size = prefix.size;
      return;
    }
  }

  bool Put(const Conversion& conversion, Unit type) {
    switch (type) {
      case 'd':
      case 'i':
        return PutNumber(conversion, "lld", Signed(conversion.size));
      case 'u':
      case 'x':
      case 'X':
      case 'o': {
        const char spelling[] = {'l', 'l', static_cast<char>(type), 0};
        return PutNumber(conversion, spelling, Unsigned(conversion.size));
      }
      case 'a':
      case 'A':
      case 'e':
      case 'E':
      case 'f':
      case 'F':
      case 'g':
      case 'G': {
        // Not all of them long doubles: %a shows how a number is stored.
        const char spelling[] = {'L', static_cast<char>(type), 0};
        return conversion.size == Size::LongDouble
                   ? PutNumber(conversion, spelling, va_arg(mArguments, long double))
                   : PutNumber(conversion, spelling + 1, va_arg(mArguments, double));
      }
      case 'p':
        return PutNumber(conversion, "p", va_arg(mArguments, void*));
      case 'c':
      case 'C':
        PutCharacter(conversion, IsWide(conversion, type == 'c'));
        return true;
      case 's':
      case 'S':
        PutText(conversion, IsWide(conversion, type == 's'));
        return true;
      default:
        return false;
    }
  }

  static bool IsWide(const Conversion& conversion, bool byDefault) {
    if (conversion.size == Size::Short) return false;
    return conversion.size == Size::Long || byDefault;
  }

  long long Signed(Size size) {
    switch (size) {
      case Size::LongLong:
        return va_arg(mArguments, long long);
      case Size::Long:
        return va_arg(mArguments, long);
      case Size::Short:
        return static_cast<short>(va_arg(mArguments, int));
      case Size::Char:
        return static_cast<signed char>(va_arg(mArguments, int));
      default:
        return va_arg(mArguments, int);
    }
  }

  unsigned long long Unsigned(Size size) {
    switch (size) {
      case Size::LongLong:
        return va_arg(mArguments, unsigned long long);
      case Size::Long:
        return va_arg(mArguments, unsigned long);
      case Size::Short:
        return static_cast<unsigned short>(va_arg(mArguments, unsigned));
      case Size::Char:
        return static_cast<unsigned char>(va_arg(mArguments, unsigned));
      default:
        return va_arg(mArguments, unsigned);
    }
  }

  // False when the number cannot be shown; its text is asked for the room first, so that want of memory ends
  // the whole formatting and leaves no gap in its result.
  template <class T>
  bool PutNumber(const Conversion& conversion, const char* spelling, T value) {
    const std::string format = "%" + conversion.flags + (conversion.precision >= 0 ? "*.*" : "*") + spelling;
    const auto print = [&](char* to, size_t room) {
      return conversion.precision >= 0
                 ? std::snprintf(to, room, format.c_str(), conversion.width, conversion.precision, value)
                 : std::snprintf(to, room, format.c_str(), conversion.width, value);
    };
    const int length = print(nullptr, 0);
    if (length < 0) return false;
    const size_t room = static_cast<size_t>(length) + 1;
    BaseString<SbcsTraits> text;
    char* pos = text.PrepareWriting(room, false);
    print(pos, room);
    for (; *pos != 0; ++pos) mOutput.Put(static_cast<unsigned char>(*pos));
    return true;
  }

  void PutPadded(const Conversion& conversion, const Unit* text, size_t length) {
    const auto width = static_cast<size_t>(conversion.width);
    const size_t padding = width > length ? width - length : 0;
    const bool left = conversion.flags.find('-') != std::string::npos;
    if (!left) mOutput.Fill(padding);
    for (size_t i = 0; i < length; ++i) mOutput.Put(text[i]);
    if (left) mOutput.Fill(padding);
  }

  void PutCharacter(const Conversion& conversion, bool wide) {
    Unit unit = static_cast<Unit>(va_arg(mArguments, int));
    if (!wide) {
      const char narrow = static_cast<char>(unit);
      if (MultiByteToWideChar(CP_ACP, 0, &narrow, 1, &unit, 1) == 0) unit = '?';
    }
    PutPadded(conversion, &unit, 1);
  }

  void PutText(const Conversion& conversion, bool wide) {
    const size_t limit = conversion.precision < 0 ? SIZE_MAX : static_cast<size_t>(conversion.precision);
    const void* source = va_arg(mArguments, const void*);
    if (wide && source) {
      const Unit* text = static_cast<const Unit*>(source);
      size_t length = 0;
      while (length < limit && text[length] != 0) ++length;
      PutPadded(conversion, text, length);
      return;
    }
    // A precision also bounds how far a narrow text is read: it may have no terminator.
    const char* narrow = source ? static_cast<const char*>(source) : "(null)";
    size_t size = 0;
    while (size < limit && narrow[size] != 0) ++size;
    const int bytes = static_cast<int>(std::min<size_t>(size, INT_MAX));
    const int units = bytes > 0 ? MultiByteToWideChar(CP_ACP, 0, narrow, bytes, nullptr, 0) : 0;
    // A string for its wiped memory.
    WideString text;
    Unit* data = text.PrepareWriting(static_cast<size_t>(units) * sizeof(Unit), false);
    if (units > 0) MultiByteToWideChar(CP_ACP, 0, narrow, bytes, data, units);
    PutPadded(conversion, data, static_cast<size_t>(units));
  }

  const Unit* mpPos = nullptr;
  va_list mArguments;
  Output mOutput;
};

}  // namespace

int FormatWide(unsigned short* buffer, size_t units, const unsigned short* format, va_list arguments) {
  return Formatter(buffer, units, arguments).Run(format);
}

}  // namespace orm
