// The table of a memory bag: comparing names, the index over the entries, and their order.
#include "PropertyTable.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace orm {

namespace {

constexpr uint64_t Repeat(uint8_t byte) {
  return uint64_t{0x0101010101010101} * byte;
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

// The lower-case form of a name that is not plain when that form is; else the empty text. Only such a name
// can equal a plain one.
String FoldToPlain(const String& name) {
  std::string folded;
  for (const unsigned char* pos = Bytes(name.GetBegin()); *pos != 0; pos += _mbclen(pos)) {
    const unsigned lower = _mbctolower(_mbsnextc(pos));
    if (lower >= 0x80) return String();
    folded.push_back(static_cast<char>(lower));
  }
  return folded.c_str();
}

}  // namespace

// The first two words, which are all that most names have, are multiplied side by side.
[[gnu::always_inline]] inline PropertyNameKey::PropertyNameKey(const String& name)
    : mpText(name.GetBegin()), mSecond(0), mLength(static_cast<uint32_t>(name.GetSize())) {
  constexpr uint64_t kFactor = 0x9E3779B97F4A7C15, kSecondFactor = 0xC2B2AE3D27D4EB4F;
  uint64_t all = Load(mpText, std::min<size_t>(8, mLength));
  mPrefix = __builtin_bswap64(ToLower(all));
  uint64_t hash = mPrefix * kFactor;
  if (mLength > 8) {
    const uint64_t second = Load(mpText + 8, std::min<size_t>(8, mLength - 8));
    all |= second;
    mSecond = __builtin_bswap64(ToLower(second));
    hash += mSecond * kSecondFactor;
  }
  for (size_t pos = 16; pos < mLength; pos += 8) {
    const uint64_t word = Load(mpText + pos, std::min<size_t>(8, mLength - pos));
    all |= word;
    hash = ((hash ^ hash >> 32) + ToLower(word)) * kFactor;
  }
  // Only the upper half of a product depends on all of its factor; the lower bits choose the cell.
  mHash = static_cast<uint32_t>((hash ^ hash >> 32) * kFactor >> 32);
  mPlain = (all & Repeat(0x80)) == 0;
}

inline bool PropertyNameKey::IsEqual(const PropertyNameKey& other) const {
  if (mPrefix != other.mPrefix || mSecond != other.mSecond || mLength != other.mLength) return false;
  for (size_t pos = 16; pos < mLength; pos += 8) {
    if (LoadLower(mpText, pos, mLength) != LoadLower(other.mpText, pos, mLength)) return false;
  }
  return true;
}

bool PropertyNameKey::operator<(const PropertyNameKey& other) const {
  if (!mPlain || !other.mPlain) return _mbsicmp(Bytes(mpText), Bytes(other.mpText)) < 0;
  if (mPrefix != other.mPrefix) return mPrefix < other.mPrefix;
  if (mSecond != other.mSecond) return mSecond < other.mSecond;
  const size_t common = std::min(mLength, other.mLength);
  for (size_t pos = 16; pos < common; pos += 8) {
    const uint64_t mine = LoadLower(mpText, pos, mLength);
    const uint64_t theirs = LoadLower(other.mpText, pos, other.mLength);
    if (mine != theirs) return __builtin_bswap64(mine) < __builtin_bswap64(theirs);
  }
  return mLength < other.mLength;
}

PropertyTable::PropertyTable(const PropertyTable& other) {
  other.ForEach([this](const PropertyEntry& entry) { Append(PropertyNameKey(entry.name), entry); });
  Rebuild(mCount * 2);
}

template <class Visit>
void PropertyTable::ForEachItem(size_t first, Visit visit) const {
  for (std::vector<Item>& block : mBlocks) {
    for (; first < block.size(); ++first) visit(block[first]);
    first -= block.size();
  }
}

// ---- Finding

[[gnu::always_inline]] inline PropertyTable::Cell* PropertyTable::FindCell(const PropertyNameKey& key) const {
  if (mIndex.empty() || !key.IsPlain()) return nullptr;
  Cell* cell = &mIndex[key.GetHash() & mMask];
  for (Cell* end = cell + kWindow; cell != end && cell->pItem; ++cell) {
    if (cell->hash == key.GetHash() && cell->pItem->key.IsEqual(key)) return cell;
  }
  return nullptr;
}

PropertyTable::Item* PropertyTable::FindOther(const PropertyNameKey& key, const String& name) const {
  if (!key.IsPlain()) {
    const String folded = FoldToPlain(name);
    const Cell* cell = folded.IsEmpty() ? nullptr : FindCell(PropertyNameKey(folded));
    if (cell) return cell->pItem;
  }
  if (mOthers.empty()) return nullptr;
  const auto found = mOthers.find(key);
  return found != mOthers.end() ? found->second : nullptr;
}

inline PropertyTable::Item* PropertyTable::FindItem(const PropertyNameKey& key, const String& name) const {
  const Cell* cell = FindCell(key);
  return cell ? cell->pItem : FindOther(key, name);
}

const PropertyValue* PropertyTable::Find(const String& name) const {
  const Item* item = FindItem(PropertyNameKey(name), name);
  return item ? &item->entry.value : nullptr;
}

// ---- Changing

PropertyValue& PropertyTable::FindOrInsert(const String& name) {
  const PropertyNameKey key(name);
  if (Item* item = FindItem(key, name)) return item->entry.value;
  if ((mCount + 1) * 2 > mMask) Rebuild((mCount + 1) * 2);
  Item& item = Append(key, PropertyEntry{name, {}});
  Index(item);
  return item.entry.value;
}

// The key may point into the caller's string, since the entry shares its text.
PropertyTable::Item& PropertyTable::Append(const PropertyNameKey& key, const PropertyEntry& entry) {
  if (mBlocks.empty() || mBlocks.back().size() == mBlocks.back().capacity()) {
    mBlocks.emplace_back().reserve(std::max(kFirstBlock, mCount));
  }
  mBlocks.back().push_back({key, entry});
  ++mCount;
  return mBlocks.back().back();
}

void PropertyTable::Delete(const String& name) {
  Item* item = FindItem(PropertyNameKey(name), name);
  if (!item) return;
  if (Cell* cell = FindCell(item->key)) {
    cell->hash = ~cell->hash;
  } else {
    mOthers.erase(item->key);
  }
  // The name stays: the order still looks at it.
  item->entry.value = {};
  item->dead = true;
  if (++mDead > kMostDead && mDead > GetSize()) Compact();
}

// Puts the item into the index when there is a place for it.
bool PropertyTable::FitsIndex(Item& item) {
  if (!item.key.IsPlain()) return false;
  Cell* begin = &mIndex[item.key.GetHash() & mMask];
  Cell* free = std::find_if(begin, begin + kWindow, [](const Cell& cell) { return !cell.pItem; });
  if (free == begin + kWindow) return false;
  *free = {item.key.GetHash(), &item};
  return true;
}

void PropertyTable::Index(Item& item) {
  if (FitsIndex(item)) return;
  if (item.key.IsPlain() && mMask < mCount * kMostSpace) {
    Rebuild((mMask + 1) * 2);
  } else {
    mOthers.emplace(item.key, &item);
  }
}

void PropertyTable::Rebuild(size_t leastCells) {
  size_t cells = kFewestCells;
  while (cells < leastCells) cells *= 2;
  mMask = cells - 1;
  mIndex.assign(cells + kWindow - 1, Cell{});
  mOthers.clear();
  ForEachItem(0, [this](Item& item) {
    if (!item.dead && !FitsIndex(item)) mOthers.emplace(item.key, &item);
  });
}

void PropertyTable::Compact() {
  const std::vector<std::vector<Item>> old = std::exchange(mBlocks, {});
  mCount = mDead = 0;
  mOrder.clear();
  mOrdered = 0;
  for (const std::vector<Item>& block : old) {
    for (const Item& item : block) {
      if (!item.dead) Append(item.key, item.entry);
    }
  }
  Rebuild(mCount * 2);
}

// ---- The order

const PropertyTable::Order& PropertyTable::GetOrder() const {
  if (mOrdered.load(std::memory_order_acquire) != mCount) MakeOrder();
  return mOrder;
}

// Brings the items that came since the last time into the order. They are often in order themselves, having
// been copied from another bag.
void PropertyTable::MakeOrder() const {
  const std::lock_guard lock(mOrdering);
  const size_t known = mOrdered.load(std::memory_order_relaxed);
  if (known == mCount) return;
  mOrder.reserve(mCount);
  ForEachItem(known, [this](const Item& item) { mOrder.push_back(&item); });
  const auto before = [](const Item* a, const Item* b) { return a->key < b->key; };
  const auto added = mOrder.begin() + static_cast<std::ptrdiff_t>(known);
  if (!std::is_sorted(added, mOrder.end(), before)) std::sort(added, mOrder.end(), before);
  if (known > 0 && before(*added, *std::prev(added))) {
    std::inplace_merge(mOrder.begin(), added, mOrder.end(), before);
  }
  mOrdered.store(mCount, std::memory_order_release);
}

}  // namespace orm
