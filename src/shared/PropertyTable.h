// The contents of a memory bag: an ordered map of names to values, with an index for finding them.
//
// The map alone would do: it decides which names are equal and in which order they stand, by the multibyte
// comparison without regard to case. Walking it costs several comparisons a search, so names made of ASCII
// characters, nearly all there are, are found through a hash index of their lower-case form first. The index
// only ever answers "here it is" or "not among what I hold"; whatever it could not take is looked for in the
// map. A probe of the index is of bounded length, so that names chosen to collide cost no more than the map.
#pragma once

#include <ormutil/BaseString.h>
#include <ormutil/Binary.h>
#include <ormutil/Properties.h>

#include <map>
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
  // The order of the map.
  bool operator<(const PropertyNameKey& other) const;

 private:
  const char* mpText;
  uint64_t mPrefix;  // the first eight characters in lower case, the first one in the top byte
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

  size_t GetSize() const { return mEntries.size(); }
  // Calls `visit(const PropertyEntry&)` for each property in order.
  template <class Visit>
  void ForEach(Visit visit) const {
    for (const auto& [key, entry] : mEntries) visit(entry);
  }

 private:
  using Map = std::map<PropertyNameKey, PropertyEntry>;
  struct Cell {
    uint32_t hash = 0;
    Map::value_type* pItem = nullptr;
  };
  // A name lies in one of this many cells, beginning with the one that its hash names.
  static constexpr size_t kWindow = 8;

  Cell* FindCell(const PropertyNameKey& key) const;
  Map::value_type* FindItem(const PropertyNameKey& key) const;
  void Index(Map::value_type& item);
  void Rebuild();

  Map mEntries;
  // A power of two of cells that hashes name, and kWindow - 1 more at the end.
  mutable std::vector<Cell> mIndex;
  size_t mMask = 0;
  // Names that the map has and the index has not.
  size_t mUnindexed = 0;
};

// The table of a memory bag that has one; null for every other bag, also for one of a class derived from the
// memory bag, whose operations may be its own.
const PropertyTable* GetPropertyTable(const Properties& bag);

}  // namespace orm
