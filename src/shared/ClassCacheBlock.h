// The block of memory in which the processes of a machine keep the class lists of component libraries: its
// format, look-up, storage and eviction. The caller serialises access between processes.
//
// The block is memory that others write and a file that stays: every offset, size and terminator is checked
// before it is used. A damaged block holds no record that can be found; the next Store repairs it.
#pragma once

#include <ormutil/Binary.h>

#include "ClassCacheDirectory.h"

namespace orm {

class CacheBlock {
 public:
  static constexpr DWORD SIZE = CacheLayout::BLOCK_SIZE;

  // A record, or where it belongs.
  struct Place {
    bool found = false;
    CachePosition position{};  // when not found: the key-order position at which it would be inserted
    CacheRecord record{};      // when found
  };

  // `pBlock` is SIZE bytes of memory, aligned to 16, that outlive this object.
  explicit CacheBlock(BYTE* pBlock) : mBytes(pBlock) {}

  bool HasMagic() const;
  // Makes it an empty block, whatever it was.
  void Initialize() const;
  // Repairs a block that a killed process left in the middle of a change. Records that were finished stay.
  void RepairIfDamaged() const;

  Place Find(const CacheKey& key) const;
  // The payload of a place that was found under the present lock; notes the use at time `now`.
  Binary ReadPayload(const Place& place, ULONGLONG now) const;
  // Makes the record unfindable for every stamp, because its payload turned out to be damaged.
  void Forget(const Place& place) const;
  // Writes the record of that key, in place when it fits, evicting others when there is no room. False when
  // it is larger than the data area; a record that it had is gone then.
  bool Store(const CacheKey& key, ULONGLONG stamp, const Binary& payload, ULONGLONG now) const;

 private:
  // The fields of the header that never change.
  void StoreSizes() const;
  static std::optional<CacheSlot> MakeRoom(CacheDirectory& directory, CachePosition& position,
                                           ULONGLONG size);
  void WriteRecord(const CacheSlot& slot, const CacheKey& key, ULONGLONG stamp, const Binary& payload,
                   ULONGLONG now) const;

  CacheBytes mBytes;
};

}  // namespace orm
