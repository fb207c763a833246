// The resources of one script, and the block of bytes that a module carries them in.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Source.h"

namespace orm::rc {

// A resource's type or name: a text in upper case, or a number when the text is empty.
struct Name {
  std::string text;
  std::uint16_t number = 0;

  auto operator<=>(const Name&) const = default;  // NOLINT(modernize-use-nullptr): the check misreads it
};

std::string ToText(const Name& name);

struct Key {
  Name type;
  Name name;
  std::uint16_t language = 0;

  auto operator<=>(const Key&) const = default;  // NOLINT(modernize-use-nullptr)
};

inline constexpr std::uint16_t bitmapType = 2;
inline constexpr std::uint16_t stringType = 6;

class Directory {
 public:
  // Throws SourceError when there is one of this type, name and language already.
  void Add(const Key& key, const Location& at, std::string data);

  // One string of the string tables. Throws SourceError for an id that has a text already, and for a text of
  // more than 65,535 units.
  void AddString(std::uint16_t id, std::uint16_t language, const Location& at, const std::u16string& text);

  // Groups the strings in blocks of 16 and lays everything out as the platform reads it; see
  // kernel/ResourceDirectory.h. Throws std::runtime_error when the whole does not fit 31 bits.
  [[nodiscard]] std::string Build() const;

  // One line for each resource, for people.
  [[nodiscard]] std::string List() const;

 private:
  struct Resource {
    Location at;
    std::string data;
  };
  struct String {
    Location at;
    std::u16string text;
  };
  using StringKey = std::pair<std::uint16_t, std::uint16_t>;  // language, id

  [[nodiscard]] std::map<Key, std::string> WithStringBlocks() const;

  std::map<Key, Resource> mResources;
  std::map<StringKey, String> mStrings;
};

}  // namespace orm::rc
