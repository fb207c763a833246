// Character traits: what a BaseString needs to know about its characters.
//
// SbcsTraits  8-bit characters, one byte each, in an ANSI code page
// MbcsTraits  8-bit text in the process's ANSI code page, a character being one or more bytes
// WcsTraits   UTF-16 units
//
// Every function is static, may be called by any thread at once, and takes zero-terminated text unless it
// says otherwise. Sizes are in bytes, counts and lengths in characters. A lead byte that stands before the
// terminator counts as a character of its own: no function looks behind the terminator.
#pragma once

#include <ormutil/Export.h>
#include <ormutil/Trace.h>

#include <cstring>

namespace orm {

// Denotes UTF-16 little-endian text in serialized strings.
inline constexpr unsigned CODE_PAGE_UTF16 = 1200;

// Message and conversion functions of all 8-bit text, and the text functions of single-byte text. Letters
// outside ASCII have no case here; MbcsTraits knows the letters of the code page.
struct ORMUTIL_API SbcsTraits {
  using Char = char;

  // Formats `format` in the platform's message-insert syntax ("%1", "%1!x!"). `arguments` points to the
  // va_list that the inserts are taken from, each of pointer size; the list is left as it was. `size` is that
  // of the buffer. Returns 1 on success, 0 when the buffer is too small, -1 on any other failure.
  static int FormatMessageV(Char* buffer, const Char* format, unsigned size, char* arguments);
  // Puts the system's text for an error number, as one line, into the buffer. Results as above.
  static int SystemError(Char* buffer, unsigned code, unsigned size);
  // The bytes, terminator included, that SerializeFrom needs for the serialized text `source`, which ends
  // with a zero character within its `sourceSize` bytes.
  static unsigned GetSerializedSize(const void* source, unsigned sourceCodePage, unsigned destCodePage,
                                    unsigned sourceSize);
  // Writes the serialized text into `dest`. Text of an 8-bit code page is copied, that of code page 1200
  // converted to `destCodePage`.
  static void SerializeFrom(Char* dest, const void* source, unsigned sourceCodePage, unsigned destCodePage,
                            unsigned destSize);
  // The code page that text of these traits is serialized with: `requested`, or the ANSI one when that is 0.
  static unsigned GetStoredCodePage(unsigned requested);

  static size_t GetSize(const Char* text) { return std::strlen(text); }
  static size_t GetLength(const Char* text) { return std::strlen(text); }
  // The character behind the one at `pos`, which is not the terminator.
  static const Char* Next(const Char* pos) { return pos + 1; }
  // The character before `pos`, which is behind `begin`.
  static const Char* Previous(const Char*, const Char* pos) { return pos - 1; }
  // The character at `pos` as a number.
  static unsigned Decode(const Char* pos) { return static_cast<unsigned char>(*pos); }
  // Negative, 0 or positive.
  static int Compare(const Char* a, const Char* b) { return std::strcmp(a, b); }
  static int CompareNoCase(const Char* a, const Char* b);
  static int CompareNoCase(const Char* a, const Char* b, size_t count);
  // The bytes of the longest start of `text` whose characters are all in `set`, or none of them.
  static size_t Span(const Char* text, const Char* set) { return std::strspn(text, set); }
  static size_t SpanNot(const Char* text, const Char* set) { return std::strcspn(text, set); }
  // Null when there is none.
  static const Char* Find(const Char* text, unsigned character);
  static const Char* FindLast(const Char* text, unsigned character);
  static const Char* FindText(const Char* text, const Char* part) { return std::strstr(text, part); }
  static void MakeLower(Char* text);
  static void MakeUpper(Char* text);
  // printf-style formatting into `size` bytes, terminator included: the characters that the whole text has,
  // also when fewer fit; negative when the format cannot be carried out.
  static int FormatV(Char* buffer, size_t size, const Char* format, va_list arguments);
};

struct ORMUTIL_API MbcsTraits : SbcsTraits {
  static size_t GetLength(const Char* text);
  static const Char* Next(const Char* pos);
  static const Char* Previous(const Char* begin, const Char* pos);
  static unsigned Decode(const Char* pos);
  static int Compare(const Char* a, const Char* b);
  static int CompareNoCase(const Char* a, const Char* b);
  static int CompareNoCase(const Char* a, const Char* b, size_t count);
  static size_t Span(const Char* text, const Char* set);
  static size_t SpanNot(const Char* text, const Char* set);
  static const Char* Find(const Char* text, unsigned character);
  static const Char* FindLast(const Char* text, unsigned character);
  static const Char* FindText(const Char* text, const Char* part);
  static void MakeLower(Char* text);
  static void MakeUpper(Char* text);
};

// A character is one unit here; surrogate pairs are two.
struct ORMUTIL_API WcsTraits {
  using Char = unsigned short;

  static int FormatMessageV(Char* buffer, const Char* format, unsigned size, char* arguments);
  static int SystemError(Char* buffer, unsigned code, unsigned size);
  static unsigned GetSerializedSize(const void* source, unsigned sourceCodePage, unsigned destCodePage,
                                    unsigned sourceSize);
  static void SerializeFrom(Char* dest, const void* source, unsigned sourceCodePage, unsigned destCodePage,
                            unsigned destSize);
  static unsigned GetStoredCodePage(unsigned) { return CODE_PAGE_UTF16; }

  static size_t GetSize(const Char* text) { return GetLength(text) * sizeof(Char); }
  static size_t GetLength(const Char* text);
  static const Char* Next(const Char* pos) { return pos + 1; }
  static const Char* Previous(const Char*, const Char* pos) { return pos - 1; }
  static unsigned Decode(const Char* pos) { return *pos; }
  static int Compare(const Char* a, const Char* b);
  static int CompareNoCase(const Char* a, const Char* b);
  static int CompareNoCase(const Char* a, const Char* b, size_t count);
  static size_t Span(const Char* text, const Char* set);
  static size_t SpanNot(const Char* text, const Char* set);
  static const Char* Find(const Char* text, unsigned character);
  static const Char* FindLast(const Char* text, unsigned character);
  static const Char* FindText(const Char* text, const Char* part);
  static void MakeLower(Char* text);
  static void MakeUpper(Char* text);
  // %s and %c take UTF-16, %hs and %hc text of the ANSI code page; the rest as usual.
  static int FormatV(Char* buffer, size_t size, const Char* format, va_list arguments);
};

}  // namespace orm
