// Matching of names: all the places in the pattern that can have been reached are followed at once, so that
// no pattern takes longer than its length for each character of a name.
#include "kernel/NameMatch.h"

#include <algorithm>

#include "kernel/Paths.h"

namespace orm::platform {

NamePattern::NamePattern(std::string_view pattern) : mPattern(FoldName(pattern == "*.*" ? "*" : pattern)) {
  if (mPattern.size() >= 2 && mPattern.ends_with(U"*.")) {
    mHasNoExtension = true;
    mPattern.pop_back();
  }
  mIsExtension = mPattern.starts_with(U"*.") && mPattern.size() > 2 &&
                 mPattern.find_first_of(U"*?.", 2) == std::u32string::npos;
}

// Goes over what can stand for nothing: `next` is the character that follows in the name.
void NamePattern::Spread(std::vector<char>* reached, char32_t next, bool atEnd) const {
  for (std::size_t i = 0; i < mPattern.size(); ++i) {
    if ((*reached)[i] == 0) continue;
    const char32_t c = mPattern[i];
    const bool hasSignNext = i + 1 < mPattern.size() && (mPattern[i + 1] == U'*' || mPattern[i + 1] == U'?');
    const bool canBeNothing =
        c == U'*' || (c == U'?' && (atEnd || next == U'.')) || (c == U'.' && atEnd && hasSignNext);
    if (canBeNothing) (*reached)[i + 1] = 1;
  }
}

bool NamePattern::Matches(const std::u32string& name) const {
  if (mHasNoExtension && name.rfind(U'.') < name.size() - 1) return false;
  if (mIsExtension) return name.ends_with(std::u32string_view(mPattern).substr(1));
  std::vector<char> reached(mPattern.size() + 1), after(mPattern.size() + 1);
  reached[0] = 1;
  // A star before a full stop of the pattern does not go past the name's last one.
  const std::size_t lastStop = std::min(name.rfind(U'.'), name.size());
  for (std::size_t at = 0; at < name.size(); ++at) {
    const char32_t c = name[at];
    Spread(&reached, c, false);
    std::fill(after.begin(), after.end(), char{0});
    for (std::size_t i = 0; i < mPattern.size(); ++i) {
      if (reached[i] == 0) continue;
      if (mPattern[i] == U'*') {
        const bool isBeforeStop = i + 1 < mPattern.size() && mPattern[i + 1] == U'.';
        if (!isBeforeStop || at < lastStop) after[i] = 1;
      } else if (mPattern[i] == c || (mPattern[i] == U'?' && c != U'.')) {
        after[i + 1] = 1;
      }
    }
    reached.swap(after);
  }
  Spread(&reached, 0, true);
  return reached.back() != 0;
}

}  // namespace orm::platform
