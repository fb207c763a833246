// Comparisons of multibyte strings, by characters, with and without regard to letter case.
#include <algorithm>
#include <cstring>

#include "kernel/MultibyteReader.h"
#include "win32/nls.h"

namespace orm::platform {
namespace {

using Byte = unsigned char;
using Kind = CodePage::Kind;

int Sign(int value) {
  return value < 0 ? -1 : value > 0 ? 1 : 0;
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

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

extern "C" {

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
  if (AnsiCodePage().kind == Kind::SingleByte) return Sign(std::strncmp(Chars(left), Chars(right), count));
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

}  // extern "C"
