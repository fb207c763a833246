// The formatter of the message-insert language.
#include "kernel/MessageFormat.h"

#include <algorithm>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>

#include "kernel/CodePage.h"
#include "kernel/InsertFormat.h"
#include "kernel/WipingAllocator.h"
#include "win32/errors.h"
#include "win32/nls.h"

namespace orm::platform {

MessageArguments::MessageArguments(va_list* arguments, bool isArray)
    : mForm(arguments == nullptr ? Form::None
            : isArray            ? Form::Array
                                 : Form::List) {
  if (mForm == Form::Array) mArray = reinterpret_cast<const ULONG_PTR*>(arguments);
  if (mForm == Form::List) va_copy(mList, *arguments);
}

MessageArguments::~MessageArguments() {
  if (mForm == Form::List) va_end(mList);
}

ULONG_PTR MessageArguments::Get(unsigned number) {
  if (mForm == Form::Array) return mArray[number - 1];
  while (mReadCount < number) mRead[mReadCount++] = va_arg(mList, ULONG_PTR);
  return mRead[number - 1];
}

namespace {

// Padding beyond what any message may have is an error of the text: a buffer that is merely too small would
// have the caller try larger ones, up to gigabytes.
constexpr std::int64_t mostPadding = MessageSink<char>::mostUnits;

template <typename Char>
class Formatter {
 public:
  Formatter(const Char* text, const MessageOptions& options, MessageArguments& arguments,
            MessageSink<Char>& sink)
      : mAt(text), mOptions(options), mArguments(arguments), mSink(sink) {}

  DWORD Run() {
    while (*mAt != 0 && !mSink.IsFull()) {
      const Char unit = *mAt++;
      if (unit == '%') {
        if (*mAt == '0') break;
        if (!Escape()) return ERROR_INVALID_PARAMETER;
      } else if (unit == '\r' || unit == '\n') {
        if (unit == '\r' && *mAt == '\n') ++mAt;
        if (mOptions.joinLines)
          mSink.Put(' ');
        else
          mSink.PutBreak();
      } else {
        mSink.Put(unit);
      }
    }
    return ERROR_SUCCESS;
  }

 private:
  using Text = std::basic_string<Char, std::char_traits<Char>, WipingAllocator<Char>>;
  using TextView = std::basic_string_view<Char>;
  static constexpr bool isWide = std::is_same_v<Char, WCHAR>;

  [[nodiscard]] bool IsDigit() const { return *mAt >= '0' && *mAt <= '9'; }

  // What follows a per cent sign.
  bool Escape() {
    if (*mAt == 0) return false;
    if (IsDigit()) {
      if (!mOptions.ignoreInserts) return Insert();
      mSink.Put('%');
      mSink.Put(*mAt++);
      return true;
    }
    const Char unit = *mAt++;
    if (unit == 'n')
      mSink.PutBreak();
    else
      mSink.Put(unit == 'r' ? Char{'\r'} : unit == 't' ? Char{'\t'} : unit == 'b' ? Char{' '} : unit);
    return true;
  }

  bool Insert() {
    if (mArguments.GetForm() == MessageArguments::Form::None) return false;
    auto number = static_cast<unsigned>(*mAt++ - '0');
    if (IsDigit()) number = number * 10 + static_cast<unsigned>(*mAt++ - '0');
    InsertFormat format;
    if (*mAt == '!' && !ReadInsertFormat(mAt, format)) return false;
    const ULONG_PTR value = TakeValue(format, number);
    if (format.width > mostPadding || (!IsText(format) && format.precision > mostPadding)) return false;
    PutInsert(format, value);
    return true;
  }

  // Takes the arguments of the asterisks, then the value.
  ULONG_PTR TakeValue(InsertFormat& format, unsigned number) {
    const bool hasStar = format.starWidth || format.starPrecision;
    if (format.starWidth) {
      format.width = static_cast<std::int32_t>(mArguments.Get(number++));
      if (format.width < 0) {
        format.left = true;
        format.width = -format.width;
      }
    }
    if (format.starPrecision) {
      format.precision = static_cast<std::int32_t>(mArguments.Get(number++));
      if (format.precision < 0) format.precision = -1;
    }
    if (hasStar && mArguments.GetForm() == MessageArguments::Form::List) return mArguments.TakeUnnumbered();
    return mArguments.Get(number);
  }

