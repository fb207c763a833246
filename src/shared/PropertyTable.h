// The contents of a memory bag: the entries in the order in which they came, an index for finding them, and
// their order by name, which is made when somebody asks for it.
//
// The multibyte comparison without regard to case decides which names are equal and in which order they
// stand. Names made of ASCII characters, nearly all there are, are found through a hash index of their
// lower-case form. Whatever the index cannot take, because it is not plain or because too many names have
// its hash, is in an ordered map: names chosen to collide cost no more than the map.
#pragma once

#include <ormutil/BaseString.h>
#include <ormutil/Binary.h>
#include <ormutil/Properties.h>

#include <atomic>
#include <map>
#include <mutex>
#include <variant>
#include <vector>

namespace orm {

// A name as it is compared. It points into the text of a string that must outlive it.
class PropertyNameKey {
 public:
  explicit PropertyNameKey(const String& name);

  // Whether the name consists of ASCII characters, so that its case folds without a code page.
  bool IsPlain() const { return mPlain; }
  // Of the lower-case form; only for plain names.
  uint32_t GetHash() const { return mHash; }
  // Both plain.
  bool IsEqual(const PropertyNameKey& other) const;
  // The order of enumeration.
  bool operator<(const PropertyNameKey& other) const;

 private:
  const char* mpText;
  uint64_t mPrefix;  // the first eight characters in lower case, the first one in the top byte
  uint64_t mSecond;  // the eight after them, likewise
  uint32_t mLength;
  uint32_t mHash;
  bool mPlain;
};

// The alternatives stand in the order of Properties::PropertyType.
using PropertyValue = std::variant<std::monostate, DWORD, String, Binary>;

struct PropertyEntry {
  String name;  // in the spelling in which it was first set
  PropertyValue value;
};

// Reading is for several threads at once.
class PropertyTable {
 public:
  PropertyTable() = default;
  PropertyTable(const PropertyTable& other);
  PropertyTable& operator=(const PropertyTable&) = delete;

  // Null when there is no such property.
  const PropertyValue* Find(const String& name) const;
  // The property's value, of no type when the property is new.
  PropertyValue& FindOrInsert(const String& name);
  void Delete(const String& name);

  size_t GetSize() const { return mCount - mDead; }
  // Calls `visit(const PropertyEntry&)` for each property in order.
  template <class Visit>
  void ForEach(Visit visit) const {
    for (const Item* item : GetOrder()) {
      if (!item->dead) visit(item->entry);
    }
  }

 private:
  struct Item {
    PropertyNameKey key;
    PropertyEntry entry;
    bool dead = false;  // deleted, but still a place in the order
  };
  // A deleted item's cell has the complement of its hash, so that no name finds it.
  struct Cell {
    uint32_t hash = 0;
    Item* pItem = nullptr;
  };
  using Order = std::vector<const Item*>;
  // A name lies in one of this many cells, beginning with the one that its hash names.
  static constexpr size_t kWindow = 8;
  static constexpr size_t kFewestCells = 32;
  // Where there are more cells than this for each item, names that crowd one place are meant to.
  static constexpr size_t kMostSpace = 2;
  static constexpr size_t kFirstBlock = 8;
  // Dead items are put up with until they are more than this and more than the others.
  static constexpr size_t kMostDead = 16;

  Cell* FindCell(const PropertyNameKey& key) const;
  // What FindCell does not find.
  Item* FindOther(const PropertyNameKey& key, const String& name) const;
  Item* FindItem(const PropertyNameKey& key, const String& name) const;
  Item& Append(const PropertyNameKey& key, const PropertyEntry& entry);
  // Calls `visit(item)` for the items from this one on, dead ones included.
  template <class Visit>
  void ForEachItem(size_t first, Visit visit) const;
  bool FitsIndex(Item& item);
  void Index(Item& item);
  void Rebuild(size_t leastCells);
  void Compact();
  const Order& GetOrder() const;
  void MakeOrder() const;

  // Each block is twice as large as the one before it and never grows, so that items stay where they are.
  mutable std::vector<std::vector<Item>> mBlocks;
  size_t mCount = 0;  // of all items
  size_t mDead = 0;
  // A power of two of cells that hashes name, at least twice as many as there are items, and kWindow - 1
  // more.
  mutable std::vector<Cell> mIndex;
  size_t mMask = 0;
  std::map<PropertyNameKey, Item*> mOthers;

  // The first mOrdered of the items by name. Readers may find the rest missing, and bring it in under the
  // lock.
  mutable std::mutex mOrdering;
  mutable std::atomic<size_t> mOrdered{0};
  mutable Order mOrder;
};

// The table of a memory bag that has one; null for every other bag, also for one of a class derived from the
// memory bag, whose operations may be its own.
const PropertyTable* GetPropertyTable(const Properties& bag);

}  // namespace orm
