// Names of roots and of value types.
#include "RegDocument.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "Text.h"

namespace orm::tool {

namespace {

struct Root {
  std::string_view name;
  std::string_view shortName;
  DWORD number;
  std::string_view prefix;  // where it lies below the root that holds it

  HKEY GetKey() const { return number == 2 ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER; }
};

constexpr std::array roots = {
    Root{"HKEY_LOCAL_MACHINE", "HKLM", 2, ""},
    Root{"HKEY_CURRENT_USER", "HKCU", 1, ""},
    Root{"HKEY_CLASSES_ROOT", "HKCR", 2, "SOFTWARE\\Classes"},
};

struct TypeName {
  DWORD type;
  std::string_view name;
};

constexpr std::array typeNames = {
    TypeName{REG_NONE, "REG_NONE"},           TypeName{REG_SZ, "REG_SZ"},
    TypeName{REG_EXPAND_SZ, "REG_EXPAND_SZ"}, TypeName{REG_BINARY, "REG_BINARY"},
    TypeName{REG_DWORD, "REG_DWORD"},         TypeName{REG_DWORD_BIG_ENDIAN, "REG_DWORD_BIG_ENDIAN"},
    TypeName{REG_LINK, "REG_LINK"},           TypeName{REG_MULTI_SZ, "REG_MULTI_SZ"},
    TypeName{REG_QWORD, "REG_QWORD"},
};

bool EqualNoCase(std::string_view left, std::string_view right) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [&](char a, char b) { return lower(a) == lower(b); });
}

unsigned ColumnAt(std::string_view ansi, std::size_t at) {
  unsigned column = 1;
  for (std::size_t i = 0; i < at; i += AnsiCharacterSize(ansi, i)) ++column;
  return column;
}

// The end of the component that begins at `at`: the next back slash that is a character by itself.
std::size_t ComponentEnd(std::string_view ansi, std::size_t at) {
  while (at < ansi.size() && ansi[at] != '\\') at += AnsiCharacterSize(ansi, at);
  return std::min(at, ansi.size());
}

void CheckComponents(std::string_view ansi, std::size_t at) {
  for (;;) {
    const std::size_t end = ComponentEnd(ansi, at);
    const RegPosition place{0, ColumnAt(ansi, at)};
    if (end == at) throw RegSyntaxError(place, "a key's name is missing between two back slashes");
    if (end - at > REG_LONGEST_KEY_NAME) throw RegSyntaxError(place, "a key's name is longer than 255 bytes");
    if (end == ansi.size()) return;
    at = end + 1;
  }
}

}  // namespace

std::string RegPath::GetName() const {
  const Root& found = root == HKEY_LOCAL_MACHINE ? roots[0] : roots[1];
  return std::string(found.name) + (path.empty() ? "" : "\\") + path;
}

RegPath ParseRegPath(std::string_view ansi) {
  const std::size_t end = ComponentEnd(ansi, 0);
  const std::string_view first = ansi.substr(0, end);
  const auto root = std::find_if(roots.begin(), roots.end(), [&](const Root& candidate) {
    return EqualNoCase(candidate.name, first) || EqualNoCase(candidate.shortName, first);
  });
  if (root == roots.end()) {
    throw RegSyntaxError({0, 1},
                         "'" + ToDisplayLine(first) +
                             "' is none of this machine's roots HKEY_LOCAL_MACHINE (HKLM), HKEY_CURRENT_USER "
                             "(HKCU), HKEY_CLASSES_ROOT (HKCR)");
  }
  if (ansi.find('\0') != std::string_view::npos)
    throw RegSyntaxError({0, 1}, "a key's name holds a zero byte");
  RegPath result{root->GetKey(), std::string(root->prefix)};
  if (end == ansi.size()) return result;
  CheckComponents(ansi, end + 1);
  if (!result.path.empty()) result.path += '\\';
  result.path += ansi.substr(end + 1);
  return result;
}

std::string RegTypeName(DWORD type) {
  for (const TypeName& candidate : typeNames) {
    if (candidate.type == type) return std::string(candidate.name);
  }
  char number[16];
  std::snprintf(number, sizeof number, "0x%x", type);
  return number;
}

std::optional<DWORD> RegTypeFromName(std::string_view name) {
  for (const TypeName& candidate : typeNames) {
    if (EqualNoCase(candidate.name, name) || EqualNoCase(candidate.name.substr(4), name))
      return candidate.type;
  }
  const bool hex = name.starts_with("0x");
  if (hex) name.remove_prefix(2);
  DWORD type = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), type, hex ? 16 : 10);
  if (error != std::errc() || end != name.data() + name.size()) return std::nullopt;
  return type;
}

}  // namespace orm::tool
