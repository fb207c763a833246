// The handles of open keys. A handle value is (generation << 24) | ((index + 1) << 2): a closed handle does
// not become valid again when its slot is reused, and no handle equals one of the roots.
#include "registry/KeyTable.h"

#include <array>
#include <mutex>
#include <vector>

namespace orm::platform {
namespace {

constexpr std::size_t chunkSize = 64;
constexpr std::size_t maxChunks = 1024;

struct Table {
  std::mutex lock;  // the free list and the making of chunks
  std::atomic<std::size_t> chunkCount{0};
  std::array<std::atomic<KeySlot*>, maxChunks> chunks{};
  std::vector<std::uint32_t> free;
};

// Slots are never freed, so that a handle can be looked up without a lock at any time.
Table& TheTable() {
  static Table& table = *new Table;
  return table;
}

HKEY MakeHandle(std::uint32_t index, std::uint32_t generation) {
  return reinterpret_cast<HKEY>(std::uintptr_t{generation} << 24 | (std::uintptr_t{index} + 1) << 2);
}

KeySlot* SlotOf(HKEY handle) {
  const auto value = reinterpret_cast<std::uintptr_t>(handle);
  const std::size_t index = ((value & 0xFFFFFF) >> 2) - 1;
  Table& table = TheTable();
  if ((value & 3) != 0 || index / chunkSize >= table.chunkCount.load(std::memory_order_acquire))
    return nullptr;
  return table.chunks[index / chunkSize].load(std::memory_order_relaxed) + index % chunkSize;
}

bool IsTenant(std::uint64_t tenant, HKEY handle) {
  return tenant != 0 && tenant == reinterpret_cast<std::uintptr_t>(handle) >> 24;
}

bool AddChunk(Table* table) {
  const std::size_t count = table->chunkCount.load(std::memory_order_relaxed);
  if (count == maxChunks) return false;
  // So that closing a key never lacks memory.
  table->free.reserve((count + 1) * chunkSize);
  table->chunks[count].store(new KeySlot[chunkSize], std::memory_order_relaxed);
  table->chunkCount.store(count + 1, std::memory_order_release);
  for (std::size_t i = chunkSize; i-- > 0;)
    table->free.push_back(static_cast<std::uint32_t>(count * chunkSize + i));
  return true;
}

}  // namespace

HKEY AddKey(const OpenKey& key) {
  Table& table = TheTable();
  const std::lock_guard lock(table.lock);
  if (table.free.empty() && !AddChunk(&table)) return nullptr;
  const std::uint32_t index = table.free.back();
  table.free.pop_back();
  KeySlot& slot = table.chunks[index / chunkSize].load(std::memory_order_relaxed)[index % chunkSize];
  const std::lock_guard slotLock(slot.lock);
  slot.hive.store(key.hive, std::memory_order_release);
  slot.id.store(key.id, std::memory_order_release);
  slot.access.store(key.access, std::memory_order_release);
  slot.habit.Forget();
  if (++slot.generation == 0) ++slot.generation;
  slot.tenant.store(slot.generation, std::memory_order_release);
  return MakeHandle(index, slot.generation);
}

DWORD RemoveKey(HKEY handle) {
  if (handle == HKEY_CURRENT_USER || handle == HKEY_LOCAL_MACHINE) return ERROR_SUCCESS;
  KeySlot* slot = SlotOf(handle);
  if (slot == nullptr) return ERROR_INVALID_HANDLE;
  {
    const std::lock_guard lock(slot->lock);
    if (!IsTenant(slot->tenant.load(std::memory_order_relaxed), handle)) return ERROR_INVALID_HANDLE;
    slot->tenant.store(0, std::memory_order_relaxed);
    slot->memory.reset();
  }
  Table& table = TheTable();
  const std::lock_guard lock(table.lock);
  table.free.push_back(
      static_cast<std::uint32_t>((reinterpret_cast<std::uintptr_t>(handle) & 0xFFFFFF) >> 2) - 1);
  return ERROR_SUCCESS;
}

LockedKey::LockedKey(HKEY handle) : LockedKey(SlotOf(handle), handle) {}

LockedKey::LockedKey(KeySlot* slot, HKEY handle) : mSlot(slot) {
  if (mSlot == nullptr) return;
  mSlot->lock.lock();
  if (IsTenant(mSlot->tenant.load(std::memory_order_relaxed), handle)) return;
  mSlot->lock.unlock();
  mSlot = nullptr;
}

DWORD FindKey(HKEY handle, OpenKey* key, KeySlot** slot) {
  if (slot != nullptr) *slot = nullptr;
  if (handle == HKEY_CURRENT_USER || handle == HKEY_LOCAL_MACHINE) {
    const bool isUser = handle == HKEY_CURRENT_USER;
    *key = {Hive::Get(isUser ? Hive::Kind::User : Hive::Kind::Machine), rootKey, KEY_ALL_ACCESS};
    return ERROR_SUCCESS;
  }
  KeySlot* const found = SlotOf(handle);
  if (found == nullptr) return ERROR_INVALID_HANDLE;
  const std::uint64_t tenant = found->tenant.load(std::memory_order_acquire);
  *key = {found->hive.load(std::memory_order_acquire), found->id.load(std::memory_order_acquire),
          found->access.load(std::memory_order_acquire)};
  if (!IsTenant(tenant, handle) || found->tenant.load(std::memory_order_relaxed) != tenant)
    return ERROR_INVALID_HANDLE;
  if (slot != nullptr) *slot = found;
  return ERROR_SUCCESS;
}

void LockKeyTable() {
  Table& table = TheTable();
  table.lock.lock();
  for (std::size_t i = 0; i < table.chunkCount * chunkSize; ++i) {
    table.chunks[i / chunkSize].load(std::memory_order_relaxed)[i % chunkSize].lock.lock();
  }
}

void UnlockKeyTable() {
  Table& table = TheTable();
  for (std::size_t i = 0; i < table.chunkCount * chunkSize; ++i) {
    table.chunks[i / chunkSize].load(std::memory_order_relaxed)[i % chunkSize].lock.unlock();
  }
  table.lock.unlock();
}

}  // namespace orm::platform
