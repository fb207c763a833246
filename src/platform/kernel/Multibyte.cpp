// The multibyte string functions of the runtime library, in the process's ANSI code page: steps, searches,
// letter case and copies. Where bytes tell as much as characters do, which is nearly everywhere in
// single-byte pages, the C library's own function does the work.
#include <cstring>

#include "kernel/MultibyteReader.h"
#include "win32/nls.h"

namespace orm::platform {
namespace {

using Byte = unsigned char;
using Kind = CodePage::Kind;

bool IsSingleByte() {
  return AnsiCodePage().kind == Kind::SingleByte;
}

Byte* Mutable(const Byte* text) {
  return const_cast<Byte*>(text);
}
Byte* Bytes(const char* text) {
  return reinterpret_cast<Byte*>(const_cast<char*>(text));
}

// Writes the bytes of a code, which is as long as the character it replaces.
void Store(Byte* place, unsigned code, std::size_t size) {
  for (std::size_t i = size; i > 0; code >>= 8) place[--i] = static_cast<Byte>(code);
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

constexpr std::size_t noLimit = ~std::size_t{0};

// Copies whole characters while both limits allow, and returns the bytes copied.
std::size_t CopyWhole(Byte* destination, const Byte* source, std::size_t characters, std::size_t bytes) {
  return WithReader([=](const auto& reader) {
    std::size_t copied = 0;
    for (std::size_t left = characters; left > 0 && source[copied] != 0; --left) {
      const Character character = reader.Read(source + copied);
      if (character.size > bytes - copied) break;
      std::memcpy(destination + copied, source + copied, character.size);
      copied += character.size;
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
  const std::size_t copied = CopyWhole(destination, source, count, noLimit);
  if (copied < count) std::memset(destination + copied, 0, count - copied);
  return destination;
}

unsigned char* _mbsnbcpy(unsigned char* destination, const unsigned char* source, size_t bytes) {
  const std::size_t copied = CopyWhole(destination, source, noLimit, bytes);
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

}  // extern "C"