  static bool IsText(const InsertFormat& format) {
    return std::string_view("cCsS").find(format.type) != std::string_view::npos;
  }

  void PutInsert(const InsertFormat& format, ULONG_PTR value) {
    switch (format.type) {
      case 's':
      case 'S':
        PutText(format, value);
        break;
      case 'c':
      case 'C':
        PutCharacter(format, value);
        break;
      case 'p':
        PutPointer(format, value);
        break;
      default:
        PutNumber(format, value);
        break;
    }
  }

  // Whether text or a character is 16-bit: s is the function's own width and S the other one, unless a prefix
  // says.
  static bool IsWideArgument(const InsertFormat& format) {
    if (format.narrowText) return false;
    if (format.wideText) return true;
    return isWide == (format.type == 's' || format.type == 'c');
  }

  // Length of a terminated text, of which no more than `most` units are looked at.
  template <typename Unit>
  static std::size_t Length(const Unit* text, std::int64_t most) {
    std::size_t length = 0;
    while ((most < 0 || length < static_cast<std::size_t>(most)) && text[length] != 0) ++length;
    return length;
  }

  void PutText(const InsertFormat& format, ULONG_PTR value) {
    if (value == 0) return PutTextOf(format, std::string_view("(null)"));
    if (IsWideArgument(format)) {
      const auto* text = reinterpret_cast<const WCHAR*>(value);
      PutTextOf(format, std::basic_string_view<WCHAR>(text, Length(text, format.precision)));
    } else {
      const auto* text = reinterpret_cast<const char*>(value);
      PutTextOf(format, std::string_view(text, Length(text, format.precision)));
    }
  }

  void PutCharacter(InsertFormat format, ULONG_PTR value) {
    format.precision = -1;
    // A zero character would end the text for whoever reads it.
    if (IsWideArgument(format)) {
      const auto unit = static_cast<WCHAR>(value);
      PutTextOf(format, std::basic_string_view<WCHAR>(&unit, unit != 0 ? 1 : 0));
    } else {
      const auto unit = static_cast<char>(value);
      PutTextOf(format, std::string_view(&unit, unit != 0 ? 1 : 0));
    }
  }

  template <typename Unit>
  void PutTextOf(const InsertFormat& format, std::basic_string_view<Unit> text) {
    if constexpr (std::is_same_v<Unit, Char>) {
      PutPadded(format, Cut(text, format.precision));
    } else {
      const Text converted = Convert(text);
      PutPadded(format, Cut(TextView(converted), format.precision));
    }
  }

  static Text Convert(std::string_view text) {
    Text wide(text.size(), 0);  // no character takes more units than bytes
    if (!text.empty())
      wide.resize(
          static_cast<std::size_t>(MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()),
                                                       wide.data(), static_cast<int>(wide.size()))));
    return wide;
  }

