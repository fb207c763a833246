// The string of every interface: reference-counted text over character traits, copied on write.
//
//   String path("C:\\lib");
//   String name = path;             // shares the block: one interlocked increment
//   name += "\\shape.dll";          // takes a block of its own; `path` still says "C:\lib"
//   String text;
//   text.Format("%s: %d bytes", name, 42);
//   String::FormatInserts("Cannot load '%1', error %2!u!.", name, 126);
//
// A string is one pointer, to the first character of its block:
//
//   | count  4 | capacity  4 | characters, terminator ... |
//                            ^ the pointer
//
// so that it costs a pointer to pass and is zero-terminated text wherever it points. A block with more than
// one holder is never written. When the last holder lets go, the whole character area is overwritten with
// zeros before the block is freed. All empty strings share one block of the module; those that were moved
// from share one that is not even counted.
//
// Different strings may be used by different threads at once, also when they share a block; one string is for
// one thread at a time. Positions are pointers into the text, valid until the string is changed; sizes are in
// bytes, lengths in characters. Programming errors (a null text, a position outside) are assertions; ignored,
// they count as the empty text. An operation that cannot have its memory asserts; the formatting ones then
// give the empty text, the others throw std::bad_alloc, so that no text is lost unseen. Nothing else is
// thrown.
#pragma once

#include <ormutil/AtomicCounter.h>
#include <ormutil/StringTraits.h>

#include <compare>
#include <concepts>
#include <type_traits>
#include <utility>
#include <vector>

namespace orm {

// The two words before the characters of a string.
struct StringBlock {
  constexpr StringBlock(AtomicCounter::Constant tag, LONG holders, unsigned bytes) noexcept
      : count(tag, holders), capacity(bytes) {}
  StringBlock(LONG holders, unsigned bytes) : count(holders), capacity(bytes) {}

  AtomicCounter count;
  uint32_t capacity;  // of the character area, in bytes, with room for the terminator
};
static_assert(sizeof(StringBlock) == 8);

namespace string_detail {

// The file that assertions name.
inline constexpr const char* kSource = "src/include/BaseString";

// Two zero bytes, so that the block reads as an empty text of 8-bit and of 16-bit characters.
struct EmptyText {
  StringBlock block;
  char characters[2];
};

// The text of strings that were moved from. It has no holders to count, so that a move needs no interlocked
// operation and cannot fail; its count is fixed where nobody writes.
ORMUTIL_API extern const EmptyText uncountedText;

// The block of the empty string; the taker increments its count.
ORMUTIL_API StringBlock* RequestEmptyBlock();
// A block with count 1 and exactly this capacity, its characters not set. Out of memory it asserts "pNew !=
// 0" at the given line and throws std::bad_alloc.
ORMUTIL_API StringBlock* AllocateBlock(size_t capacity, int line);
// Wipes and frees a block whose count has fallen to 0.
[[gnu::cold]] ORMUTIL_API void FreeBlock(StringBlock* pBlock) noexcept;

// How many values of a list the format takes.
ORMUTIL_API size_t CountInserts(const char* format);
ORMUTIL_API size_t CountInserts(const unsigned short* format);

inline StringBlock* TakeEmptyBlock() {
  StringBlock* block = RequestEmptyBlock();
  ++block->count;
  return block;
}

// The capacity that a block gets for a request of `size` bytes: a power of two from 8 to 128, then a multiple
// of 128, so that repeated appends and the formatting loops do not reallocate at every step.
constexpr size_t RoundCapacity(size_t size) {
  for (size_t step = 8; step < 128; step *= 2) {
    if (size <= step) return step;
  }
  return (size + 127) / 128 * 128;
}

}  // namespace string_detail

// The module frame calls these: the first counts the module as a holder of the shared empty block, the second
// gives that up, after which every empty string has an empty block of its own.
void BuildEmptyString();
void ReleaseEmptyString();

template <class Traits>
class BaseString {
 public:
  using Char = typename Traits::Char;

  BaseString() : mpText(Text(string_detail::TakeEmptyBlock())) {}
  // A copy of the text; null is the empty text.
  BaseString(const Char* text);
  // A copy of the range; the empty text when `begin` is not before `end`.
  BaseString(const Char* begin, const Char* end);
  BaseString(const BaseString& other) : mpText(other.mpText) { Hold(Block()); }
  // The source becomes empty, also in assignment; a string moved to itself keeps its text.
  BaseString(BaseString&& other) noexcept : mpText(std::exchange(other.mpText, UncountedText())) {}
  ~BaseString() { Release(mpText); }

  BaseString& operator=(const BaseString& other) {
    Hold(other.Block());
    Release(std::exchange(mpText, other.mpText));
    return *this;
  }
  BaseString& operator=(BaseString&& other) noexcept {
    if (this != &other) Release(std::exchange(mpText, std::exchange(other.mpText, UncountedText())));
    return *this;
  }
  // Copies the text, into this string's block when that is large enough and not shared.
  BaseString& operator=(const Char* text);

  void Swap(BaseString& other) noexcept { std::swap(mpText, other.mpText); }

