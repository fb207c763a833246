// The longer operations of BaseString, but for formatting. Included by BaseString.h, never directly. The
// three instantiations live in libormutil; the definitions stand in a header for traits of a client's own.
#pragma once

#include <ormutil/CopyBytes.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace orm {

namespace string_detail {

inline constexpr int kLineWriting = 1924;
inline constexpr int kLineConstruction = 1949;

inline void Store32(unsigned char* dest, uint32_t value) {
  for (int i = 0; i < 4; ++i) dest[i] = static_cast<unsigned char>(value >> (8 * i));
}
inline uint32_t Load32(const unsigned char* source) {
  return source[0] | uint32_t{source[1]} << 8 | uint32_t{source[2]} << 16 | uint32_t{source[3]} << 24;
}

// A character as a number without sign: a plain char above 127 arrives with its sign extended.
template <class Char>
constexpr unsigned CharacterOf(unsigned value) {
  return sizeof(Char) == 1 && value >= 0xFFFFFF80 ? value & 0xFF : value;
}

// Whether a text of this code page ends within its bytes. The bytes need not be aligned.
inline bool IsTerminated(const unsigned char* text, size_t size, unsigned codePage) {
  if (codePage != CODE_PAGE_UTF16) return std::memchr(text, 0, size) != nullptr;
  for (size_t i = 0; i + 1 < size; i += 2) {
    if (text[i] == 0 && text[i + 1] == 0) return true;
  }
  return false;
}

}  // namespace string_detail

template <class Traits>
BaseString<Traits>::BaseString(const Char* text)
    : BaseString(text, text ? text + Traits::GetSize(text) / sizeof(Char) : nullptr) {}

template <class Traits>
BaseString<Traits>::BaseString(const Char* begin, const Char* end) {
  if (begin >= end) {
    mpText = Text(string_detail::TakeEmptyBlock());
    return;
  }
  const size_t size = static_cast<size_t>(end - begin) * sizeof(Char);
  mpText = Text(string_detail::AllocateBlock(string_detail::RoundCapacity(size + sizeof(Char)),
                                             string_detail::kLineConstruction));
  std::memcpy(mpText, begin, size);
  mpText[end - begin] = 0;
}

template <class Traits>
bool BaseString<Traits>::Owns(const Char* pos) const {
  const auto address = reinterpret_cast<uintptr_t>(pos);
  const auto begin = reinterpret_cast<uintptr_t>(mpText);
  return address >= begin && address - begin < Block()->capacity;
}

template <class Traits>
auto BaseString<Traits>::PrepareWriting(size_t size, bool keepText) -> Char* {
  if (size <= Block()->capacity && !IsShared()) return mpText;
  const size_t present = size == 0 || keepText ? GetSize() + sizeof(Char) : 0;
  const size_t capacity = size == 0 ? present : string_detail::RoundCapacity(std::max(size, present));
  StringBlock* block = string_detail::AllocateBlock(capacity, string_detail::kLineWriting);
  if (keepText) std::memcpy(Text(block), mpText, present);
  Take(block);
  return mpText;
}

// In the next two a text that lies in this string's own block is kept alive, and the block made unwritable,
// by holding it once more.
template <class Traits>
auto BaseString<Traits>::operator=(const Char* text) -> BaseString& {
  if (!text || *text == 0) {
    Empty();
    return *this;
  }
  const BaseString keep = KeepOwner(text);
  const size_t size = Traits::GetSize(text) + sizeof(Char);
  std::memcpy(PrepareWriting(size, false), text, size);
  return *this;
}

template <class Traits>
void BaseString<Traits>::Append(const Char* text) {
  if (text) Append(text, text + Traits::GetSize(text) / sizeof(Char));
}

template <class Traits>
void BaseString<Traits>::Append(const Char* begin, const Char* end) {
  if (begin >= end) return;
  const BaseString keep = KeepOwner(begin);
  const size_t present = GetSize();
  const size_t added = static_cast<size_t>(end - begin) * sizeof(Char);
  Char* target = PrepareWriting(present + added + sizeof(Char), true) + present / sizeof(Char);
  std::memcpy(target, begin, added);
  target[end - begin] = 0;
}

template <class Traits>
void BaseString<Traits>::Append(const BaseString& other) {
  if (IsEmpty()) {
    *this = other;
  } else {
    Append(other.mpText);
  }
}

template <class Traits>
void BaseString<Traits>::Empty() {
  if (IsEmpty()) return;
  if (IsShared()) {
    Take(string_detail::TakeEmptyBlock());
  } else {
    *mpText = 0;
  }
}

