// How many values a message format takes from its list, which cannot say itself how many it has.
#include <ormutil/BaseString.h>

#include <algorithm>

namespace orm::string_detail {

namespace {

template <class Char>
bool IsDigit(Char c) {
  return c >= '0' && c <= '9';
}

// Moves over "!...!", which may lack its end, and counts the asterisks.
template <class Char>
size_t SkipFormat(const Char*& rPos) {
  size_t asterisks = 0;
  for (++rPos; *rPos != 0 && *rPos != '!'; ++rPos) asterisks += *rPos == '*';
  if (*rPos == '!') ++rPos;
  return asterisks;
}

// An asterisk takes the insert of that number, a second one the insert after it, and the value is then the
// next one of the list that has not been read, which has no number. A malformed format takes no more than
// this either.
template <class Char>
size_t Count(const Char* pos) {
  size_t numbered = 0, others = 0;
  while (*pos != 0) {
    if (*pos++ != '%') continue;
    if (*pos == 0 || *pos == '0') break;
    if (!IsDigit(*pos)) {
      ++pos;
      continue;
    }
    auto number = static_cast<size_t>(*pos++ - '0');
    if (IsDigit(*pos)) number = number * 10 + static_cast<size_t>(*pos++ - '0');
    if (const size_t asterisks = *pos == '!' ? SkipFormat(pos) : 0; asterisks > 0) {
      number += asterisks - 1;
      ++others;
    }
    numbered = std::max(numbered, number);
  }
  return numbered + others;
}

}  // namespace

size_t CountInserts(const char* format) {
  return Count(format);
}

size_t CountInserts(const unsigned short* format) {
  return Count(format);
}

}  // namespace orm::string_detail