  // Reading.
  bool IsEmpty() const { return *mpText == 0; }
  size_t GetLength() const { return Traits::GetLength(mpText); }
  // In bytes, without the terminator.
  size_t GetSize() const { return Traits::GetSize(mpText); }
  // Of the character area, in bytes.
  unsigned GetCapacity() const { return Block()->capacity; }
  const Char* GetBegin() const { return mpText; }
  // The terminator.
  const Char* GetEnd() const { return mpText + GetSize() / sizeof(Char); }
  // The character at this character index.
  unsigned GetAt(int index) const;

  int Compare(const Char* pOther) const;
  int CompareNoCase(const Char* pOther) const;
  // Compares the first `count` characters.
  int CompareNoCase(const Char* pOther, size_t count) const;

  // The first place of the character (a multibyte one in its numeric form, lead byte first), or the
  // terminator when there is none.
  const Char* Find(unsigned character) const;
  // The same, searching from `pos`.
  const Char* Find(unsigned character, const Char* pos) const;
  // The last place of the character, the first place of the text; the terminator when there is none.
  const Char* FindLast(unsigned character) const;
  const Char* FindText(const Char* pPart) const;

  // The text before, from, and between positions of this string.
  BaseString Left(const Char* end) const { return BaseString(mpText, end); }
  BaseString Right(const Char* begin) const { return BaseString(begin, GetEnd()); }
  BaseString Mid(const Char* begin, const Char* end) const { return BaseString(begin, end); }

  // The tokens between runs of characters of the set; none of them is empty.
  std::vector<BaseString> Split(const Char* pCharacterSet) const;

  // Changing.
  BaseString& operator+=(const Char* text) {
    Append(text);
    return *this;
  }
  BaseString& operator+=(const BaseString& other) {
    Append(other);
    return *this;
  }
  void Append(const Char* text);
  void Append(const Char* begin, const Char* end);
  void Append(const BaseString& other);
  // A block that is not shared keeps its capacity.
  void Empty();
  // A character area of at least `size` bytes that no other string sees, with the old text when `keepText`;
  // else its content is unspecified and the caller must terminate it. A size of 0 asks for the size of the
  // present text. The capacity is GetCapacity().
  Char* PrepareWriting(size_t size, bool keepText);
  // Makes the text the range of its own characters.
  void SetRange(const Char* begin, const Char* end);
  // Remove the leading, the trailing, or both kinds of characters that occur in the set.
  void TrimLeft(const Char* pCharacterSet);
  void TrimRight(const Char* pCharacterSet);
  void Trim(const Char* pCharacterSet);
  // Removes the leading and trailing occurrences of one character.
  void Trim(unsigned character);
  void MakeLower();
  void MakeUpper();

  // printf-style formatting. Strings may be passed for %s; the format is checked by the compiler when none
  // is. The format and the arguments may lie in this string. A format that cannot be carried out gives the
  // empty text.
  [[gnu::format(printf, 2, 3)]] void Format(const char* formatString, ...) requires std::same_as<Char, char> {
    va_list arguments;
    va_start(arguments, formatString);
    FormatV(reinterpret_cast<const Char*>(formatString), arguments);
    va_end(arguments);
  }
  void Format(const unsigned short* formatString, ...) requires std::same_as<Char, unsigned short> {
    va_list arguments;
    va_start(arguments, formatString);
    FormatV(reinterpret_cast<const Char*>(formatString), arguments);
    va_end(arguments);
  }
  template <class... Args>
  requires(std::same_as<Args, BaseString> || ...) void Format(const Char* formatString, const Args&... args) {
    FormatArguments(formatString, ToArgument(args)...);
  }
  void FormatV(const Char* formatString, va_list arguments);

  // Message-insert formatting ("%1", "%2!x!"): each insert is taken from the list as a value of pointer size.
  // A null format and every failure give the empty text. The format and the inserts may lie in this string.
  // The list is left as it was.
  void FormatMessage(const Char* format, va_list arguments);
  // The same as a new string, of strings, texts, integers of up to pointer size and enumerators. A format
  // that takes more inserts than there are is a failure; one that takes a number as text reads at its value.
  template <class... Args>
  static BaseString FormatInserts(const Char* format, const Args&... args) {
    return FormatCounted(sizeof...(Args), format, ToInsert(args)...);
  }
  // The same with plain arguments of pointer size, which must be those that the format takes, also in kind.
  static BaseString FormatMessageText(const Char* format, ...);

  // The prefix (may be null) followed by the system's message for the error number.
  void SetSystemError(DWORD code, const Char* prefix);

  // The serialized form, all numbers 32 bits little-endian:
  //
  //   | size in bytes, with terminator | code page | text, terminator |
  //
  // The empty text has the size 0, and nothing follows. `codePage` 0 is the ANSI code page. Serialize writes
  // GetSerializedSize bytes; who has that size already may pass it on. Wide text is stored as UTF-16 whatever
  // the code page.
  unsigned GetSerializedSize(unsigned codePage) const;
  void Serialize(unsigned char* buffer, unsigned codePage) const {
    Serialize(buffer, codePage, GetSerializedSize(codePage));
  }
  void Serialize(unsigned char* buffer, unsigned codePage, unsigned size) const;
  // Reads that form from untrusted bytes and converts UTF-16 to `codePage` (0: ANSI). Returns the bytes
  // consumed: 0, the string being empty, when the form announces more than the `available` bytes or its text
  // has no terminator.
  size_t Deserialize(const unsigned char* buffer, size_t available, unsigned codePage);

