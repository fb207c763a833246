// Serialized strings in all traits and code pages, and the text operations on whatever comes out. The first
// two bytes choose the process's code page and the target.
#include <ormutil/BaseString.h>

#include <vector>

#include "Require.h"

using namespace orm;

namespace {

template <class Traits>
void UseText(const BaseString<Traits>& text) {
  using Char = typename Traits::Char;
  const Char blank[] = {' ', 'a', 0};
  BaseString<Traits> copy = text;
  fuzz::Require(text.GetLength() * sizeof(Char) <= text.GetSize());
  size_t total = 0;
  for (const BaseString<Traits>& token : text.Split(blank)) total += token.GetSize();
  fuzz::Require(total <= text.GetSize());
  copy.Trim(blank);
  copy.Trim('b');
  copy.MakeUpper();
  copy.MakeLower();
  fuzz::Require(copy.GetSize() <= text.GetSize());
  fuzz::Require(text.CompareNoCase(text.GetBegin()) == 0);
  if (!text.IsEmpty()) text.GetAt(static_cast<int>(text.GetLength() - 1));
}

template <class Traits>
void ReadAs(const uint8_t* data, size_t size, unsigned codePage) {
  BaseString<Traits> text;
  const size_t consumed = text.Deserialize(data, size, codePage);
  fuzz::Require(consumed <= size);
  if (consumed == 0) fuzz::Require(text.IsEmpty());
  UseText(text);
  std::vector<unsigned char> bytes(text.GetSerializedSize(0));
  text.Serialize(bytes.data(), 0);
  BaseString<Traits> again;
  fuzz::Require(again.Deserialize(bytes.data(), bytes.size(), 0) == bytes.size());
  fuzz::Require(again == text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const unsigned target = fuzz::ChooseCodePage(data[1]);
  fuzz::ChooseCodePage(data[0]);
  ReadAs<SbcsTraits>(data + 2, size - 2, target);
  ReadAs<MbcsTraits>(data + 2, size - 2, target);
  ReadAs<WcsTraits>(data + 2, size - 2, target);
  return 0;
}
