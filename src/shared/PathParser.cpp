// The grammar of path texts. Everything walks by whole multibyte characters: a trail byte may look like any
// ASCII character, a backslash among them.
#include "PathParser.h"

#include <algorithm>

namespace orm {

namespace {

struct Span {
  const char* begin;
  const char* end;

  size_t GetSize() const { return static_cast<size_t>(end - begin); }
  bool Is(const char* text) const {
    const size_t size = std::strlen(text);
    return GetSize() == size && std::memcmp(begin, text, size) == 0;
  }
};

bool IsSeparator(char c) {
  return c == '\\' || c == '/';
}

bool EndsHere(const char* pos) {
  return *pos == 0 || IsSeparator(*pos);
}

bool IsForbidden(char c) {
  return c == '"' || c == ':' || c == '<' || c == '>' || c == '|';
}

bool IsLetter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

char Upper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool HasWildcard(Span span) {
  for (const char* pos = span.begin; pos < span.end; pos = MbcsTraits::Next(pos)) {
    if (*pos == '*' || *pos == '?') return true;
  }
  return false;
}

// One backslash between components, none at the ends. False for a forbidden character.
bool FoldSeparators(const char* text, String& result) {
  char* out = result.PrepareWriting(std::strlen(text) + 1, false);
  char* begin = out;
  bool due = false;
  for (const char* pos = text; *pos != 0;) {
    const char* next = MbcsTraits::Next(pos);
    if (IsForbidden(*pos)) return false;
    if (IsSeparator(*pos)) {
      due = out != begin;
    } else {
      if (due) *out++ = '\\';
      due = false;
      out = std::copy(pos, next, out);
    }
    pos = next;
  }
  *out = 0;
  return true;
}

std::vector<Span> SplitComponents(const String& text) {
  std::vector<Span> components;
  if (text.IsEmpty()) return components;
  const char* begin = text.GetBegin();
  for (const char* pos = begin;; pos = MbcsTraits::Next(pos)) {
    if (!EndsHere(pos)) continue;
    components.push_back({begin, pos});
    if (*pos == 0) return components;
    begin = pos + 1;
  }
}

// What is left of the components once "." and ".." have been followed.
std::vector<Span> ResolveDots(const std::vector<Span>& components) {
  std::vector<Span> result;
  for (const Span& component : components) {
    if (component.Is(".")) continue;
    if (component.Is("..") && !result.empty() && !result.back().Is("..")) {
      result.pop_back();
    } else {
      result.push_back(component);
    }
  }
  return result;
}

// In one go, since appending to a string measures what it has each time.
String Join(const std::vector<Span>& components) {
  size_t size = 1;
  for (const Span& component : components) size += component.GetSize() + 1;
  String result;
  char* out = result.PrepareWriting(size, false);
  for (const Span& component : components) {
    if (&component != components.data()) *out++ = '\\';
    out = std::copy(component.begin, component.end, out);
  }
  *out = 0;
  return result;
}

// One component that is normal as it is, which the names of most files can be seen to be.
bool IsPlainName(const char* text) {
  const auto isPlain = [](char c) { return IsLetter(c) || (c >= '0' && c <= '9') || c == '_' || c == '-'; };
  if (!isPlain(*text)) return false;
  while (isPlain(*text) || *text == '.') ++text;
  return *text == 0;
}

// "." or "..", alone or before a separator: the only ways in which a relative path may begin with a full
// stop.
bool BeginsWithDots(const char* text) {
  return EndsHere(text + 1) || (text[1] == '.' && EndsHere(text + 2));
}

// The name behind two separators, or behind the prefixes \\?\ and \\?\UNC\. Empty when there is none.
bool FindServer(const char* text, Span& rServer) {
  const char* pos = text + 2;
  if (*pos == '?') {
    if (!IsSeparator(pos[1])) return false;
    pos += 2;
    if (Upper(pos[0]) == 'U' && Upper(pos[1]) == 'N' && Upper(pos[2]) == 'C' && IsSeparator(pos[3])) pos += 4;
  }
  rServer.begin = pos;
  for (; !EndsHere(pos); pos = MbcsTraits::Next(pos)) {
    if (IsForbidden(*pos)) return false;
  }
  rServer.end = pos;
  return rServer.begin != rServer.end && !HasWildcard(rServer);
}

bool ParseRooted(const String& root, const char* rest, String& result, int& rootLength) {
  String components;
  if (!NormalizeComponents(rest, components) || !AttachToRoot(root, components, result)) return false;
  rootLength = static_cast<int>(root.GetLength());
  return true;
}

}  // namespace

bool NormalizeComponents(const char* text, String& result) {
  if (IsPlainName(text)) {
    result = text;
    return true;
  }
  String folded;
  if (!FoldSeparators(text, folded)) return false;
  const std::vector<Span> components = ResolveDots(SplitComponents(folded));
  for (size_t i = 0; i + 1 < components.size(); ++i) {
    if (HasWildcard(components[i])) return false;
  }
  result = Join(components);
  return true;
}

bool AttachToRoot(const String& root, const String& components, String& result) {
  if (*components.GetBegin() == '.') return false;
  result = components.IsEmpty() ? root : root + "\\" + components;
  return true;
}

bool ParsePath(const char* text, String& result, int& rootLength) {
  while (*text == ' ') ++text;
  if (*text == '.' && !BeginsWithDots(text)) return false;
  if (IsLetter(text[0]) && text[1] == ':' && EndsHere(text + 2)) {
    return ParseRooted(String(text, text + 2), text + 2, result, rootLength);
  }
  if (IsSeparator(*text)) {
    Span server{};
    if (!IsSeparator(text[1]) || !FindServer(text, server)) return false;
    return ParseRooted("\\\\" + String(server.begin, server.end), server.end, result, rootLength);
  }
  rootLength = 0;
  return NormalizeComponents(text, result);
}

}  // namespace orm
