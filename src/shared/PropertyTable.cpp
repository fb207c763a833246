// The table of a memory bag: comparing names, and the index over the map.
#include "PropertyTable.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace orm {

namespace {

constexpr uint64_t Repeat(uint8_t byte) {
  return 0x0101010101010101 * byte;
}

// Up to eight bytes as a little-endian number; what is missing is zero.
uint64_t Load(const char* pos, size_t size) {
  const auto load32 = [](const char* from) {
    uint32_t result;
    std::memcpy(&result, from, sizeof result);
    return uint64_t{result};
  };
  if (size >= 8) {
    uint64_t result;
    std::memcpy(&result, pos, sizeof result);
    return result;
  }
  if (size >= 4) return load32(pos) | load32(pos + size - 4) << (size - 4) * 8;
  uint64_t result = 0;
  for (size_t i = 0; i < size; ++i) result |= uint64_t{static_cast<unsigned char>(pos[i])} << i * 8;
  return result;
}

// Eight ASCII characters in lower case: a byte of 'A' to 'Z' reaches its top bit by the first addition and
// not by the second.
uint64_t ToLower(uint64_t word) {
  const uint64_t fromA = word + Repeat(0x80 - 'A');
  const uint64_t afterZ = word + Repeat(0x80 - 'Z' - 1);
  return word | (fromA & ~afterZ & Repeat(0x80)) >> 2;
}

uint64_t LoadLower(const char* text, size_t pos, size_t length) {
  return ToLower(Load(text + pos, std::min<size_t>(8, length - pos)));
}

const unsigned char* Bytes(const char* text) {
  return reinterpret_cast<const unsigned char*>(text);
}

}  // namespace

PropertyNameKey::PropertyNameKey(const String& name)
    : mpText(name.GetBegin()), mLength(static_cast<uint32_t>(name.GetEnd() - name.GetBegin())) {
  const uint64_t first = Load(mpText, std::min<size_t>(8, mLength));
  uint64_t all = first;
  uint64_t hash = 0;
  const auto mix = [&hash](uint64_t word) {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15;
    hash ^= hash >> 32;
  };
  mPrefix = __builtin_bswap64(ToLower(first));
  mix(mPrefix);
  for (size_t pos = 8; pos < mLength; pos += 8) {
    const uint64_t word = Load(mpText + pos, std::min<size_t>(8, mLength - pos));
    all |= word;
    mix(ToLower(word));
  }
  mHash = static_cast<uint32_t>(hash);
  mPlain = (all & Repeat(0x80)) == 0;
}

bool PropertyNameKey::IsEqual(const PropertyNameKey& other) const {
  if (mPrefix != other.mPrefix || mLength != other.mLength) return false;
  for (size_t pos = 8; pos < mLength; pos += 8) {
    if (LoadLower(mpText, pos, mLength) != LoadLower(other.mpText, pos, mLength)) return false;
  }
  return true;
}

bool PropertyNameKey::operator<(const PropertyNameKey& other) const {
  if (!mPlain || !other.mPlain) return _mbsicmp(Bytes(mpText), Bytes(other.mpText)) < 0;
  if (mPrefix != other.mPrefix) return mPrefix < other.mPrefix;
  const size_t common = std::min(mLength, other.mLength);
  for (size_t pos = 8; pos < common; pos += 8) {
    const uint64_t mine = LoadLower(mpText, pos, mLength);
    const uint64_t theirs = LoadLower(other.mpText, pos, other.mLength);
    if (mine != theirs) return __builtin_bswap64(mine) < __builtin_bswap64(theirs);
  }
  return mLength < other.mLength;
}

PropertyTable::PropertyTable(const PropertyTable& other) : mEntries(other.mEntries) {
  Rebuild();
}

PropertyTable::Cell* PropertyTable::FindCell(const PropertyNameKey& key) const {
  if (mIndex.empty() || !key.IsPlain()) return nullptr;
  Cell* cell = &mIndex[key.GetHash() & mMask];
  for (Cell* end = cell + kWindow; cell != end; ++cell) {
    if (cell->hash == key.GetHash() && cell->pItem && cell->pItem->first.IsEqual(key)) return cell;
  }
  return nullptr;
}

PropertyTable::Map::value_type* PropertyTable::FindItem(const PropertyNameKey& key) const {
  if (const Cell* cell = FindCell(key)) return cell->pItem;
  // A plain name may also equal one that is not plain: that is for the code page to say.
  if (mUnindexed == 0 && key.IsPlain()) return nullptr;
  const auto found = mEntries.find(key);
  return found != mEntries.end() ? const_cast<Map::value_type*>(&*found) : nullptr;
}

const PropertyValue* PropertyTable::Find(const String& name) const {
  const Map::value_type* item = FindItem(PropertyNameKey(name));
  return item ? &item->second.value : nullptr;
}

PropertyValue& PropertyTable::FindOrInsert(const String& name) {
  const PropertyNameKey key(name);
  if (auto* item = FindItem(key)) return item->second.value;
  // A bag is often filled in ascending order, from the enumeration of another one. The key may point into the
  // caller's string, since the entry shares its text.
  const bool last = mEntries.empty() || mEntries.rbegin()->first < key;
  const auto where = last ? mEntries.end() : mEntries.lower_bound(key);
  Map::value_type& item = *mEntries.emplace_hint(where, key, PropertyEntry{name, {}});
  if (mEntries.size() * 2 > mMask) {
    Rebuild();
  } else {
    Index(item);
  }
  return item.second.value;
}

void PropertyTable::Delete(const String& name) {
  const Map::value_type* item = FindItem(PropertyNameKey(name));
  if (!item) return;
  if (Cell* cell = FindCell(item->first)) {
    *cell = {};
  } else {
    --mUnindexed;
  }
  mEntries.erase(item->first);
}

void PropertyTable::Index(Map::value_type& item) {
  if (item.first.IsPlain()) {
    Cell* begin = &mIndex[item.first.GetHash() & mMask];
    Cell* free = std::find_if(begin, begin + kWindow, [](const Cell& cell) { return !cell.pItem; });
    if (free != begin + kWindow) {
      *free = {item.first.GetHash(), &item};
      return;
    }
  }
  ++mUnindexed;
}

void PropertyTable::Rebuild() {
  size_t cells = 16;
  while (cells < mEntries.size() * 4) cells *= 2;
  mMask = cells - 1;
  mIndex.assign(cells + kWindow - 1, Cell{});
  mUnindexed = 0;
  for (auto& item : mEntries) Index(item);
}

}  // namespace orm
