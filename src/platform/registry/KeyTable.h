// The handles of open keys, what each of them may do, and what it remembers of its last answers.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "registry/Hive.h"
#include "registry/Records.h"
#include "registry/ValueMemory.h"
#include "registry/WordLock.h"
#include "win32/registry.h"

namespace orm::platform {

struct OpenKey {
  Hive* hive = nullptr;
  std::uint64_t id = 0;
  REGSAM access = 0;
};

// What an open key remembers of its last answers.
struct KeyMemory {
  ValueMemory values;
  Position valuePosition, subKeyPosition;
};

// A handle is looked up without the lock. Whoever read a key that the same tenant had before and after read
// that tenant's: a slot's next key is written after its last tenant is gone.
struct KeySlot {
  std::atomic<std::uint64_t> tenant{0};  // the handle's generation; 0 when there is none
  std::atomic<Hive*> hive{nullptr};
  std::atomic<std::uint64_t> id{0};
  std::atomic<REGSAM> access{0};
  MemoryHabit habit;
  WordLock lock;  // of the memory, and held while the tenant changes
  std::unique_ptr<KeyMemory> memory;
  std::uint32_t generation = 0;  // of the last tenant
};

// A new handle; null when there are 65536.
HKEY AddKey(const OpenKey& key);
// ERROR_INVALID_HANDLE for what is no open key. The roots cannot be removed, which is no error.
DWORD RemoveKey(HKEY handle);
// What the handle stands for; roots included. 0 or ERROR_INVALID_HANDLE. *slot is null for roots, else never
// freed, and may have another tenant at any time.
DWORD FindKey(HKEY handle, OpenKey* key, KeySlot** slot = nullptr);

// The slot of an open key, locked for the life of this object; empty for roots and for what is no open key.
class LockedKey {
 public:
  explicit LockedKey(HKEY handle);
  // The same where FindKey has told the slot.
  LockedKey(KeySlot* slot, HKEY handle);
  ~LockedKey() {
    if (mSlot != nullptr) mSlot->lock.unlock();
  }
  LockedKey(const LockedKey&) = delete;
  LockedKey& operator=(const LockedKey&) = delete;
  explicit operator bool() const { return mSlot != nullptr; }
  KeySlot* operator->() const { return mSlot; }
  KeyMemory& Memory() const {
    if (mSlot->memory == nullptr) mSlot->memory = std::make_unique<KeyMemory>();
    return *mSlot->memory;
  }

 private:
  KeySlot* mSlot = nullptr;
};

// Around fork: nobody holds a lock of the table in the child.
void LockKeyTable();
void UnlockKeyTable();

}  // namespace orm::platform
