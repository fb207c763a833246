// The handles of open keys, what each of them may do, and what it remembers of its last answers.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>

#include "registry/Hive.h"
#include "registry/Records.h"
#include "registry/WordLock.h"
#include "win32/registry.h"

namespace orm::platform {

struct OpenKey {
  Hive* hive = nullptr;
  std::uint64_t id = 0;
  REGSAM access = 0;
};

// Answers that an open key gave last. They hold as long as the store's commit word is the transaction that
// they were read in.
struct KeyMemory {
  static constexpr std::uint64_t nothing = ~std::uint64_t{0};

  struct Value {
    std::uint64_t txn = nothing;
    DWORD type = 0;
    std::uint8_t size = 0;
    std::uint8_t nameSize = 0;
    std::array<char, 46> name;
    std::array<BYTE, 64> data;
  };
  std::array<Value, 8> values;
  Position valuePosition, subKeyPosition;

  Value& For(std::string_view name) {
    const auto ends = name.empty() ? 0u
                                   : static_cast<unsigned char>(name.back()) +
                                         unsigned{3} * static_cast<unsigned char>(name.front());
    return values[(name.size() + ends) % values.size()];
  }
};

struct KeySlot {
  WordLock lock;
  std::uint32_t generation = 0;
  bool isUsed = false;
  OpenKey key;
  std::unique_ptr<KeyMemory> memory;
};

// A new handle; null when there are 65536.
HKEY AddKey(const OpenKey& key);
// ERROR_INVALID_HANDLE for what is no open key. The roots cannot be removed, which is no error.
DWORD RemoveKey(HKEY handle);
// What the handle stands for; roots included. 0 or ERROR_INVALID_HANDLE.
DWORD FindKey(HKEY handle, OpenKey* key);

// The slot of an open key, locked for the life of this object; empty for roots and for what is no open key.
class LockedKey {
 public:
  explicit LockedKey(HKEY handle);
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
