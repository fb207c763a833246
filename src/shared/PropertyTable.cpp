// The table of a memory bag: comparing names, the index over the entries, and their order.
#include "PropertyTable.h"

#include "ModuleFrame.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <utility>

namespace orm {

namespace {

constexpr uint64_t Repeat(uint8_t byte) {
  return uint64_t{0x0101010101010101} * byte;
}

template <class Word>
Word LoadWord(const char* pos) {
  Word result;
  std::memcpy(&result, pos, sizeof result);
  return result;
}

// Up to eight bytes as a little-endian number; what is missing is zero.
uint64_t Load(const char* pos, size_t size) {
  if (size >= 8) return LoadWord<uint64_t>(pos);
  if (size >= 4) {
    return LoadWord<uint32_t>(pos) | uint64_t{LoadWord<uint32_t>(pos + size - 4)} << (size - 4) * 8;
  }
  if (size == 0) return 0;
  const auto byte = [pos](size_t at) { return uint64_t{static_cast<unsigned char>(pos[at])} << at * 8; };
  return byte(0) | byte(size / 2) | byte(size - 1);
}

// The same where at least eight bytes end with these.
uint64_t LoadEnd(const char* pos, size_t size) {
  return size >= 8 ? LoadWord<uint64_t>(pos) : LoadWord<uint64_t>(pos + size - 8) >> (8 - size) * 8;
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

constexpr uint64_t kFactor = 0x9E3779B97F4A7C15, kSecondFactor = 0xC2B2AE3D27D4EB4F;

PropertyNameDigest MakeDigest(uint64_t prefix, uint64_t second, uint64_t hash, uint64_t all, size_t length) {
  const bool isPlain = (all & Repeat(0x80)) == 0 && length < PropertyNameDigest::kNotPlain;
  // Only the upper bits of a product depend on all of its factor.
  return {__builtin_bswap64(prefix), __builtin_bswap64(second), static_cast<uint32_t>(hash >> 32),
          isPlain ? static_cast<uint32_t>(length) : PropertyNameDigest::kNotPlain};
}

}  // namespace

// The two words are multiplied side by side.
[[gnu::always_inline]] inline PropertyNameDigest PropertyNameKey::DigestShort(const char* text,
                                                                              size_t length) {
  const uint64_t first = Load(text, length);
  const uint64_t second = length > 8 ? LoadEnd(text + 8, length - 8) : 0;
  const uint64_t prefix = ToLower(first), rest = ToLower(second);
  return MakeDigest(prefix, rest, prefix * kFactor + rest * kSecondFactor, first | second, length);
}

PropertyNameDigest PropertyNameKey::DigestLong(const char* text, size_t length) {
  const uint64_t first = Load(text, 8), second = Load(text + 8, 8);
  const uint64_t prefix = ToLower(first), rest = ToLower(second);
  uint64_t all = first | second;
  uint64_t hash = prefix * kFactor + rest * kSecondFactor;
  for (size_t pos = kShort; pos < length; pos += 8) {
    const uint64_t word = LoadEnd(text + pos, length - pos);
    all |= word;
    hash = ((hash ^ hash >> 32) + ToLower(word)) * kFactor;
  }
  return MakeDigest(prefix, rest, hash, all, length);
}

inline bool PropertyNameKey::IsEqual(const PropertyNameDigest& digest, const String& name) const {
  if (mDigest != digest) return false;
  for (size_t pos = kShort; pos < mDigest.length; pos += 8) {
    if (LoadLower(mpText, pos, mDigest.length) != LoadLower(name.GetBegin(), pos, mDigest.length))
      return false;
  }
  return true;
}

bool PropertyNameKey::operator<(const PropertyNameKey& other) const {
  if (!IsPlain() || !other.IsPlain()) return _mbsicmp(Bytes(mpText), Bytes(other.mpText)) < 0;
  if (mDigest.prefix != other.mDigest.prefix) return mDigest.prefix < other.mDigest.prefix;
  if (mDigest.second != other.mDigest.second) return mDigest.second < other.mDigest.second;
  const uint32_t mySize = mDigest.length, theirSize = other.mDigest.length;
  for (size_t pos = kShort; pos < std::min(mySize, theirSize); pos += 8) {
    const uint64_t mine = LoadLower(mpText, pos, mySize);
    const uint64_t theirs = LoadLower(other.mpText, pos, theirSize);
    if (mine != theirs) return __builtin_bswap64(mine) < __builtin_bswap64(theirs);
  }
  return mySize < theirSize;
}

PropertyTable::PropertyTable(const PropertyTable& other) {
  mBlocks.emplace_back().reserve(other.GetSize());
  other.ForEach([this](const PropertyEntry& entry) {
    Append(PropertyNameKey(entry.name), entry.name).entry.value = entry.value;
  });
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

[[gnu::always_inline]] inline PropertyTable::Item* PropertyTable::FindIndexed(const PropertyNameKey& key,
                                                                              Cell*& pFree) const {
  if (mIndex.size == 0 || !key.IsPlain()) return nullptr;
  Cell* cell = &mIndex.cells[key.GetHash() >> mIndex.shift];
  for (Cell* end = cell + kWindow; cell != end; ++cell) {
    Item* const item = *cell;
    if (!item) {
      pFree = cell;
      return nullptr;
    }
    if (key.IsEqual(item->digest, item->entry.name) && !item->IsDead()) return item;
  }
  return nullptr;
}

PropertyTable::Item* PropertyTable::FindOther(const PropertyNameKey& key, const String& name) const {
  if (!key.IsPlain()) {
    const String folded = FoldToPlain(name);
    Cell* pFree;
    Item* item = folded.IsEmpty() ? nullptr : FindIndexed(PropertyNameKey(folded), pFree);
    if (item) return item;
  }
  const auto found = mIndex.others.find(key);
  return found != mIndex.others.end() ? found->second : nullptr;
}

[[gnu::always_inline]] inline PropertyTable::Item* PropertyTable::FindItem(const PropertyNameKey& key,
                                                                           const String& name) const {
  Cell* pFree;
  if (Item* item = FindIndexed(key, pFree)) return item;
  return key.IsPlain() && mIndex.others.empty() ? nullptr : FindOther(key, name);
}

// Only what short names need, so that nothing has to be kept across calls.
const PropertyValue* PropertyTable::Find(const String& name) const {
  const size_t length = name.GetSize();
  if (length > PropertyNameKey::kShort) return FindSlowly(name);
  const PropertyNameKey key(name, length);
  Cell* pFree;
  if (const Item* item = FindIndexed(key, pFree)) return &item->entry.value;
  return key.IsPlain() && mIndex.others.empty() ? nullptr : FindSlowly(name);
}

[[gnu::noinline]] const PropertyValue* PropertyTable::FindSlowly(const String& name) const {
  const Item* item = FindItem(PropertyNameKey(name), name);
  return item ? &item->entry.value : nullptr;
}

// ---- Changing

PropertyValue& PropertyTable::FindOrInsert(const String& name) {
  if ((mCount + 1) * 2 > mIndex.size) Rebuild((mCount + 1) * 2);
  const PropertyNameKey key(name);
  Cell* pFree = nullptr;
  if (Item* item = FindIndexed(key, pFree)) return item->entry.value;
  if (!key.IsPlain() || !mIndex.others.empty()) {
    if (Item* item = FindOther(key, name)) return item->entry.value;
  }
  Item& item = Append(key, name);
  if (pFree) {
    *pFree = &item;
  } else {
    IndexElsewhere(item);
  }
  return item.entry.value;
}

// The key may point into the caller's string, since the entry shares its text.
inline PropertyTable::Item& PropertyTable::Append(const PropertyNameKey& key, const String& name) {
  if (mBlocks.empty() || mBlocks.back().size() == mBlocks.back().capacity()) {
    mBlocks.emplace_back().reserve(std::max(kFirstBlock, mCount));
  }
  Item& item = mBlocks.back().emplace_back(key.GetDigest(), name);
  ++mCount;
  return item;
}

void PropertyTable::Reserve(size_t count) {
  if (count == 0) return;
  const size_t room = mBlocks.empty() ? 0 : mBlocks.back().capacity() - mBlocks.back().size();
  if (room < count) mBlocks.emplace_back().reserve(count);
  if ((mCount + count) * 2 > mIndex.size) Rebuild((mCount + count) * 2);
}

void PropertyTable::Delete(const String& name) {
  Item* item = FindItem(PropertyNameKey(name), name);
  if (!item) return;
  if (!mIndex.others.empty()) mIndex.others.erase(item->GetKey());
  // The name stays: the order still looks at it.
  item->entry.value = {};
  if (++mDead <= kMostDead || mDead <= GetSize()) return;
  try {
    Compact();
  } catch (const std::bad_alloc&) {  // the next deletion tries it again
  }
}

void PropertyTable::IndexElsewhere(Item& item) {
  try {
    const PropertyNameKey key = item.GetKey();
    if (key.IsPlain() && mIndex.size <= mCount * kMostSpace) Rebuild(mIndex.size * 2);
    mIndex.Add(item);
  } catch (...) {
    mBlocks.back().pop_back();
    --mCount;
    throw;
  }
}

PropertyTable::Index::Index(size_t leastCells) {
  const auto bits = static_cast<unsigned>(std::bit_width(std::max(leastCells, kFewestCells) - 1));
  size = size_t{1} << bits;
  shift = 32 - bits;
  cells.resize(size + kWindow - 1);
}

PropertyTable::Cell* PropertyTable::Index::FindFree(const PropertyNameKey& key) {
  if (!key.IsPlain()) return nullptr;
  Cell* const begin = &cells[key.GetHash() >> shift];
  Cell* const free = std::find(begin, begin + kWindow, nullptr);
  return free != begin + kWindow ? free : nullptr;
}

void PropertyTable::Index::Add(Item& item) {
  const PropertyNameKey key = item.GetKey();
  if (Cell* free = FindFree(key)) {
    *free = &item;
  } else {
    others.emplace(key, &item);
  }
}

// An item without a value, which is one that is just being inserted, is left out like a deleted one. The
// present index stays until the new one is whole.
void PropertyTable::Rebuild(size_t leastCells) {
  Index index(leastCells);
  ForEachItem(0, [&index](Item& item) {
    if (!item.IsDead()) index.Add(item);
  });
  mIndex = std::move(index);
}

// The items stay where they are until all of them are elsewhere.
void PropertyTable::Compact() {
  std::vector<std::vector<Item>> blocks(1);
  std::vector<Item>& items = blocks.front();
  items.reserve(GetSize());
  ForEachItem(0, [&items](const Item& item) {
    if (!item.IsDead()) items.push_back(item);
  });
  Index index(items.size() * 2);
  for (Item& item : items) index.Add(item);
  mIndex = std::move(index);
  mBlocks.swap(blocks);
  mCount = items.size();
  mDead = 0;
  mOrder.clear();
  mOrdered = 0;
}

// ---- The order

const PropertyTable::Order& PropertyTable::GetOrder() const {
  if (mOrdered.load(std::memory_order_acquire) != mCount) MakeOrder();
  return mOrder;
}

namespace {

// Under which orders are made. Tables share them, a few for all, so that all of them can be held over a fork:
// in the child nobody would come to the end of an order that another thread was making.
constinit std::array<std::mutex, 16> gsOrdering;

std::mutex& GetOrdering(const PropertyTable* table) {
  return gsOrdering[reinterpret_cast<uintptr_t>(table) * kFactor >> 60];
}

}  // namespace

void LockPropertyOrders() {
  for (std::mutex& lock : gsOrdering) lock.lock();
}

void UnlockPropertyOrders() {
  for (std::mutex& lock : gsOrdering) lock.unlock();
}

// Brings the items that came since the last time into the order. They are often in order themselves, having
// been copied from another bag.
void PropertyTable::MakeOrder() const {
  const std::lock_guard lock(GetOrdering(this));
  const size_t known = mOrdered.load(std::memory_order_relaxed);
  if (known == mCount) return;
  mOrder.reserve(mCount);
  ForEachItem(known, [this](const Item& item) { mOrder.push_back(&item); });
  const auto before = [](const Item* a, const Item* b) { return a->GetKey() < b->GetKey(); };
  const auto added = mOrder.begin() + static_cast<std::ptrdiff_t>(known);
  if (!std::is_sorted(added, mOrder.end(), before)) std::sort(added, mOrder.end(), before);
  if (known > 0 && before(*added, *std::prev(added))) {
    std::inplace_merge(mOrder.begin(), added, mOrder.end(), before);
  }
  mOrdered.store(mCount, std::memory_order_release);
}

}  // namespace orm
