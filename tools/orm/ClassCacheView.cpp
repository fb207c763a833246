// Reads the shared block. Layout, little-endian:
//
//   0 magic words (3 x 4)   12 block size   16 reserved   20 start of the data   24 capacity   28 last slot
//   32 directory: capacity x (record offset 4, record size 4, slot of the i-th record in key order 4)
//   record: 0 last use 8, 8 file stamp 8, 16 payload offset 4, 20 payload size 4, 24 hash 4, 28 name
#include "ClassCacheView.h"

#include <ormutil/BaseString.h>

#include "ArchiveText.h"
#include "Text.h"

namespace orm::tool {

namespace {

constexpr uint32_t MAGIC[] = {0x00000041, 0x1D06A085, 0x8C46418F};
constexpr uint32_t BLOCK_SIZE = 0x10000, DATA_START = 0xC20, CAPACITY = 256;
constexpr uint32_t DIRECTORY = 32, SLOT_SIZE = 12, NAME = 28, PAYLOAD_AFTER_NAME = 33;

class Reader {
 public:
  Reader(std::string_view block, ClassCacheView& view) : mBlock(block), mView(view) {}

  void Read() {
    if (mBlock.size() != BLOCK_SIZE) {
      return Fault("the block has " + std::to_string(mBlock.size()) + " bytes instead of 65536");
    }
    ReadHeader();
    const int64_t count = static_cast<int64_t>(mView.lastSlot) + 1;
    if (count < 0 || count > CAPACITY)
      return Fault("last slot " + std::to_string(mView.lastSlot) + " is outside of -1 to 255");
    for (uint32_t i = 0; i < count; ++i) ReadSlot(i);
    CheckLayout();
    CheckOrder();
  }

 private:
  void Fault(const std::string& text) { mView.faults.push_back(text); }
  void SlotFault(std::size_t slot, const std::string& text) {
    Fault("slot " + std::to_string(slot) + ": " + text);
  }

  uint32_t Load32(uint64_t at) const {
    uint32_t number = 0;
    for (uint64_t i = 4; i-- > 0;) number = number << 8 | static_cast<unsigned char>(mBlock[at + i]);
    return number;
  }
  uint64_t Load64(uint64_t at) const { return Load32(at) | static_cast<uint64_t>(Load32(at + 4)) << 32; }

  void ReadHeader() {
    for (uint64_t i = 0; i < 3; ++i) {
      mView.magic[i] = Load32(i * 4);
      if (mView.magic[i] != MAGIC[i])
        Fault("magic word " + std::to_string(i + 1) + " is wrong: no process uses this block");
    }
    mView.blockSize = Load32(12);
    mView.reserved = Load32(16);
    mView.dataStart = Load32(20);
    mView.capacity = Load32(24);
    mView.lastSlot = static_cast<int32_t>(Load32(28));
    if (mView.blockSize != BLOCK_SIZE) Fault("the block size in the header is not 0x10000");
    if (mView.dataStart != DATA_START) Fault("the start of the data in the header is not 0xc20");
    if (mView.capacity != CAPACITY) Fault("the capacity in the header is not 256");
  }

  void ReadSlot(uint32_t i) {
    const uint32_t at = DIRECTORY + SLOT_SIZE * i;
    ClassCacheSlot slot;
    slot.offset = Load32(at);
    slot.size = Load32(at + 4);
    slot.order = Load32(at + 8);
    if (slot.offset < DATA_START || slot.offset > BLOCK_SIZE || slot.size > BLOCK_SIZE - slot.offset) {
      SlotFault(i, "its record lies outside of the data area");
    } else if (slot.size < PAYLOAD_AFTER_NAME) {
      SlotFault(i, "its record is too small to be one");
    } else {
      ReadRecord(i, slot);
      mView.usedBytes += slot.size;
    }
    mView.slots.push_back(std::move(slot));
  }

  void ReadRecord(uint32_t i, ClassCacheSlot& slot) {
    slot.lastUse = Load64(slot.offset);
    slot.stamp = Load64(slot.offset + 8);
    slot.payloadOffset = Load32(slot.offset + 16);
    slot.payloadSize = Load32(slot.offset + 20);
    slot.hash = Load32(slot.offset + 24);
    if (slot.payloadOffset < PAYLOAD_AFTER_NAME || slot.payloadOffset > slot.size ||
        slot.payloadSize > slot.size - slot.payloadOffset) {
      return SlotFault(i, "its payload lies outside of the record");
    }
    const std::string_view name =
        mBlock.substr(slot.offset + NAME, slot.payloadOffset - PAYLOAD_AFTER_NAME + 1);
    slot.name = name.substr(0, name.find('\0'));
    if (slot.name.size() + 1 != name.size())
      SlotFault(i, "its name does not end where its payload offset says");
    if (slot.hash != GetSimpleStringHash(slot.name.c_str())) SlotFault(i, "its hash is not that of its name");
    if (slot.payloadSize == 0) return;
    const ArchiveReading list = ReadArchiveAs(
        mBlock.substr(slot.offset + slot.payloadOffset, slot.payloadSize), ArchiveKind::Classes);
    if (list.isSound) {
      slot.classes = list.json["classes"];
    } else {
      SlotFault(i, "its class list is damaged at byte " + std::to_string(list.faultAt) + ": " + list.fault);
    }
  }

  void CheckLayout() {
    uint64_t end = DATA_START;
    for (std::size_t i = 0; i < mView.slots.size(); ++i) {
      if (mView.slots[i].offset < end) SlotFault(i, "its record begins before the end of the one before it");
      end = static_cast<uint64_t>(mView.slots[i].offset) + mView.slots[i].size;
    }
  }

  // The third column lists the slots in the order of their keys.
  void CheckOrder() {
    std::vector<bool> seen(mView.slots.size());
    const ClassCacheSlot* before = nullptr;
    for (std::size_t i = 0; i < mView.slots.size(); ++i) {
      const uint32_t index = mView.slots[i].order;
      if (index >= seen.size() || seen[index])
        return SlotFault(
            i, "the key order names slot " + std::to_string(index) + " twice or one that is not there");
      seen[index] = true;
      const ClassCacheSlot& slot = mView.slots[index];
      if (before && !IsBefore(*before, slot)) SlotFault(i, "the key order is not ascending");
      before = &slot;
    }
  }

  static bool IsBefore(const ClassCacheSlot& left, const ClassCacheSlot& right) {
    if (left.hash != right.hash) return left.hash < right.hash;
    return _mbscmp(reinterpret_cast<const unsigned char*>(left.name.c_str()),
                   reinterpret_cast<const unsigned char*>(right.name.c_str())) < 0;
  }

  std::string_view mBlock;
  ClassCacheView& mView;
};

}  // namespace

ClassCacheView ReadClassCache(std::string_view block) {
  ClassCacheView view;
  Reader(block, view).Read();
  return view;
}

}  // namespace orm::tool
