// A look at configured texts with inserts before the message formatter takes them at their word: they are
// written by hand into the registry, and an insert that is not there, or a number taken for a text, would be
// an address like any other to the formatter.
#include <cstring>

#include "TraceFacility.h"

namespace orm::trace_detail {

namespace {

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// Moves over "!...!" and tells whether what it makes of its insert is safe for an insert of that kind. An
// asterisk takes further inserts.
bool IsSafeFormat(const char*& rPos, bool isText) {
  ++rPos;
  rPos += std::strspn(rPos, "-+ #0123456789.");
  const char* const prefix = rPos;
  rPos += std::strspn(rPos, "hlwI0123456789");
  const bool isWide = std::memchr(prefix, 'l', static_cast<size_t>(rPos - prefix)) != nullptr ||
                      std::memchr(prefix, 'w', static_cast<size_t>(rPos - prefix)) != nullptr;
  switch (*rPos) {
    case 's':
      return isText && !isWide;
    case 'S':
      return isText && *prefix == 'h';
    default:
      return *rPos != 0 && std::strchr("cCdiuxXop", *rPos) != nullptr;
  }
}

}  // namespace

bool InsertsAreSafe(const char* text, const char* kinds) {
  const size_t count = std::strlen(kinds);
  for (const char* pos = text; *pos != 0; ++pos) {
    if (*pos != '%') continue;
    ++pos;
    if (*pos == 0 || *pos == '0') return true;  // malformed, and the end of the text
    if (!IsDigit(*pos)) continue;
    size_t number = static_cast<size_t>(*pos - '0');
    if (IsDigit(pos[1])) number = number * 10 + static_cast<size_t>(*++pos - '0');
    if (number > count) return false;
    const bool isText = kinds[number - 1] == 's';
    if (pos[1] != '!') {
      if (!isText) return false;
    } else if (!IsSafeFormat(++pos, isText)) {
      return false;
    }
  }
  return true;
}

}  // namespace orm::trace_detail