template <class Traits>
void BaseString<Traits>::SetRange(const Char* begin, const Char* end) {
  if (begin == mpText && end == GetEnd()) return;
  if (begin >= end) {
    Empty();
  } else if (IsShared()) {
    *this = BaseString(begin, end);
  } else {
    std::memmove(mpText, begin, static_cast<size_t>(end - begin) * sizeof(Char));
    mpText[end - begin] = 0;
  }
}

template <class Traits>
unsigned BaseString<Traits>::GetAt(int index) const {
  ORM_ASSERT(index >= 0 && static_cast<size_t>(index) < GetLength(),
             "index >= 0 && static_cast<size_t>(index) < GetLength()", string_detail::kSource, 1096);
  const Char* pos = mpText;
  for (; index > 0 && *pos != 0; --index) pos = Traits::Next(pos);
  return index < 0 ? 0 : Traits::Decode(pos);
}

template <class Traits>
int BaseString<Traits>::Compare(const Char* pOther) const {
  ORM_ASSERT(pOther != nullptr, "pOther != 0", string_detail::kSource, 1258);
  return Traits::Compare(mpText, pOther ? pOther : kNoText);
}

template <class Traits>
int BaseString<Traits>::CompareNoCase(const Char* pOther) const {
  ORM_ASSERT(pOther != nullptr, "pOther != 0", string_detail::kSource, 1271);
  return Traits::CompareNoCase(mpText, pOther ? pOther : kNoText);
}

template <class Traits>
int BaseString<Traits>::CompareNoCase(const Char* pOther, size_t count) const {
  ORM_ASSERT(pOther != nullptr, "pOther != 0", string_detail::kSource, 1299);
  return Traits::CompareNoCase(mpText, pOther ? pOther : kNoText, count);
}

template <class Traits>
auto BaseString<Traits>::Find(unsigned character) const -> const Char* {
  const Char* found = Traits::Find(mpText, string_detail::CharacterOf<Char>(character));
  return found ? found : GetEnd();
}

template <class Traits>
auto BaseString<Traits>::Find(unsigned character, const Char* pos) const -> const Char* {
  const bool inside = pos >= GetBegin() && pos <= GetEnd();
  ORM_ASSERT(inside, "pos >= GetBegin() && pos <= GetEnd()", string_detail::kSource, 1395);
  const Char* found = inside ? Traits::Find(pos, string_detail::CharacterOf<Char>(character)) : nullptr;
  return found ? found : GetEnd();
}

template <class Traits>
auto BaseString<Traits>::FindLast(unsigned character) const -> const Char* {
  const Char* found = Traits::FindLast(mpText, string_detail::CharacterOf<Char>(character));
  return found ? found : GetEnd();
}

template <class Traits>
auto BaseString<Traits>::FindText(const Char* pPart) const -> const Char* {
  const Char* found = Traits::FindText(mpText, pPart ? pPart : kNoText);
  return found ? found : GetEnd();
}

template <class Traits>
auto BaseString<Traits>::Split(const Char* pCharacterSet) const -> std::vector<BaseString> {
  // Two places check the set: this operation, and the one behind it that fills a caller's list.
  ORM_ASSERT(pCharacterSet != nullptr, "pCharacterSet != 0", string_detail::kSource, 1488);
  ORM_ASSERT(pCharacterSet != nullptr, "pCharacterSet != 0", string_detail::kSource, 1461);
  const Char* set = pCharacterSet ? pCharacterSet : kNoText;
  std::vector<BaseString> tokens;
  const Char* pos = mpText + Traits::Span(mpText, set) / sizeof(Char);
  while (*pos != 0) {
    const Char* end = pos + Traits::SpanNot(pos, set) / sizeof(Char);
    tokens.push_back(BaseString(pos, end));
    pos = end + Traits::Span(end, set) / sizeof(Char);
  }
  return tokens;
}

template <class Traits>
void BaseString<Traits>::TrimLeft(const Char* pCharacterSet) {
  ORM_ASSERT(pCharacterSet != nullptr, "pCharacterSet != 0", string_detail::kSource, 2194);
  if (pCharacterSet) SetRange(mpText + Traits::Span(mpText, pCharacterSet) / sizeof(Char), GetEnd());
}

template <class Traits>
void BaseString<Traits>::TrimRight(const Char* pCharacterSet) {
  if (pCharacterSet) SetRange(mpText, EndWithout(mpText, pCharacterSet));
}

