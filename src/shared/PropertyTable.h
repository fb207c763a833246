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
#include <variant>
#include <vector>

namespace orm {

// What a name is compared by before its text is: it is kept with the name, which it takes 24 bytes to do.
struct PropertyNameDigest {
  // The length of names that do not consist of ASCII characters: their case folds by the code page only.
  static constexpr uint32_t kNotPlain = UINT32_MAX;

  uint64_t prefix;  // the first eight characters in lower case, the first one in the top byte
  uint64_t second;  // the eight after them, likewise
  uint32_t hash;    // of the lower-case form; only for plain names
  uint32_t length;

  bool IsPlain() const { return length != kNotPlain; }
  bool operator==(const PropertyNameDigest& other) const = default;
};

// A name as it is compared. It points into the text of a string that must outlive it.
class PropertyNameKey {
 public:
  // Nearly all names have so few characters; the digest says everything about them.
  static constexpr size_t kShort = 16;

  explicit PropertyNameKey(const String& name) : PropertyNameKey(name, name.GetSize()) {}
  PropertyNameKey(const String& name, size_t length)
      : mDigest(length <= kShort ? DigestShort(name.GetBegin(), length)
                                 : DigestLong(name.GetBegin(), length)),
        mpText(name.GetBegin()) {}
  // Of a name whose digest is known.
  PropertyNameKey(const PropertyNameDigest& digest, const String& name)
      : mDigest(digest), mpText(name.GetBegin()) {}

  const PropertyNameDigest& GetDigest() const { return mDigest; }
  bool IsPlain() const { return mDigest.IsPlain(); }
  uint32_t GetHash() const { return mDigest.hash; }
  // Both plain.
  bool IsEqual(const PropertyNameDigest& digest, const String& name) const;
  // The order of enumeration.
  bool operator<(const PropertyNameKey& other) const;

 private:
  static PropertyNameDigest DigestShort(const char* text, size_t length);
  static PropertyNameDigest DigestLong(const char* text, size_t length);

  PropertyNameDigest mDigest;
  const char* mpText;
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
  // Makes room for so many properties more, in one block.
  void Reserve(size_t count);

  size_t GetSize() const { return mCount - mDead; }
  // Calls `visit(const PropertyEntry&)` for each property in order.
  template <class Visit>
  void ForEach(Visit visit) const {
    for (const Item* item : GetOrder()) {
      if (!item->IsDead()) visit(item->entry);
    }
  }

 private:
  struct Item {
    PropertyNameDigest digest;
    PropertyEntry entry;

    Item(const PropertyNameDigest& nameDigest, const String& name) : digest(nameDigest), entry{name, {}} {}
    PropertyNameKey GetKey() const { return PropertyNameKey(digest, entry.name); }
    // Without a value it is deleted, but still a place in the order.
    bool IsDead() const { return entry.value.index() == Properties::TYPE_NONE; }
  };
  using Cell = Item*;
  using Order = std::vector<const Item*>;
  // A name lies in one of this many cells, beginning with the one that its hash names.
  static constexpr size_t kWindow = 8;
  static constexpr size_t kFewestCells = 64;
  // Where there are more cells than this for each item, names that crowd one place are meant to.
  static constexpr size_t kMostSpace = 2;
  static constexpr size_t kFirstBlock = 16;
  // Dead items are put up with until they are more than this and more than the others.
  static constexpr size_t kMostDead = 16;

  // Finds items by name.
  struct Index {
    Index() = default;
    explicit Index(size_t leastCells);
    // A free cell for the name, or null.
    Cell* FindFree(const PropertyNameKey& key);
    void Add(Item& item);

    // A power of two of cells that the upper bits of hashes name, at least twice as many as there are items,
    // and kWindow - 1 more.
    std::vector<Cell> cells;
    size_t size = 0;
    unsigned shift = 0;
    std::map<PropertyNameKey, Item*> others;
  };

  // The item that the index finds, else null and, when there is one, the free cell that the name may take.
  Item* FindIndexed(const PropertyNameKey& key, Cell*& pFree) const;
  const PropertyValue* FindSlowly(const String& name) const;
  // What the index does not find.
  Item* FindOther(const PropertyNameKey& key, const String& name) const;
  Item* FindItem(const PropertyNameKey& key, const String& name) const;
  Item& Append(const PropertyNameKey& key, const String& name);
  // Calls `visit(item)` for the items from this one on, dead ones included.
  template <class Visit>
  void ForEachItem(size_t first, Visit visit) const;
  // For the last item, whose name has no cell to take. When it throws the item is gone.
  void IndexElsewhere(Item& item);
  void Rebuild(size_t leastCells);
  void Compact();
  const Order& GetOrder() const;
  void MakeOrder() const;

  // Each block is about twice as large as the one before it and never grows, so that items stay where they
  // are.
  mutable std::vector<std::vector<Item>> mBlocks;
  size_t mCount = 0;  // of all items
  size_t mDead = 0;
  mutable Index mIndex;

  // The first mOrdered of the items by name. Readers may find the rest missing, and bring it in under a lock
  // that the table shares with others.
  mutable std::atomic<size_t> mOrdered{0};
  mutable Order mOrder;
};

// The table of a memory bag that has one; null for every other bag, also for one of a class derived from the
// memory bag, whose operations may be its own.
const PropertyTable* GetPropertyTable(const Properties& bag);

// The same for writing; a memory bag that has none, or shares it, gets one of its own.
PropertyTable* GetWritablePropertyTable(Properties& bag);

}  // namespace orm