  friend bool operator==(const BaseString& a, const BaseString& b) {
    return a.mpText == b.mpText || Traits::Compare(a.mpText, b.mpText) == 0;
  }
  friend bool operator==(const BaseString& a, const Char* b) { return a.Compare(b) == 0; }
  friend std::strong_ordering operator<=>(const BaseString& a, const BaseString& b) {
    return Traits::Compare(a.mpText, b.mpText) <=> 0;
  }
  friend std::strong_ordering operator<=>(const BaseString& a, const Char* b) { return a.Compare(b) <=> 0; }

  friend BaseString operator+(BaseString a, const BaseString& b) {
    a.Append(b);
    return a;
  }
  friend BaseString operator+(BaseString a, const Char* b) {
    a.Append(b);
    return a;
  }
  friend BaseString operator+(const Char* a, const BaseString& b) {
    BaseString result(a);
    result.Append(b);
    return result;
  }

  // What a trace line's %s sees.
  friend const Char* TraceFormatArgument(const BaseString& text) { return text.mpText; }

 private:
  static constexpr Char kNoText[1] = {};

  struct Uncounted {};
  explicit BaseString(Uncounted) noexcept : mpText(UncountedText()) {}

  static Char* Text(StringBlock* pBlock) { return reinterpret_cast<Char*>(pBlock + 1); }
  static Char* UncountedText() { return Text(const_cast<StringBlock*>(&string_detail::uncountedText.block)); }
  StringBlock* Block() const { return reinterpret_cast<StringBlock*>(mpText) - 1; }
  static bool IsCounted(const StringBlock* pBlock) { return pBlock != &string_detail::uncountedText.block; }
  static void Hold(StringBlock* pBlock) {
    if (IsCounted(pBlock)) ++pBlock->count;
  }
  static void Release(Char* text) noexcept {
    StringBlock* block = reinterpret_cast<StringBlock*>(text) - 1;
    if (IsCounted(block) && --block->count == 0) string_detail::FreeBlock(block);
  }
  bool IsShared() const { return Block()->count >= 2; }
  // Whether the position lies in this string's character area.
  bool Owns(const Char* pos) const;
  void Take(StringBlock* pBlock) { Release(std::exchange(mpText, Text(pBlock))); }
  // A further holder of this string's block when `pos` lies in it.
  BaseString KeepOwner(const Char* pos) const { return Owns(pos) ? *this : BaseString(Uncounted()); }
  // Makes the text what `write(area, capacity, nextRequest)` puts into an area of at least `request` bytes.
  // It returns like Traits::FormatMessageV; when the area is too small it may say what to request next.
  template <class Write>
  void Rewrite(size_t request, Write write);
  // The end of the text from `begin` on without its trailing characters of the set, or of the kind.
  const Char* EndWithout(const Char* begin, const Char* pCharacterSet) const;
  template <class Predicate>
  const Char* EndWithoutIf(const Char* begin, Predicate isTrimmed) const;

  static uintptr_t ToInsert(const BaseString& text) { return reinterpret_cast<uintptr_t>(text.mpText); }
  static uintptr_t ToInsert(const void* pointer) { return reinterpret_cast<uintptr_t>(pointer); }
  template <class T>
  requires(std::is_integral_v<T> || std::is_enum_v<T>) static uintptr_t ToInsert(T value) {
    return static_cast<uintptr_t>(value);
  }
  static BaseString FormatCounted(size_t count, const Char* format, ...);

  // What printf sees of an argument.
  static const Char* ToArgument(const BaseString& text) { return text.mpText; }
  template <class T>
  static std::decay_t<const T&> ToArgument(const T& value) {
    return value;
  }
  void FormatArguments(const Char* formatString, ...);

  Char* mpText;
};

using String = BaseString<MbcsTraits>;
using WideString = BaseString<WcsTraits>;

// Finds string `id` in the string tables of the module's resources: `length` UTF-16 units from `text`, not
// terminated, valid while the module is loaded. An id that its table leaves out has length 0. Without a table
// it writes a trace line, asserts and returns false.
ORMUTIL_API bool LoadResString(HINSTANCE module, unsigned id, unsigned& length, unsigned short*& text);

// The hash of face ids and class ids: the 16 low bits of the sum of the bytes, taken as signed, above the
// size. Any thread.
ORMUTIL_API DWORD GetSimpleStringHash(const char* text);

}  // namespace orm

#include <ormutil/BaseStringFormat.h>
#include <ormutil/BaseStringOperations.h>

namespace orm {

extern template class ORMUTIL_API BaseString<SbcsTraits>;
extern template class ORMUTIL_API BaseString<MbcsTraits>;
extern template class ORMUTIL_API BaseString<WcsTraits>;

}  // namespace orm