template <class Traits>
void BaseString<Traits>::Trim(const Char* pCharacterSet) {
  ORM_ASSERT(pCharacterSet != nullptr, "pCharacterSet != 0", string_detail::kSource, 2249);
  if (!pCharacterSet) return;
  const Char* begin = mpText + Traits::Span(mpText, pCharacterSet) / sizeof(Char);
  SetRange(begin, EndWithout(begin, pCharacterSet));
}

template <class Traits>
void BaseString<Traits>::Trim(unsigned character) {
  character = string_detail::CharacterOf<Char>(character);
  const auto isTrimmed = [=](unsigned other) { return other == character; };
  const Char* begin = mpText;
  while (*begin != 0 && isTrimmed(Traits::Decode(begin))) begin = Traits::Next(begin);
  SetRange(begin, EndWithoutIf(begin, isTrimmed));
}

template <class Traits>
auto BaseString<Traits>::EndWithout(const Char* begin, const Char* pCharacterSet) const -> const Char* {
  return EndWithoutIf(begin,
                      [=](unsigned character) { return Traits::Find(pCharacterSet, character) != nullptr; });
}

// Back from the end, where a character is a unit. Where one is more, telling its start from its end can take
// a look at all of the text before it, so such a text is read from its start, and once.
template <class Traits>
template <class Predicate>
auto BaseString<Traits>::EndWithoutIf(const Char* begin, Predicate isTrimmed) const -> const Char* {
  const Char* end = GetEnd();
  if (Traits::GetLength(begin) == static_cast<size_t>(end - begin)) {
    while (end > begin && isTrimmed(Traits::Decode(end - 1))) --end;
    return end;
  }
  end = begin;
  for (const Char* pos = begin; *pos != 0;) {
    const bool stays = !isTrimmed(Traits::Decode(pos));
    pos = Traits::Next(pos);
    if (stays) end = pos;
  }
  return end;
}

template <class Traits>
void BaseString<Traits>::MakeLower() {
  if (!IsEmpty()) Traits::MakeLower(PrepareWriting(GetSize() + sizeof(Char), true));
}

template <class Traits>
void BaseString<Traits>::MakeUpper() {
  if (!IsEmpty()) Traits::MakeUpper(PrepareWriting(GetSize() + sizeof(Char), true));
}

template <class Traits>
unsigned BaseString<Traits>::GetSerializedSize(unsigned) const {
  return IsEmpty() ? 4 : static_cast<unsigned>(GetSize() + sizeof(Char) + 8);
}

template <class Traits>
void BaseString<Traits>::Serialize(unsigned char* buffer, unsigned codePage, unsigned size) const {
  if (size == 4) return string_detail::Store32(buffer, 0);
  string_detail::Store32(buffer, size - 8);
  string_detail::Store32(buffer + 4, Traits::GetStoredCodePage(codePage));
  CopyBytes(buffer + 8, mpText, size - 8);
}

template <class Traits>
size_t BaseString<Traits>::Deserialize(const unsigned char* buffer, size_t available, unsigned codePage) {
  if (available < 4) {
    ORM_FORCED_ASSERT(string_detail::kSource, 2495);
    Empty();
    return 0;
  }
  const uint32_t stored = string_detail::Load32(buffer);
  if (stored == 0) {
    Empty();
    return 4;
  }
  if (available < size_t{stored} + 8) {
    ORM_FORCED_ASSERT(string_detail::kSource, 2514);
    Empty();
    return 0;
  }
  unsigned source = string_detail::Load32(buffer + 4);
  const unsigned char* text = buffer + 8;
  if constexpr (std::is_base_of_v<SbcsTraits, Traits>) {
    // 8-bit text stays as it is, whatever its code page: what the traits would do in two steps. A last byte
    // that is a terminator saves the search for one; an earlier one ends the text as well.
    if (source != CODE_PAGE_UTF16) {
      if (text[stored - 1] != 0 && !std::memchr(text, 0, stored)) {
        Empty();
        return 0;
      }
      CopyBytes(PrepareWriting(stored, false), text, stored);
      return size_t{stored} + 8;
    }
  }
  const unsigned ansi = GetACP();
  if (source != CODE_PAGE_UTF16 && source != ansi && !IsValidCodePage(source)) source = ansi;
  if (!string_detail::IsTerminated(text, stored, source)) {
    Empty();
    return 0;
  }
  const unsigned target = codePage ? codePage : ansi;
  const unsigned size = Traits::GetSerializedSize(text, source, target, stored);
  Char* dest = PrepareWriting(std::max<size_t>(size, sizeof(Char)), false);
  // What a failed conversion leaves behind is the empty text.
  *dest = 0;
  Traits::SerializeFrom(dest, text, source, target, size);
  return size_t{stored} + 8;
}

}  // namespace orm
