// A small hash table of values that forgets rather than searches.
#include "registry/ValueMemory.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace orm::platform {
namespace {

template <class Word>
std::uint64_t Load(const char* from) {
  Word word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

// Eight bytes at a time; the last ones are read together with some of those before them.
std::uint32_t HashOf(std::string_view name) {
  const char* text = name.data();
  const std::size_t size = name.size();
  std::uint64_t hash = size;
  const auto mix = [&hash](std::uint64_t word) {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
    hash ^= hash >> 32;
  };
  if (size >= 8) {
    for (std::size_t at = 0; at + 8 < size; at += 8) mix(Load<std::uint64_t>(text + at));
    mix(Load<std::uint64_t>(text + size - 8));
  } else if (size >= 4) {
    mix(Load<std::uint32_t>(text) | Load<std::uint32_t>(text + size - 4) << 32);
  } else {
    for (const char c : name) mix(static_cast<unsigned char>(c));
  }
  return static_cast<std::uint32_t>(hash);
}

}  // namespace

ValueMemory::Value::Value(std::uint64_t theTxn, std::string_view theName, DWORD theType,
                          std::string_view theData) {
  if (theName.size() > name.size() || theData.size() > data.size()) return;
  txn = theTxn;
  hash = HashOf(theName);
  type = theType;
  size = static_cast<std::uint8_t>(theData.size());
  nameSize = static_cast<std::uint8_t>(theName.size());
  std::copy(theName.begin(), theName.end(), name.begin());
  std::copy(theData.begin(), theData.end(), data.begin());  // may be none at all, at no address
}

const ValueMemory::Value* ValueMemory::Find(std::string_view name, std::uint64_t txn) const {
  if (mValues.empty()) return nullptr;
  const std::uint32_t hash = HashOf(name);
  const Value* value = &mValues[hash & mMask];
  for (const Value* end = value + window; value != end; ++value) {
    if (value->hash == hash && value->txn == txn && value->Name() == name) return value;
  }
  return nullptr;
}

ValueMemory::Value* ValueMemory::FreeCell(const Value& value) {
  Value* begin = &mValues[value.hash & mMask];
  Value* cell =
      std::find_if(begin, begin + window, [&](const Value& other) { return other.txn != value.txn; });
  return cell == begin + window ? nullptr : cell;
}

void ValueMemory::Store(const Value& value) {
  if (mValues.empty()) Grow(value.txn);
  Value* cell = FreeCell(value);
  while (cell == nullptr && mMask + 1 < mostCells) {
    Grow(value.txn);
    cell = FreeCell(value);
  }
  if (cell == nullptr) cell = &mValues[value.hash & mMask];
  *cell = value;
}

void ValueMemory::Grow(std::uint64_t txn) {
  const std::size_t cells = mValues.empty() ? fewestCells : 2 * (mMask + 1);
  const std::vector<Value> old = std::exchange(mValues, std::vector<Value>(cells + window - 1));
  mMask = cells - 1;
  for (const Value& value : old) {
    if (value.txn != txn) continue;
    if (Value* cell = FreeCell(value)) *cell = value;
  }
}

}  // namespace orm::platform
