// Look-up, storage and eviction in the shared block.
#include "ClassCacheBlock.h"

namespace orm {

namespace {

using Layout = CacheLayout;

constexpr DWORD MAGIC[3] = {0x00000041, 0x1D06A085, 0x8C46418F};

void Evict(CacheDirectory& directory, CachePosition& pending) {
  const CachePosition oldest = directory.FindOldest();
  directory.Remove(oldest);
  if (oldest.order < pending.order) --pending.order;
}

// The first gap between records that is large enough; false when there is none.
bool FindGap(const CacheDirectory& directory, DWORD size, CachePosition& position, DWORD& offset) {
  offset = Layout::DATA_START;
  for (DWORD i = 0; i < directory.GetCount(); ++i) {
    const CacheSlot& slot = directory.GetSlot(i);
    if (slot.offset - offset >= size) {
      position.slot = i;
      return true;
    }
    offset = slot.GetEnd();
  }
  position.slot = directory.GetCount();
  return Layout::BLOCK_SIZE - offset >= size;
}

}  // namespace

bool CacheBlock::HasMagic() const {
  for (DWORD i = 0; i < 3; ++i) {
    if (mBytes.Load32(4 * i) != MAGIC[i]) return false;
  }
  return true;
}

void CacheBlock::StoreSizes() const {
  mBytes.Store32(12, Layout::BLOCK_SIZE);
  mBytes.Store32(16, 0);
  mBytes.Store32(20, Layout::DATA_START);
  mBytes.Store32(24, Layout::CAPACITY);
}

void CacheBlock::Initialize() const {
  StoreSizes();
  mBytes.Store32(Layout::LAST_SLOT, 0xFFFFFFFF);
  // Last, so that a block with its magic words has all of its header.
  for (DWORD i = 0; i < 3; ++i) mBytes.Store32(4 * i, MAGIC[i]);
}

void CacheBlock::RepairIfDamaged() const {
  StoreSizes();
  CacheDirectory directory(mBytes);
  if (!directory.Load()) directory.Repair();
}

CacheBlock::Place CacheBlock::Find(const CacheKey& key) const {
  const DWORD count = CacheDirectory::LoadCount(mBytes).value_or(0);
  DWORD low = 0, high = count;
  while (low < high) {
    const DWORD middle = low + (high - low) / 2;
    const DWORD slotNumber = mBytes.Load32(Layout::SLOTS + Layout::SLOT_SIZE * middle + Layout::SLOT_ORDER);
    if (slotNumber >= count) return {};
    const auto slot = CacheSlot::Load(mBytes, slotNumber);
    if (!slot) return {};
    const auto record = CacheRecord::Load(mBytes, slot->offset, slot->size);
    if (!record) return {};
    const int order = record->CompareKey(mBytes, key);
    if (order == 0) return {true, {slotNumber, middle}, *record};
    if (order < 0) {
      high = middle;
    } else {
      low = middle + 1;
    }
  }
  return {false, {0, low}, {}};
}

Binary CacheBlock::ReadPayload(const Place& place, ULONGLONG now) const {
  Binary payload;
  if (place.record.payloadSize != 0) {
    mBytes.CopyOut(payload.GetBuffer(place.record.payloadSize), place.record.GetPayload(),
                   place.record.payloadSize);
  }
  mBytes.Store64(place.record.offset + CacheRecord::LAST_USE, now);
  return payload;
}

void CacheBlock::Forget(const Place& place) const {
  mBytes.Store64(place.record.offset + CacheRecord::STAMP, CacheRecord::UNFINISHED);
}

bool CacheBlock::Store(const CacheKey& key, ULONGLONG stamp, const Binary& payload, ULONGLONG now) const {
  CacheDirectory directory(mBytes);
  if (!directory.Load()) directory.Repair();

  const auto nameLength = static_cast<DWORD>(key.name.GetSize());
  const ULONGLONG size = CacheRecord::GetSize(nameLength, payload.GetSize());
  const Place place = Find(key);
  if (!directory.Agrees(place.position, place.found)) return false;  // changed since it was read
  CachePosition position = place.position;
  if (place.found) {
    if (size <= directory.GetSpace(position.slot)) {
      Forget(place);
      directory.SetSize(position.slot, static_cast<DWORD>(size));
      WriteRecord(directory.GetSlot(position.slot), key, stamp, payload, now);
      return true;
    }
    directory.Remove(position);
  }
  const auto slot = MakeRoom(directory, position, size);
  if (!slot) return false;
  // Written into bytes that no record owns, and listed when it is whole.
  WriteRecord(*slot, key, stamp, payload, now);
  directory.Insert(position, *slot);
  return true;
}

// Free bytes for a record of that size; completes `position` with the slot number that they take.
std::optional<CacheSlot> CacheBlock::MakeRoom(CacheDirectory& directory, CachePosition& position,
                                              ULONGLONG size) {
  if (size > Layout::DATA_SIZE) return {};
  const auto needed = static_cast<DWORD>(size);
  if (directory.GetCount() == Layout::CAPACITY) Evict(directory, position);
  DWORD offset = 0;
  if (!FindGap(directory, needed, position, offset)) {
    while (directory.GetFree() < needed) Evict(directory, position);
    directory.Compact();
    position.slot = directory.GetCount();
    offset = position.slot == 0 ? Layout::DATA_START : directory.GetSlot(position.slot - 1).GetEnd();
  }
  return CacheSlot{offset, needed};
}

void CacheBlock::WriteRecord(const CacheSlot& slot, const CacheKey& key, ULONGLONG stamp,
                             const Binary& payload, ULONGLONG now) const {
  const auto nameLength = static_cast<DWORD>(key.name.GetSize());
  const DWORD payloadOffset = CacheRecord::PAYLOAD_AFTER_NAME + nameLength;
  mBytes.Store64(slot.offset + CacheRecord::STAMP, CacheRecord::UNFINISHED);
  CacheBytes::KeepOrder();
  mBytes.Store32(slot.offset + CacheRecord::PAYLOAD_OFFSET, payloadOffset);
  mBytes.Store32(slot.offset + CacheRecord::PAYLOAD_SIZE, payload.GetSize());
  mBytes.Store32(slot.offset + CacheRecord::HASH, key.hash);
  // The bytes between name and payload and behind the payload are not used; zeros keep old text out of them.
  const DWORD name = slot.offset + CacheRecord::NAME;
  mBytes.Zero(name + nameLength, slot.GetEnd() - name - nameLength);
  mBytes.CopyIn(name, key.name.GetBegin(), nameLength);
  if (payload.GetSize() != 0) {
    mBytes.CopyIn(slot.offset + payloadOffset, payload.GetData(), payload.GetSize());
  }
  CacheBytes::KeepOrder();
  mBytes.Store64(slot.offset + CacheRecord::STAMP, stamp);
  mBytes.Store64(slot.offset + CacheRecord::LAST_USE, now);
}

}  // namespace orm
