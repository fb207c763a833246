// Checking, changing and repairing the directory of the shared block.
#include "ClassCacheDirectory.h"

#include <algorithm>
#include <bitset>

namespace orm {

namespace {

using Layout = CacheLayout;

DWORD SlotAt(DWORD i) {
  return Layout::SLOTS + Layout::SLOT_SIZE * i;
}

// A record whose own fields agree with each other.
bool IsSound(const CacheBytes& bytes, const CacheRecord& record) {
  const std::string name = record.GetName(bytes);
  return name.find('\0') == std::string::npos && GetSimpleStringHash(name.c_str()) == record.hash;
}

}  // namespace

std::optional<CacheSlot> CacheSlot::Load(const CacheBytes& bytes, DWORD i) {
  const CacheSlot slot{bytes.Load32(SlotAt(i) + Layout::SLOT_RECORD),
                       bytes.Load32(SlotAt(i) + Layout::SLOT_RECORD_SIZE)};
  const bool inside = slot.offset >= Layout::DATA_START && slot.offset < Layout::BLOCK_SIZE &&
                      slot.size <= Layout::BLOCK_SIZE - slot.offset;
  if (!inside || slot.offset % 16 != 0 || slot.size % 16 != 0) return {};
  return slot;
}

std::optional<DWORD> CacheDirectory::LoadCount(const CacheBytes& bytes) {
  const DWORD count = bytes.Load32(Layout::LAST_SLOT) + 1;  // -1 is stored for an empty block
  return count <= Layout::CAPACITY ? std::optional(count) : std::nullopt;
}

bool CacheDirectory::Load() {
  return LoadSlots() && HasSoundRecords() && HasSoundOrder();
}

bool CacheDirectory::LoadSlots() {
  const auto count = LoadCount(mBytes);
  if (!count) return false;
  mCount = *count;
  for (DWORD i = 0; i < mCount; ++i) {
    const auto slot = CacheSlot::Load(mBytes, i);
    if (!slot) return false;
    mSlots[i] = *slot;
    mOrder[i] = mBytes.Load32(SlotAt(i) + Layout::SLOT_ORDER);
  }
  return true;
}

bool CacheDirectory::HasSoundRecords() const {
  DWORD end = Layout::DATA_START;
  for (DWORD i = 0; i < mCount; ++i) {
    const CacheSlot& slot = mSlots[i];
    if (slot.offset < end) return false;
    end = slot.GetEnd();
    const auto record = CacheRecord::Load(mBytes, slot.offset, slot.size);
    if (!record || !IsSound(mBytes, *record)) return false;
  }
  return true;
}

bool CacheDirectory::HasSoundOrder() const {
  std::bitset<Layout::CAPACITY> seen;
  for (DWORD i = 0; i < mCount; ++i) {
    if (mOrder[i] >= mCount || seen[mOrder[i]]) return false;
    seen.set(mOrder[i]);
    if (i > 0 && !IsBefore(mSlots[mOrder[i - 1]], mSlots[mOrder[i]])) return false;
  }
  return true;
}

// By key. Records that are not what they were when they were checked sort anywhere.
bool CacheDirectory::IsBefore(const CacheSlot& left, const CacheSlot& right) const {
  const auto first = CacheRecord::Load(mBytes, left.offset, left.size);
  const auto second = CacheRecord::Load(mBytes, right.offset, right.size);
  if (!first || !second) return false;
  if (first->hash != second->hash) return first->hash < second->hash;
  const std::string firstName = first->GetName(mBytes), secondName = second->GetName(mBytes);
  return _mbscmp(reinterpret_cast<const unsigned char*>(firstName.c_str()),
                 reinterpret_cast<const unsigned char*>(secondName.c_str())) < 0;
}

void CacheDirectory::Repair() {
  // A torn change may have left a record in two slots, and a slot with one half of an old entry; a record
  // tells its own size.
  const DWORD stated = LoadCount(mBytes).value_or(Layout::CAPACITY);
  std::vector<DWORD> offsets;
  for (DWORD i = 0; i < stated; ++i) offsets.push_back(mBytes.Load32(SlotAt(i) + Layout::SLOT_RECORD));
  std::sort(offsets.begin(), offsets.end());

  struct Kept {
    CacheSlot slot;
    DWORD hash;
    std::string name;
  };
  std::vector<Kept> kept;
  DWORD end = Layout::DATA_START;
  for (const DWORD offset : offsets) {
    if (offset < end || offset >= Layout::BLOCK_SIZE || offset % 16 != 0) continue;
    const auto record = CacheRecord::Load(mBytes, offset, Layout::BLOCK_SIZE - offset);
    if (!record || !record->IsFinished() || !IsSound(mBytes, *record)) continue;
    const auto size = static_cast<DWORD>(CacheRecord::GetSize(record->nameLength, record->payloadSize));
    if (size > Layout::BLOCK_SIZE - offset) continue;
    std::string name = record->GetName(mBytes);
    const auto sameName = [&name](const Kept& other) { return other.name == name; };
    if (std::any_of(kept.begin(), kept.end(), sameName)) continue;
    kept.push_back({{offset, size}, record->hash, std::move(name)});
    end = offset + size;
  }

  mCount = static_cast<DWORD>(kept.size());
  for (DWORD i = 0; i < mCount; ++i) {
    mSlots[i] = kept[i].slot;
    mOrder[i] = i;
  }
  std::sort(mOrder.begin(), mOrder.begin() + mCount, [&kept](DWORD left, DWORD right) {
    if (kept[left].hash != kept[right].hash) return kept[left].hash < kept[right].hash;
    return _mbscmp(reinterpret_cast<const unsigned char*>(kept[left].name.c_str()),
                   reinterpret_cast<const unsigned char*>(kept[right].name.c_str())) < 0;
  });
  for (DWORD i = 0; i < mCount; ++i) StoreSlot(i);
  StoreOrder();
  StoreCount();
}

bool CacheDirectory::Agrees(const CachePosition& position, bool found) const {
  return found ? position.order < mCount && mOrder[position.order] == position.slot
               : position.order <= mCount;
}

DWORD CacheDirectory::GetSpace(DWORD slot) const {
  return (slot + 1 < mCount ? mSlots[slot + 1].offset : Layout::BLOCK_SIZE) - mSlots[slot].offset;
}

void CacheDirectory::SetSize(DWORD slot, DWORD size) {
  mSlots[slot].size = size;
  StoreSlot(slot);
}

void CacheDirectory::Insert(const CachePosition& position, const CacheSlot& slot) {
  for (DWORD i = 0; i < mCount; ++i) {
    if (mOrder[i] >= position.slot) ++mOrder[i];
  }
  const auto order = mOrder.begin() + position.order;
  std::copy_backward(order, mOrder.begin() + mCount, mOrder.begin() + mCount + 1);
  *order = position.slot;
  const auto place = mSlots.begin() + position.slot;
  std::copy_backward(place, mSlots.begin() + mCount, mSlots.begin() + mCount + 1);
  *place = slot;
  ++mCount;
  // The count first, then downwards: each slot is copied up before it is overwritten.
  StoreCount();
  for (DWORD i = mCount; i-- > position.slot;) StoreSlot(i);
  StoreOrder();
}

void CacheDirectory::Remove(const CachePosition& position) {
  for (DWORD i = 0; i < mCount; ++i) {
    if (mOrder[i] > position.slot) --mOrder[i];
  }
  const auto order = mOrder.begin() + position.order;
  std::copy(order + 1, mOrder.begin() + mCount, order);
  const auto place = mSlots.begin() + position.slot;
  std::copy(place + 1, mSlots.begin() + mCount, place);
  --mCount;
  for (DWORD i = position.slot; i < mCount; ++i) StoreSlot(i);
  StoreOrder();
  StoreCount();
}

CachePosition CacheDirectory::FindOldest() const {
  CachePosition oldest{mOrder[0], 0};
  ULONGLONG oldestUse = ~ULONGLONG{0};
  for (DWORD i = 0; i < mCount; ++i) {
    const ULONGLONG use = mBytes.Load64(mSlots[mOrder[i]].offset + CacheRecord::LAST_USE);
    if (use < oldestUse) {
      oldest = {mOrder[i], i};
      oldestUse = use;
    }
  }
  return oldest;
}

DWORD CacheDirectory::GetFree() const {
  DWORD result = Layout::DATA_SIZE;
  for (DWORD i = 0; i < mCount; ++i) result -= mSlots[i].size;
  return result;
}

void CacheDirectory::Compact() {
  DWORD end = Layout::DATA_START;
  for (DWORD i = 0; i < mCount; ++i) {
    CacheSlot& slot = mSlots[i];
    if (slot.offset != end) {
      // A move that is cut short leaves a record that is in neither place; its stamp says so.
      const ULONGLONG stamp = mBytes.Load64(slot.offset + CacheRecord::STAMP);
      mBytes.Store64(slot.offset + CacheRecord::STAMP, CacheRecord::UNFINISHED);
      CacheBytes::KeepOrder();
      mBytes.Move(end, slot.offset, slot.size);
      CacheBytes::KeepOrder();
      slot.offset = end;
      StoreSlot(i);
      mBytes.Store64(slot.offset + CacheRecord::STAMP, stamp);
    }
    end = slot.GetEnd();
  }
}

void CacheDirectory::StoreCount() const {
  mBytes.Store32(Layout::LAST_SLOT, mCount - 1);
}

void CacheDirectory::StoreSlot(DWORD i) const {
  mBytes.Store32(SlotAt(i) + Layout::SLOT_RECORD, mSlots[i].offset);
  mBytes.Store32(SlotAt(i) + Layout::SLOT_RECORD_SIZE, mSlots[i].size);
}

void CacheDirectory::StoreOrder() const {
  for (DWORD i = 0; i < mCount; ++i) mBytes.Store32(SlotAt(i) + Layout::SLOT_ORDER, mOrder[i]);
}

}  // namespace orm
