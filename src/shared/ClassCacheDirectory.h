// The directory of the shared block: which bytes of the data area belong to which record, and the records'
// order by key.
#pragma once

#include <array>

#include "ClassCacheRecord.h"

namespace orm {

// Where the parts of the block lie.
struct CacheLayout {
  static constexpr DWORD BLOCK_SIZE = 0x10000;
  static constexpr DWORD CAPACITY = 0x100;
  static constexpr DWORD LAST_SLOT = 28;  // in the header: number of records - 1
  static constexpr DWORD SLOTS = 32;
  static constexpr DWORD SLOT_SIZE = 12;
  static constexpr DWORD SLOT_RECORD = 0, SLOT_RECORD_SIZE = 4, SLOT_ORDER = 8;  // within a slot
  static constexpr DWORD DATA_START = SLOTS + CAPACITY * SLOT_SIZE;
  static constexpr DWORD DATA_SIZE = BLOCK_SIZE - DATA_START;
};

struct CacheSlot {
  DWORD offset;
  DWORD size;

  DWORD GetEnd() const { return offset + size; }
  // The i-th slot of the block; empty unless its record lies wholly in the data area.
  static std::optional<CacheSlot> Load(const CacheBytes& bytes, DWORD i);
};

// Slot and key-order position of a record.
struct CachePosition {
  DWORD slot;
  DWORD order;
};

// One reading of the directory, checked as it was made, on which changes are worked out and from which they
// are written back: nothing that the block turns into meanwhile leads a write out of bounds. A change is
// written in such an order that a process killed in its middle leaves every other record in some slot below
// the count, where Repair finds it.
class CacheDirectory {
 public:
  explicit CacheDirectory(const CacheBytes& bytes) : mBytes(bytes) {}

  // Number of records that the header states, 0 to the capacity; empty when it is neither.
  static std::optional<DWORD> LoadCount(const CacheBytes& bytes);

  // Reads the directory. False when anything contradicts: counts, bounds, overlaps, the key order, a record
  // that leaves its space, a hash that is not the name's.
  bool Load();
  // Keeps the records that are whole and finished, drops the rest and writes a directory for them.
  void Repair();

  DWORD GetCount() const { return mCount; }
  const CacheSlot& GetSlot(DWORD i) const { return mSlots[i]; }
  // Whether this reading has that record, or, not `found`, room in its order for one at that place.
  bool Agrees(const CachePosition& position, bool found) const;
  // Bytes from the record's start to the next record or the end of the block.
  DWORD GetSpace(DWORD slot) const;

  void SetSize(DWORD slot, DWORD size);
  void Insert(const CachePosition& position, const CacheSlot& slot);
  void Remove(const CachePosition& position);
  // The record that was not used for the longest time; of several, the first by key.
  CachePosition FindOldest() const;
  // Bytes of the data area that no record owns.
  DWORD GetFree() const;
  // Moves the records together at the start of the data area.
  void Compact();

 private:
  bool LoadSlots();
  bool HasSoundRecords() const;
  bool HasSoundOrder() const;
  bool IsBefore(const CacheSlot& left, const CacheSlot& right) const;
  void StoreCount() const;
  void StoreSlot(DWORD i) const;
  void StoreOrder() const;

  CacheBytes mBytes;
  DWORD mCount = 0;
  std::array<CacheSlot, CacheLayout::CAPACITY> mSlots{};
  std::array<DWORD, CacheLayout::CAPACITY> mOrder{};
};

}  // namespace orm
