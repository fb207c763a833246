// 8-bit character traits: messages, conversions, and the text functions that know multibyte characters.
#include <ormutil/LastErrorKeeper.h>
#include <ormutil/StringTraits.h>

#include <algorithm>
#include <climits>
#include <cstdio>

#include "MessageResult.h"
#include "SerializedText.h"

namespace orm {

namespace {

constexpr const char* kSource = "src/shared/BaseString";

const unsigned char* Bytes(const char* text) {
  return reinterpret_cast<const unsigned char*>(text);
}
unsigned char* Bytes(char* text) {
  return reinterpret_cast<unsigned char*>(text);
}
const char* Text(const unsigned char* bytes) {
  return reinterpret_cast<const char*>(bytes);
}

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}
char Upper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

}  // namespace

int SbcsTraits::FormatMessageV(Char* buffer, const Char* format, unsigned size, char* arguments) {
  const LastErrorKeeper keeper;
  SetLastError(ERROR_SUCCESS);
  const DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_STRING, format, 0, 0, buffer, size,
                                      reinterpret_cast<va_list*>(arguments));
  return MessageResult(length, buffer, size);
}

int SbcsTraits::SystemError(Char* buffer, unsigned code, unsigned size) {
  const LastErrorKeeper keeper;
  SetLastError(ERROR_SUCCESS);
  return MessageResult(FormatMessageA(kSystemMessage, nullptr, code, 0, buffer, size, nullptr), buffer, size);
}

unsigned SbcsTraits::GetSerializedSize(const void* source, unsigned sourceCodePage, unsigned destCodePage,
                                       unsigned sourceSize) {
  if (sourceCodePage != CODE_PAGE_UTF16) return sourceSize;
  const LastErrorKeeper keeper;
  const AlignedUnits units(source);
  const int result = WideCharToMultiByte(destCodePage, 0, units.GetBegin(), -1, nullptr, 0, nullptr, nullptr);
  ORM_ASSERT(result != 0, "result != 0", kSource, 58);
  ThrowWithoutMemory(result);
  return static_cast<unsigned>(result);
}

void SbcsTraits::SerializeFrom(Char* dest, const void* source, unsigned sourceCodePage, unsigned destCodePage,
                               unsigned destSize) {
  if (sourceCodePage != CODE_PAGE_UTF16) {
    if (destSize == 0) return;
    const size_t size = std::min<size_t>(std::strlen(static_cast<const char*>(source)), destSize - 1);
    std::memcpy(dest, source, size);
    dest[size] = 0;
    return;
  }
  const LastErrorKeeper keeper;
  const AlignedUnits units(source);
  const int size = static_cast<int>(std::min<unsigned>(destSize, INT_MAX));
  ORM_ASSERT(WideCharToMultiByte(destCodePage, 0, units.GetBegin(), -1, dest, size, nullptr, nullptr) != 0,
             "::WideCharToMultiByte(destCodePage, 0, static_cast<TraitsConvStringType>(pSource), -1, buffer, "
             "destSize, 0, 0) != 0",
             kSource, 76);
}

unsigned SbcsTraits::GetStoredCodePage(unsigned requested) {
  return requested ? requested : GetACP();
}

int SbcsTraits::CompareNoCase(const Char* a, const Char* b) {
  return CompareNoCase(a, b, SIZE_MAX);
}

int SbcsTraits::CompareNoCase(const Char* a, const Char* b, size_t count) {
  for (; count > 0; --count, ++a, ++b) {
    const auto left = static_cast<unsigned char>(Lower(*a));
    const auto right = static_cast<unsigned char>(Lower(*b));
    if (left != right || left == 0) return left - right;
  }
  return 0;
}

const char* SbcsTraits::Find(const Char* text, unsigned character) {
  return character <= 0xFF ? std::strchr(text, static_cast<int>(character)) : nullptr;
}

const char* SbcsTraits::FindLast(const Char* text, unsigned character) {
  return character <= 0xFF ? std::strrchr(text, static_cast<int>(character)) : nullptr;
}

void SbcsTraits::MakeLower(Char* text) {
  for (; *text != 0; ++text) *text = Lower(*text);
}

void SbcsTraits::MakeUpper(Char* text) {
  for (; *text != 0; ++text) *text = Upper(*text);
}

int SbcsTraits::FormatV(Char* buffer, size_t size, const Char* format, va_list arguments) {
  return std::vsnprintf(buffer, size, format, arguments);
}

size_t MbcsTraits::GetLength(const Char* text) {
  return _mbslen(Bytes(text));
}

const char* MbcsTraits::Next(const Char* pos) {
  return Text(_mbsinc(Bytes(pos)));
}

const char* MbcsTraits::Previous(const Char* begin, const Char* pos) {
  return Text(_mbsdec(Bytes(begin), Bytes(pos)));
}

unsigned MbcsTraits::Decode(const Char* pos) {
  return _mbsnextc(Bytes(pos));
}

int MbcsTraits::Compare(const Char* a, const Char* b) {
  return _mbscmp(Bytes(a), Bytes(b));
}

int MbcsTraits::CompareNoCase(const Char* a, const Char* b) {
  return _mbsicmp(Bytes(a), Bytes(b));
}

int MbcsTraits::CompareNoCase(const Char* a, const Char* b, size_t count) {
  return _mbsnicmp(Bytes(a), Bytes(b), count);
}

size_t MbcsTraits::Span(const Char* text, const Char* set) {
  return _mbsspn(Bytes(text), Bytes(set));
}

size_t MbcsTraits::SpanNot(const Char* text, const Char* set) {
  return _mbscspn(Bytes(text), Bytes(set));
}

const char* MbcsTraits::Find(const Char* text, unsigned character) {
  return Text(_mbschr(Bytes(text), character));
}

const char* MbcsTraits::FindLast(const Char* text, unsigned character) {
  return Text(_mbsrchr(Bytes(text), character));
}

const char* MbcsTraits::FindText(const Char* text, const Char* part) {
  return Text(_mbsstr(Bytes(text), Bytes(part)));
}

void MbcsTraits::MakeLower(Char* text) {
  _mbslwr(Bytes(text));
}

void MbcsTraits::MakeUpper(Char* text) {
  _mbsupr(Bytes(text));
}

}  // namespace orm
