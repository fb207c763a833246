// UTF-16 character traits.
#include <ormutil/LastErrorKeeper.h>
#include <ormutil/StringTraits.h>

#include <algorithm>
#include <climits>

#include "MessageResult.h"
#include "SerializedText.h"
#include "WideCase.h"
#include "WidePrintf.h"

namespace orm {

namespace {

constexpr const char* kSource = "src/shared/BaseString";
constexpr unsigned kUnitSize = sizeof(WcsTraits::Char);

bool IsIn(unsigned short unit, const unsigned short* set) {
  while (*set != 0 && *set != unit) ++set;
  return *set != 0;
}

// The bytes of the longest start whose units are all in the set, or none of them.
size_t SpanOf(const unsigned short* text, const unsigned short* set, bool inSet) {
  const unsigned short* pos = text;
  while (*pos != 0 && IsIn(*pos, set) == inSet) ++pos;
  return static_cast<size_t>(pos - text) * sizeof *text;
}

}  // namespace

int WcsTraits::FormatMessageV(Char* buffer, const Char* format, unsigned size, char* arguments) {
  const unsigned units = size / kUnitSize;
  const LastErrorKeeper keeper;
  SetLastError(ERROR_SUCCESS);
  const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_STRING, format, 0, 0, buffer, units,
                                      reinterpret_cast<va_list*>(arguments));
  return MessageResult(length, buffer, units);
}

int WcsTraits::SystemError(Char* buffer, unsigned code, unsigned size) {
  const unsigned units = size / kUnitSize;
  const LastErrorKeeper keeper;
  SetLastError(ERROR_SUCCESS);
  return MessageResult(FormatMessageW(kSystemMessage, nullptr, code, 0, buffer, units, nullptr), buffer,
                       units);
}

unsigned WcsTraits::GetSerializedSize(const void* source, unsigned sourceCodePage, unsigned,
                                      unsigned sourceSize) {
  if (sourceCodePage == CODE_PAGE_UTF16) return sourceSize;
  const LastErrorKeeper keeper;
  const int result = MultiByteToWideChar(sourceCodePage, 0, static_cast<const char*>(source), -1, nullptr, 0);
  ORM_ASSERT(result != 0, "result != 0", kSource, 120);
  ThrowWithoutMemory(result);
  return static_cast<unsigned>(result) * 2;
}

void WcsTraits::SerializeFrom(Char* dest, const void* source, unsigned sourceCodePage, unsigned,
                              unsigned destSize) {
  const unsigned units = destSize / kUnitSize;
  if (units == 0) return;
  if (sourceCodePage == CODE_PAGE_UTF16) {
    const AlignedUnits text(source);
    const size_t length = std::min<size_t>(GetLength(text.GetBegin()), units - 1);
    std::memcpy(dest, text.GetBegin(), length * sizeof(Char));
    dest[length] = 0;
    return;
  }
  const LastErrorKeeper keeper;
  ORM_ASSERT(MultiByteToWideChar(sourceCodePage, 0, static_cast<const char*>(source), -1, dest,
                                 static_cast<int>(std::min<unsigned>(units, INT_MAX))) != 0,
             "::MultiByteToWideChar(sourceCodePage, 0, static_cast<TraitsConvStringType>(pSource), -1, "
             "buffer, destSize) != 0",
             kSource, 138);
}

size_t WcsTraits::GetLength(const Char* text) {
  const Char* pos = text;
  while (*pos != 0) ++pos;
  return static_cast<size_t>(pos - text);
}

int WcsTraits::Compare(const Char* a, const Char* b) {
  for (; *a == *b && *a != 0; ++a, ++b) {
  }
  return *a - *b;
}

int WcsTraits::CompareNoCase(const Char* a, const Char* b) {
  return CompareNoCase(a, b, SIZE_MAX);
}

int WcsTraits::CompareNoCase(const Char* a, const Char* b, size_t count) {
  for (; count > 0; --count, ++a, ++b) {
    const int left = LowerOf(*a);
    const int right = LowerOf(*b);
    if (left != right || left == 0) return left - right;
  }
  return 0;
}

size_t WcsTraits::Span(const Char* text, const Char* set) {
  return SpanOf(text, set, true);
}

size_t WcsTraits::SpanNot(const Char* text, const Char* set) {
  return SpanOf(text, set, false);
}

const unsigned short* WcsTraits::Find(const Char* text, unsigned character) {
  for (; *text != character; ++text) {
    if (*text == 0) return nullptr;
  }
  return text;
}

const unsigned short* WcsTraits::FindLast(const Char* text, unsigned character) {
  const Char* found = nullptr;
  for (;; ++text) {
    if (*text == character) found = text;
    if (*text == 0) return found;
  }
}

const unsigned short* WcsTraits::FindText(const Char* text, const Char* part) {
  const size_t size = GetSize(part);
  for (size_t left = GetSize(text); left >= size; left -= sizeof(Char), ++text) {
    if (std::memcmp(text, part, size) == 0) return text;
    if (left == 0) break;
  }
  return nullptr;
}

void WcsTraits::MakeLower(Char* text) {
  for (; *text != 0; ++text) *text = LowerOf(*text);
}

void WcsTraits::MakeUpper(Char* text) {
  for (; *text != 0; ++text) *text = UpperOf(*text);
}

int WcsTraits::FormatV(Char* buffer, size_t size, const Char* format, va_list arguments) {
  const LastErrorKeeper keeper;
  return FormatWide(buffer, size / sizeof(Char), format, arguments);
}

}  // namespace orm
