// Whether the name of a file matches a pattern of `*` and `?`, as a folder search does it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "win32/types.h"

namespace orm::platform {

// A UTF-8 name as a sequence of characters without regard to case.
ORM_PLATFORM_API std::u32string FoldName(std::string_view name);

// A pattern of a search. Besides the plain meaning of the two signs: "*.*" is every name; a `?` also stands
// for nothing before a full stop and at the end; ".*" at the end also matches a name without it; "*." is a
// name with nothing behind its last full stop, such as "." itself, or without any.
class ORM_PLATFORM_API NamePattern {
 public:
  explicit NamePattern(std::string_view pattern);
  [[nodiscard]] bool Matches(const std::u32string& foldedName) const;

 private:
  void Spread(std::vector<char>* reached, char32_t next, bool atEnd) const;

  std::u32string mPattern;
  bool mHasNoExtension = false;
  bool mIsExtension = false;  // a star, a full stop and plain letters: by far the most frequent pattern
};

}  // namespace orm::platform
