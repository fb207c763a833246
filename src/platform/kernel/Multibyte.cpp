// The multibyte string functions of the runtime library, in the process's ANSI code page.
//
// Each function is written once over a reader of characters and instantiated for the three kinds of page.
// Where bytes tell as much as characters do, which is nearly everywhere in single-byte pages, the C library's
// own function does the work.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "kernel/CodePage.h"
#include "kernel/CodePageTables.h"
#include "kernel/Utf8.h"
#include "win32/nls.h"

namespace orm::platform {
namespace {

using Byte = unsigned char;
using Kind = CodePage::Kind;

struct Character {
  unsigned code;  // the bytes as one big-endian number
  std::size_t size;
};

// The readers: one character of a terminated text, and letter case of codes.

struct SingleByteReader {
  static constexpr bool isSingleByte = true;
  const CodePage& page;

  Character Read(const Byte* text) const { return {*text, 1}; }
  unsigned Lower(unsigned code) const { return code < 256 ? page.lower[code] : code; }
  unsigned Upper(unsigned code) const { return code < 256 ? page.upper[code] : code; }
};

struct DoubleByteReader {
  static constexpr bool isSingleByte = false;
  const CodePage& page;

  Character Read(const Byte* text) const {
    if (!page.isLead[*text] || text[1] == 0) return {*text, 1};
    return {static_cast<unsigned>(text[0] << 8 | text[1]), 2};
  }
  unsigned Lower(unsigned code) const {
    return code < 256 ? page.lower[code] : code < 65536 ? page.pairLower[code] : code;
  }
  unsigned Upper(unsigned code) const {
    return code < 256 ? page.upper[code] : code < 65536 ? page.pairUpper[code] : code;
  }
};

struct Utf8Reader {
  static constexpr bool isSingleByte = false;
  const CodePage& page;

  Character Read(const Byte* text) const {
    if (*text < 0x80) return {*text, 1};
    // A terminator ends every sequence that it cuts, so no byte after it is looked at.
    const Utf8Character character = ReadUtf8(text, text + 4);
    if (!character.valid) return {*text, 1};
    unsigned code = 0;
    for (std::uint32_t i = 0; i < character.size; ++i) code = code << 8 | text[i];
    return {code, character.size};
  }
  unsigned Lower(unsigned code) const { return code < 128 ? page.lower[code] : Map(code, LowerCase); }
  unsigned Upper(unsigned code) const { return code < 128 ? page.upper[code] : Map(code, UpperCase); }