  static Text Convert(std::basic_string_view<WCHAR> text) {
    Text narrow(text.size() * 3, '\0');
    if (!text.empty())
      narrow.resize(static_cast<std::size_t>(
          WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), narrow.data(),
                              static_cast<int>(narrow.size()), nullptr, nullptr)));
    return narrow;
  }

  // The text up to a precision, which never leaves half a character.
  static TextView Cut(TextView text, std::int64_t precision) {
    const auto most = static_cast<std::uint64_t>(precision);
    if (precision < 0) return text;
    if constexpr (isWide) {
      return text.substr(0, most);
    } else {
      const CodePage& page = AnsiCodePage();
      if (page.kind == CodePage::Kind::SingleByte) return text.substr(0, most);
      const auto* begin = reinterpret_cast<const unsigned char*>(text.data());
      std::size_t size = 0;
      while (size < text.size()) {
        const std::size_t next = size + WholeSize(page, begin + size, begin + text.size());
        if (next > most) break;
        size = next;
      }
      return text.substr(0, size);
    }
  }

  // The bytes of a character, also of one that the end of the text has cut: those bytes are no characters of
  // their own.
  static std::size_t WholeSize(const CodePage& page, const unsigned char* at, const unsigned char* end) {
    if (page.kind == CodePage::Kind::DoubleByte) return page.isLead[*at] ? 2 : 1;
    const std::size_t size = page.CharacterSize(at, end);
    if (size == 1 && *at >= 0xC2 && *at <= 0xF4) {
      std::size_t tail = 1;
      while (at + tail < end && (at[tail] & 0xC0) == 0x80) ++tail;
      const std::size_t whole = *at < 0xE0 ? 2 : *at < 0xF0 ? 3 : 4;
      if (at + tail == end && tail < whole) return whole;
    }
    return size;
  }

  void PutPadded(const InsertFormat& format, TextView text) {
    const std::size_t padding = Padding(format, text.size());
    if (!format.left) mSink.Fill(format.zero ? '0' : ' ', padding);
    mSink.Put(text.data(), text.size());
    if (format.left) mSink.Fill(' ', padding);
  }

  static std::size_t Padding(const InsertFormat& format, std::size_t size) {
    const auto width = static_cast<std::size_t>(format.width);
    return width > size ? width - size : 0;
  }

  void PutPointer(InsertFormat format, ULONG_PTR value) {
    format.type = 'X';
    format.wide64 = true;
    format.precision = 2 * sizeof(void*);
    format.alternate = false;
    PutNumber(format, value);
  }

  void PutNumber(const InsertFormat& format, ULONG_PTR value) {
    const bool isSigned = format.type == 'd' || format.type == 'i';
    std::string_view prefix;
    std::uint64_t magnitude = value;
    if (isSigned) {
      const std::int64_t number = format.wide64 ? static_cast<std::int64_t>(value)
                                  : format.half ? static_cast<std::int16_t>(value)
                                                : static_cast<std::int32_t>(value);
      magnitude = number < 0 ? 0 - static_cast<std::uint64_t>(number) : static_cast<std::uint64_t>(number);
      prefix = number < 0 ? "-" : format.plus ? "+" : format.blank ? " " : "";
    } else if (!format.wide64) {
      magnitude = format.half ? static_cast<std::uint16_t>(value) : static_cast<std::uint32_t>(value);
    }
    if (format.alternate && magnitude != 0 && (format.type == 'x' || format.type == 'X'))
      prefix = format.type == 'x' ? "0x" : "0X";
    PutDigits(format, prefix, magnitude);
  }

  void PutDigits(const InsertFormat& format, std::string_view prefix, std::uint64_t magnitude) {
    Char digits[24];
    Char* const end = digits + 24;
    Char* first = end;
    const unsigned base = format.type == 'x' || format.type == 'X' ? 16 : format.type == 'o' ? 8 : 10;
    const char* const alphabet = format.type == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
    for (; magnitude != 0; magnitude /= base)
      *--first = static_cast<Char>(static_cast<unsigned char>(alphabet[magnitude % base]));
    const auto count = static_cast<std::size_t>(end - first);
    // At least one digit, unless a precision of 0 asks for none; an alternate octal number begins with 0.
    std::size_t least = format.precision < 0 ? 1 : static_cast<std::size_t>(format.precision);
    if (format.alternate && base == 8) least = std::max(least, count + 1);
    std::size_t zeros = least > count ? least - count : 0;
    const std::size_t padding = Padding(format, prefix.size() + zeros + count);
    const bool padsWithZeros = format.zero && !format.left && format.precision < 0;
    if (padsWithZeros) zeros += padding;
    if (!format.left && !padsWithZeros) mSink.Fill(' ', padding);
    for (const char unit : prefix) mSink.Put(static_cast<Char>(unit));
    mSink.Fill('0', zeros);
    mSink.Put(first, count);
    if (format.left) mSink.Fill(' ', padding);
  }

  const Char* mAt;
  const MessageOptions& mOptions;
  MessageArguments& mArguments;
  MessageSink<Char>& mSink;
};

}  // namespace

template <typename Char>
DWORD FormatMessageText(const Char* text, const MessageOptions& options, MessageArguments& arguments,
                        MessageSink<Char>& sink) {
  try {
    const DWORD error = Formatter<Char>(text, options, arguments, sink).Run();
    return error == ERROR_SUCCESS && sink.IsOutOfMemory() ? ERROR_NOT_ENOUGH_MEMORY : error;
  } catch (const std::bad_alloc&) {
    return ERROR_NOT_ENOUGH_MEMORY;
  }
}

template DWORD FormatMessageText(const char*, const MessageOptions&, MessageArguments&, MessageSink<char>&);
template DWORD FormatMessageText(const WCHAR*, const MessageOptions&, MessageArguments&, MessageSink<WCHAR>&);

}  // namespace orm::platform
