// A settings file, or any other set of keys and values, in memory: what is exported, imported, compared,
// copied and undone. Names and data are as the registry holds them, in the ANSI code page.
#pragma once

#include <win32.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace orm::tool {

// Place of something in a settings file, from 1; 0 when it comes from elsewhere. Columns count characters.
struct RegPosition {
  unsigned line = 0;
  unsigned column = 0;
};

// A key: one of the registry's roots and the path below it, components joined by back slashes.
struct RegPath {
  HKEY root = nullptr;
  std::string path;

  // "HKEY_LOCAL_MACHINE\path" in the ANSI code page.
  std::string GetName() const;
  RegPath GetChild(std::string_view name) const {
    return {root, path.empty() ? std::string(name) : path + '\\' + std::string(name)};
  }
};

// A key's name from its text in the ANSI code page; HKLM and HKCU are accepted for the roots, and
// HKEY_CLASSES_ROOT for the place where the local machine keeps classes. Throws RegSyntaxError with a column.
RegPath ParseRegPath(std::string_view ansi);

struct RegData {
  DWORD type = REG_NONE;
  std::string bytes;

  bool operator==(const RegData&) const = default;
};

// A value; the default value has the empty name. Without data it is to be deleted.
struct RegEntry {
  std::string name;
  std::optional<RegData> data;
  RegPosition at;
};

struct RegSection {
  RegPath key;
  bool isDeleted = false;  // the key and everything below it; there are no entries then
  std::vector<RegEntry> entries;
  RegPosition at;
};

using RegDocument = std::vector<RegSection>;

// The two published text forms. They differ in the code page of the text and of strings that are written as
// bytes: the ANSI code page in the first, UTF-16 in the second.
enum class RegForm { Version4, Version5 };

class RegSyntaxError : public std::runtime_error {
 public:
  RegSyntaxError(RegPosition where, const std::string& why) : std::runtime_error(why), at(where) {}
  RegPosition at;
};

// Reads a settings file: REGEDIT4 in the ANSI code page; version 5.00 in UTF-16 little-endian or UTF-8; both
// also in UTF-8 with a byte order mark. Throws RegSyntaxError.
RegDocument ReadRegFile(std::string_view bytes);

// Writes one, with line ends CR LF; version 5.00 in UTF-16 with its byte order mark or, with `utf8`, in
// UTF-8. Throws Failure when a name or a text cannot be said in the form.
std::string WriteRegFile(const RegDocument& document, RegForm form, bool utf8 = false);

// "REG_SZ" and its like; other types by number, "0x1000". The second reads both, without regard to case.
std::string RegTypeName(DWORD type);
std::optional<DWORD> RegTypeFromName(std::string_view name);

inline bool IsRegText(DWORD type) {
  return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

// Limits of the registry, in bytes.
inline constexpr std::size_t REG_LONGEST_KEY_NAME = 255;
inline constexpr std::size_t REG_LONGEST_VALUE_NAME = 16383;

}  // namespace orm::tool
