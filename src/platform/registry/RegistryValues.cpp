// The registry's operations on values: query, set, delete.
#include <atomic>
#include <cstring>
#include <new>

#include "registry/Guard.h"
#include "registry/KeyTable.h"
#include "registry/ValueData.h"
#include "win32/registry.h"
#include "win32/registryx.h"

namespace orm::platform {
namespace {

constexpr DWORD largestValue = 256u << 20;

// Handed out where a store has no commit word; see OrmRegistryChangeWord.
constinit std::atomic<std::uint64_t> gAskAlways{0};
constinit std::atomic<bool> gIsAskAlwaysUsed{false};

std::string_view NameOrDefault(const char* name) {
  return name == nullptr ? std::string_view() : name;
}

// What the memory of a handle needs to be asked.
struct MemoryOf {
  HKEY key;
  KeySlot* slot;
};

// Delivers the value as this handle saw it last, when nothing has been committed since; false otherwise.
bool DeliverRemembered(const MemoryOf& memory, const Hive& hive, std::string_view name, DWORD* type,
                       BYTE* data, DWORD* size, DWORD* result) {
  const volatile std::uint64_t* word = hive.CommitWord();
  if (word == nullptr) return false;
  const LockedKey slot(memory.slot, memory.key);
  if (!slot || slot->memory == nullptr) return false;
  const ValueMemory::Value* value = slot->memory->values.Find(name, *word);
  if (value == nullptr) {
    slot->habit.Missed();
    return false;
  }
  slot->habit.Hit();
  *result = DeliverValue(value->type, value->Data(), type, data, size);
  return true;
}

void Remember(const MemoryOf& memory, const ValueMemory::Value& value) {
  try {
    if (const LockedKey slot(memory.slot, memory.key); slot) slot.Memory().values.Store(value);
  } catch (const std::bad_alloc&) {  // the store is asked again next time
  }
}

// Asks the store, and fills in *fresh, if any, with what may be remembered of its answer.
DWORD QueryStore(const OpenKey& open, std::string_view name, ValueMemory::Value* fresh, DWORD* type,
                 BYTE* data, DWORD* size) {
  return open.hive->Read([&](MDB_txn* txn) -> DWORD {
    ValueRecord value;
    const DWORD error = GetValue(txn, open.id, name, &value);
    if (error == ERROR_FILE_NOT_FOUND) {
      const DWORD alive = CheckAlive(txn, open.id);
      return alive == ERROR_SUCCESS ? ERROR_FILE_NOT_FOUND : alive;
    }
    if (error != ERROR_SUCCESS) return error;
    if (fresh != nullptr) *fresh = {mdb_txn_id(txn), name, value.type, value.data};
    return DeliverValue(value.type, value.data, type, data, size);
  });
}

DWORD QueryMemory(const MemoryOf& memory, const OpenKey& open, std::string_view name, DWORD* type, BYTE* data,
                  DWORD* size) {
  DWORD result = ERROR_SUCCESS;
  if (DeliverRemembered(memory, *open.hive, name, type, data, size, &result)) return result;
  ValueMemory::Value fresh;
  result = QueryStore(open, name, &fresh, type, data, size);
  if (fresh.txn != ValueMemory::noTransaction) Remember(memory, fresh);
  return result;
}

DWORD Query(HKEY key, std::string_view name, DWORD* type, BYTE* data, DWORD* size) {
  OpenKey open;
  KeySlot* slot = nullptr;
  if (const DWORD error = FindKey(key, &open, &slot); error != ERROR_SUCCESS) return error;
  if ((open.access & KEY_QUERY_VALUE) == 0) return ERROR_ACCESS_DENIED;
  const bool hasMemory = slot != nullptr && !open.hive->InBatch() && slot->habit.IsWorthAsking();
  return hasMemory ? QueryMemory({key, slot}, open, name, type, data, size)
                   : QueryStore(open, name, nullptr, type, data, size);
}

// A value that is set to what it is already stays untouched: nobody waits for a writer, and nobody who
// watches the store is told of a change that is none.
bool IsAlready(const OpenKey& open, const ValueRecord& value) {
  return open.hive->Read([&](MDB_txn* txn) -> DWORD {
    ValueRecord now;
    const DWORD error = GetValue(txn, open.id, value.name, &now);
    if (error != ERROR_SUCCESS) return error;
    return now.type == value.type && now.data == value.data ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
  }) == ERROR_SUCCESS;
}

DWORD FindForWriting(HKEY key, OpenKey* open) {
  const DWORD error = FindKey(key, open);
  if (error != ERROR_SUCCESS) return error;
  return (open->access & KEY_SET_VALUE) != 0 ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

}  // namespace

DWORD DeliverValue(DWORD type, std::string_view value, DWORD* typeOut, BYTE* data, DWORD* size) {
  if (typeOut != nullptr) *typeOut = type;
  if (size == nullptr) return ERROR_SUCCESS;
  const DWORD room = *size;
  *size = static_cast<DWORD>(value.size());
  if (data == nullptr) return ERROR_SUCCESS;
  if (room < value.size()) return ERROR_MORE_DATA;
  std::memcpy(data, value.data(), value.size());
  const bool isText = type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
  if (isText && room > value.size() && (value.empty() || value.back() != 0)) data[value.size()] = 0;
  return ERROR_SUCCESS;
}

}  // namespace orm::platform

using namespace orm::platform;

LSTATUS RegQueryValueExA(HKEY key, const char* valueName, DWORD* reserved, DWORD* type, BYTE* data,
                         DWORD* size) {
  if (reserved != nullptr || (data != nullptr && size == nullptr)) return ERROR_INVALID_PARAMETER;
  const LSTATUS result = Guarded([&] { return Query(key, NameOrDefault(valueName), type, data, size); });
  if (gIsAskAlwaysUsed.load(std::memory_order_relaxed)) gAskAlways.fetch_add(1, std::memory_order_relaxed);
  return result;
}

LSTATUS RegSetValueExA(HKEY key, const char* valueName, DWORD reserved, DWORD type, const BYTE* data,
                       DWORD size) {
  const std::string_view name = NameOrDefault(valueName);
  if (reserved != 0 || (data == nullptr && size != 0) || name.size() > maxValueName)
    return ERROR_INVALID_PARAMETER;
  if (size > largestValue) return ERROR_NO_SYSTEM_RESOURCES;
  const ValueRecord value{type, name, {reinterpret_cast<const char*>(data), size}};
  return Guarded([&]() -> DWORD {
    OpenKey open;
    if (const DWORD error = FindForWriting(key, &open); error != ERROR_SUCCESS) return error;
    if (IsAlready(open, value)) return ERROR_SUCCESS;
    return open.hive->Write(name.size() + size, [&](MDB_txn* txn) { return PutValue(txn, open.id, value); });
  });
}

LSTATUS RegDeleteValueA(HKEY key, const char* valueName) {
  return Guarded([&]() -> DWORD {
    OpenKey open;
    if (const DWORD error = FindForWriting(key, &open); error != ERROR_SUCCESS) return error;
    return open.hive->Write(0, [&](MDB_txn* txn) -> DWORD {
      const DWORD alive = CheckAlive(txn, open.id);
      return alive == ERROR_SUCCESS ? DropValue(txn, open.id, NameOrDefault(valueName)) : alive;
    });
  });
}

const volatile uint64_t* OrmRegistryChangeWord(HKEY key) {
  const volatile std::uint64_t* word = nullptr;
  Guarded([&]() -> DWORD {
    OpenKey open;
    DWORD error = FindKey(key, &open);
    if (error == ERROR_SUCCESS) error = open.hive->Open();
    if (error == ERROR_SUCCESS) word = open.hive->CommitWord();
    return error;
  });
  if (word != nullptr) return word;
  gIsAskAlwaysUsed = true;
  static_assert(sizeof gAskAlways == sizeof(std::uint64_t));
  return reinterpret_cast<const volatile std::uint64_t*>(&gAskAlways);
}