 private:
  // A partner of another length would not fit in its place.
  static unsigned Map(unsigned code, std::uint32_t (*map)(std::uint32_t)) {
    Byte bytes[4];
    std::size_t size = 0;
    for (unsigned shift = 32; shift > 0;) {
      shift -= 8;
      const auto byte = static_cast<Byte>(code >> shift);
      if (byte != 0 || size != 0) bytes[size++] = byte;
    }
    const Utf8Character character = ReadUtf8(bytes, bytes + size);
    if (!character.valid) return code;
    Byte mapped[4];
    if (WriteUtf8(map(character.value), mapped) != size) return code;
    unsigned result = 0;
    for (std::size_t i = 0; i < size; ++i) result = result << 8 | mapped[i];
    return result;
  }
};

// Calls `function` with the reader of the process's code page.
template <typename Function>
auto WithReader(Function function) {
  const CodePage& page = AnsiCodePage();
  switch (page.kind) {
    case Kind::SingleByte:
      return function(SingleByteReader{page});
    case Kind::DoubleByte:
      return function(DoubleByteReader{page});
    case Kind::Utf8:
      break;
  }
  return function(Utf8Reader{page});
}

bool IsSingleByte() {
  return AnsiCodePage().kind == Kind::SingleByte;
}

Byte* Mutable(const Byte* text) {
  return const_cast<Byte*>(text);
}
const char* Chars(const Byte* text) {
  return reinterpret_cast<const char*>(text);
}
Byte* Bytes(const char* text) {
  return reinterpret_cast<Byte*>(const_cast<char*>(text));
}
int Sign(int value) {
  return value < 0 ? -1 : value > 0 ? 1 : 0;
}

// Writes the bytes of a code, which is as long as the character it replaces.
void Store(Byte* place, unsigned code, std::size_t size) {
  for (std::size_t i = size; i > 0; code >>= 8) place[--i] = static_cast<Byte>(code);
}

// How far a comparison goes.
struct Limit {
  std::size_t characters;
  std::size_t bytes;
  [[nodiscard]] bool IsReached() const { return characters == 0 || bytes == 0; }
};
constexpr std::size_t noLimit = ~std::size_t{0};

// Compares by codes after `fold`; characters are read whole, except that a byte limit may cut the last one.
template <typename Reader, typename Fold>
int CompareCodes(const Reader& reader, const Byte* left, const Byte* right, Limit limit, Fold fold) {
  for (; !limit.IsReached(); --limit.characters) {
    Character a = reader.Read(left);
    Character b = reader.Read(right);
    if (std::max(a.size, b.size) > limit.bytes) {
      const int difference = std::memcmp(left, right, std::min({a.size, b.size, limit.bytes}));
      return Sign(difference);
    }
    const unsigned codeA = fold(a.code);
    const unsigned codeB = fold(b.code);
    if (codeA != codeB) return codeA < codeB ? -1 : 1;
    if (codeA == 0) return 0;
    left += a.size;
    right += b.size;
    limit.bytes -= std::min(limit.bytes, std::max(a.size, b.size));
  }
  return 0;
}

int CompareExact(const Byte* left, const Byte* right, Limit limit) {
  return WithReader([=](const auto& reader) {
    return CompareCodes(reader, left, right, limit, [](unsigned code) { return code; });
  });
}

// The same for single bytes, where names of properties and libraries spend their time: equal bytes need no
// table.
int CompareFoldedBytes(const CodePage& page, const Byte* left, const Byte* right, std::size_t count) {
  for (; count > 0; --count, ++left, ++right) {
    if (*left != *right) {
      const Byte a = page.lower[*left];
      const Byte b = page.lower[*right];
      if (a != b) return a < b ? -1 : 1;
    }
    if (*left == 0) return 0;
  }
  return 0;
}

int CompareFolded(const Byte* left, const Byte* right, Limit limit) {
  const CodePage& page = AnsiCodePage();
  if (page.kind == Kind::SingleByte)
    return CompareFoldedBytes(page, left, right, std::min(limit.characters, limit.bytes));
  return WithReader([=](const auto& reader) {
    return CompareCodes(reader, left, right, limit, [&](unsigned code) { return reader.Lower(code); });
  });
}

template <typename Reader>
bool Contains(const Reader& reader, const Byte* set, unsigned code) {
  while (*set != 0) {
    const Character member = reader.Read(set);
    if (member.code == code) return true;
    set += member.size;
  }
  return false;
}

// The first character of the text whose membership in the set is `member`, or the terminator.
const Byte* FindMember(const Byte* text, const Byte* set, bool member) {
  return WithReader([=](const auto& reader) {
    const Byte* at = text;
    while (*at != 0) {
      const Character character = reader.Read(at);
      if (Contains(reader, set, character.code) == member) break;
      at += character.size;
    }
    return at;
  });
}

Byte* OrNull(const Byte* found) {
  return *found != 0 ? Mutable(found) : nullptr;
}

template <typename Map>
Byte* MapInPlace(Byte* text, Map map) {
  WithReader([=](const auto& reader) {
    for (Byte* at = text; *at != 0;) {
      const Character character = reader.Read(at);
      const unsigned mapped = map(reader, character.code);
      if (mapped != character.code) Store(at, mapped, character.size);
      at += character.size;
    }
    return 0;
  });
  return text;
}

// Copies whole characters while both limits allow, and returns the bytes copied.
std::size_t CopyWhole(Byte* destination, const Byte* source, Limit limit) {
  return WithReader([=](const auto& reader) {
    std::size_t copied = 0;
    for (Limit left = limit; !left.IsReached() && source[copied] != 0; --left.characters) {
      const Character character = reader.Read(source + copied);
      if (character.size > left.bytes) break;
      std::memcpy(destination + copied, source + copied, character.size);
      copied += character.size;
      left.bytes -= character.size;
    }
    return copied;
  });
}

// The start of the character that ends just before `current`; `current` lies after `start`.
const Byte* PreviousStart(const CodePage& page, const Byte* start, const Byte* current) {
  const Byte* previous = current - 1;
  if (page.kind == Kind::DoubleByte) {
    // A byte that is no lead byte ends a character, whatever it is itself; so the run of lead bytes before
    // the last byte pairs up from its own start, and an odd one out leads the last byte.
    const Byte* run = previous;
    while (run > start && page.isLead[run[-1]]) --run;
    return ((previous - run) & 1) != 0 ? previous - 1 : previous;
  }
  if (page.kind == Kind::Utf8) {
    for (std::ptrdiff_t size = 2; size <= 4 && current - start >= size; ++size) {
      const Byte* candidate = current - size;
      const Utf8Character character = ReadUtf8(candidate, current);
      if (character.valid && character.size == size) return candidate;
    }
  }
  return previous;
}

// The start of the character that the byte at `current` belongs to, found from the start of the text.
const Byte* OwningStart(const Byte* start, const Byte* current) {
  return WithReader([=](const auto& reader) {
    const Byte* at = start;
    while (*at != 0) {
      const std::size_t size = reader.Read(at).size;
      if (at + size > current) break;
      at += size;
    }
    return at;
  });
}

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

extern "C" {

size_t _mbclen(const unsigned char* character) {
  return WithReader([=](const auto& reader) { return reader.Read(character).size; });
}

size_t _mbslen(const unsigned char* text) {
  if (IsSingleByte()) return std::strlen(Chars(text));
  return WithReader([=](const auto& reader) {
    std::size_t count = 0;
    for (const Byte* at = text; *at != 0; ++count) at += reader.Read(at).size;
    return count;
  });
}

size_t _mbsnbcnt(const unsigned char* text, size_t characters) {
  return static_cast<size_t>(_mbsninc(text, characters) - text);
}

size_t _mbsnccnt(const unsigned char* text, size_t bytes) {
  return WithReader([=](const auto& reader) {
    std::size_t count = 0;
    for (std::size_t at = 0; at < bytes && text[at] != 0; ++count) at += reader.Read(text + at).size;
    return count;
  });
}

unsigned int _mbsnextc(const unsigned char* text) {
  return WithReader([=](const auto& reader) { return reader.Read(text).code; });
}

unsigned char* _mbsinc(const unsigned char* current) {
  return Mutable(current + _mbclen(current));
}

unsigned char* _mbsninc(const unsigned char* text, size_t count) {
  return WithReader([=](const auto& reader) {
    const Byte* at = text;
    for (std::size_t left = count; left > 0 && *at != 0; --left) at += reader.Read(at).size;
    return Mutable(at);
  });
}

unsigned char* _mbsdec(const unsigned char* start, const unsigned char* current) {
  return current > start ? Mutable(PreviousStart(AnsiCodePage(), start, current)) : nullptr;
}

int _mbscmp(const unsigned char* left, const unsigned char* right) {
  // UTF-8 sorts as its characters do. In a double-byte page a lone byte above the lead bytes comes before
  // every pair.
  if (AnsiCodePage().kind != Kind::DoubleByte) return Sign(std::strcmp(Chars(left), Chars(right)));
  return CompareExact(left, right, {noLimit, noLimit});
}

int _mbsicmp(const unsigned char* left, const unsigned char* right) {
  return CompareFolded(left, right, {noLimit, noLimit});
}

int _mbsncmp(const unsigned char* left, const unsigned char* right, size_t count) {
  if (IsSingleByte()) return Sign(std::strncmp(Chars(left), Chars(right), count));
  return CompareExact(left, right, {count, noLimit});
}

int _mbsnicmp(const unsigned char* left, const unsigned char* right, size_t count) {
  return CompareFolded(left, right, {count, noLimit});
}

int _mbsnbcmp(const unsigned char* left, const unsigned char* right, size_t bytes) {
  if (AnsiCodePage().kind != Kind::DoubleByte) return Sign(std::strncmp(Chars(left), Chars(right), bytes));
  return CompareExact(left, right, {noLimit, bytes});
}

int _mbsnbicmp(const unsigned char* left, const unsigned char* right, size_t bytes) {
  return CompareFolded(left, right, {noLimit, bytes});
}

size_t _mbsspn(const unsigned char* text, const unsigned char* set) {
  if (IsSingleByte()) return std::strspn(Chars(text), Chars(set));
  return static_cast<size_t>(FindMember(text, set, false) - text);
}

size_t _mbscspn(const unsigned char* text, const unsigned char* set) {
  if (IsSingleByte()) return std::strcspn(Chars(text), Chars(set));
  return static_cast<size_t>(FindMember(text, set, true) - text);
}

unsigned char* _mbspbrk(const unsigned char* text, const unsigned char* set) {
  return OrNull(text + _mbscspn(text, set));
}

unsigned char* _mbsspnp(const unsigned char* text, const unsigned char* set) {
  return OrNull(text + _mbsspn(text, set));
}

unsigned char* _mbschr(const unsigned char* text, unsigned int code) {
  return WithReader([=](const auto& reader) -> Byte* {
    if (code == 0 || reader.isSingleByte)
      return code < 256 ? Bytes(std::strchr(Chars(text), static_cast<int>(code))) : nullptr;
    for (const Byte* at = text; *at != 0;) {
      const Character character = reader.Read(at);
      if (character.code == code) return Mutable(at);
      at += character.size;
    }
    return nullptr;
  });
}

unsigned char* _mbsrchr(const unsigned char* text, unsigned int code) {
  return WithReader([=](const auto& reader) -> Byte* {
    if (code == 0 || reader.isSingleByte)
      return code < 256 ? Bytes(std::strrchr(Chars(text), static_cast<int>(code))) : nullptr;
    Byte* last = nullptr;
    for (const Byte* at = text; *at != 0;) {
      const Character character = reader.Read(at);
      if (character.code == code) last = Mutable(at);
      at += character.size;
    }
    return last;
  });
}

unsigned char* _mbsstr(const unsigned char* text, const unsigned char* part) {
  // Bytes that look like the part but lie across characters: in UTF-8 only those of a part that begins within
  // one.
  const Kind kind = AnsiCodePage().kind;
  const bool mayLieAcross = kind == Kind::DoubleByte || (kind == Kind::Utf8 && (*part & 0xC0) == 0x80);
  if (!mayLieAcross) return Bytes(std::strstr(Chars(text), Chars(part)));
  const std::size_t size = std::strlen(Chars(part));
  for (const Byte* at = text;; at += _mbclen(at)) {
    if (std::strncmp(Chars(at), Chars(part), size) == 0) return Mutable(at);
    if (*at == 0) return nullptr;
  }
}

unsigned char* _mbslwr(unsigned char* text) {
  return MapInPlace(text, [](const auto& reader, unsigned code) { return reader.Lower(code); });
}

unsigned char* _mbsupr(unsigned char* text) {
  return MapInPlace(text, [](const auto& reader, unsigned code) { return reader.Upper(code); });
}

unsigned int _mbctolower(unsigned int code) {
  return WithReader([=](const auto& reader) { return reader.Lower(code); });
}

unsigned int _mbctoupper(unsigned int code) {
  return WithReader([=](const auto& reader) { return reader.Upper(code); });
}

unsigned char* _mbscpy(unsigned char* destination, const unsigned char* source) {
  std::memcpy(destination, source, std::strlen(Chars(source)) + 1);
  return destination;
}

unsigned char* _mbscat(unsigned char* destination, const unsigned char* source) {
  _mbscpy(destination + std::strlen(Chars(destination)), source);
  return destination;
}

unsigned char* _mbsncpy(unsigned char* destination, const unsigned char* source, size_t count) {
  // `count` characters always have room for themselves, and a shorter text is filled up to `count` bytes.
  const std::size_t copied = CopyWhole(destination, source, {count, noLimit});
  if (copied < count) std::memset(destination + copied, 0, count - copied);
  return destination;
}

unsigned char* _mbsnbcpy(unsigned char* destination, const unsigned char* source, size_t bytes) {
  const std::size_t copied = CopyWhole(destination, source, {noLimit, bytes});
  std::memset(destination + copied, 0, bytes - copied);
  return destination;
}

int _ismbblead(unsigned int byte) {
  return byte < 256 && AnsiCodePage().isLead[byte];
}

int _ismbbtrail(unsigned int byte) {
  const CodePage& page = AnsiCodePage();
  if (page.kind != Kind::DoubleByte) return 0;
  switch (page.number) {
    case 932:
      return (byte >= 0x40 && byte <= 0x7E) || (byte >= 0x80 && byte <= 0xFC);
    case 936:
      return (byte >= 0x40 && byte <= 0x7E) || (byte >= 0x80 && byte <= 0xFE);
    case 949:
      return (byte >= 0x41 && byte <= 0x5A) || (byte >= 0x61 && byte <= 0x7A) ||
             (byte >= 0x81 && byte <= 0xFE);
    default:
      return (byte >= 0x40 && byte <= 0x7E) || (byte >= 0xA1 && byte <= 0xFE);
  }
}

int _ismbslead(const unsigned char* start, const unsigned char* current) {
  const Byte* owner = OwningStart(start, current);
  return owner == current && _mbclen(current) > 1 ? -1 : 0;
}

int _ismbstrail(const unsigned char* start, const unsigned char* current) {
  return OwningStart(start, current) < current && *OwningStart(start, current) != 0 ? -1 : 0;
}

int _vsnprintf(char* buffer, size_t count, const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(buffer, count, format, arguments);
  const auto size = static_cast<std::size_t>(length);
  if (length >= 0 && size >= count && count > 0) {
    // The C library kept the last byte for a terminator; the whole text is needed to learn it.
    const std::unique_ptr<char[]> whole(new (std::nothrow) char[size + 1]);
    if (whole != nullptr && std::vsnprintf(whole.get(), size + 1, format, again) == length)
      buffer[count - 1] = whole[count - 1];
    if (whole != nullptr) explicit_bzero(whole.get(), size + 1);  // as the caller may do with its own
  }
  va_end(again);
  return length < 0 || size > count ? -1 : length;
}

int _snprintf(char* buffer, size_t count, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = _vsnprintf(buffer, count, format, arguments);
  va_end(arguments);
  return length;
}

}  // extern "C"
