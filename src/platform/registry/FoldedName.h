// Names of keys and values as they are compared: folded to lower case.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace orm::platform {

// Folds words of eight letters, or fewer: those from A to Z get the bit that makes them small. False when a
// byte is not ASCII.
template <class Word>
bool FoldWord(const char* from, char* to) {
  constexpr Word each = static_cast<Word>(0x0101010101010101);
  Word letters;
  std::memcpy(&letters, from, sizeof letters);
  if ((letters & each * 0x80) != 0) return false;
  const Word isFromA = letters + each * (0x80 - 'A');
  const Word isBeyondZ = letters + each * (0x80 - 'Z' - 1);
  letters |= (isFromA & ~isBeyondZ & each * 0x80) >> 2;
  std::memcpy(to, &letters, sizeof letters);
  return true;
}

// The last word overlaps the one before it.
template <class Word>
bool FoldWords(std::string_view name, char* to) {
  std::size_t at = 0;
  for (; at + sizeof(Word) < name.size(); at += sizeof(Word)) {
    if (!FoldWord<Word>(name.data() + at, to + at)) return false;
  }
  at = name.size() - sizeof(Word);
  return FoldWord<Word>(name.data() + at, to + at);
}

// Writes the folded name, which is as long as the name. False, and anything written, when that is not ASCII:
// letters beyond it must be folded and trail bytes must not, which the code page knows.
inline bool FoldAscii(std::string_view name, char* to) {
  if (name.size() >= sizeof(std::uint64_t)) return FoldWords<std::uint64_t>(name, to);
  if (name.size() >= sizeof(std::uint32_t)) return FoldWords<std::uint32_t>(name, to);
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (!FoldWord<std::uint8_t>(name.data() + i, to + i)) return false;
  }
  return true;
}

// A name in the form that is compared; only made when it differs from the plain folding of ASCII.
class FoldedName {
 public:
  explicit FoldedName(std::string_view name);
  [[nodiscard]] std::string_view View() const {
    return mLong.empty() ? std::string_view(mShort.data(), mSize) : mLong;
  }

 private:
  std::size_t mSize = 0;
  std::array<char, 96> mShort;
  std::string mLong;
};

}  // namespace orm::platform
