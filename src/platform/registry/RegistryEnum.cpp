// The registry's questions about what a key holds: enumerations and counts.
#include <algorithm>
#include <cstring>
#include <functional>
#include <new>

#include "registry/Guard.h"
#include "registry/KeyTable.h"
#include "registry/Links.h"
#include "registry/ValueData.h"
#include "win32/registry.h"

namespace orm::platform {
namespace {

FILETIME FileTimeOf(std::uint64_t ticks) {
  return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

DWORD FindFor(HKEY key, REGSAM right, OpenKey* open) {
  const DWORD error = FindKey(key, open);
  if (error != ERROR_SUCCESS) return error;
  return (open->access & right) != 0 ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

// Copies a name into a buffer of *length bytes; *length becomes its length.
DWORD DeliverName(std::string_view name, char* buffer, DWORD* length) {
  if (name.size() >= *length) return ERROR_MORE_DATA;
  std::memcpy(buffer, name.data(), name.size());
  buffer[name.size()] = 0;
  *length = static_cast<DWORD>(name.size());
  return ERROR_SUCCESS;
}

// A class name is asked for with a buffer, or with a length alone.
DWORD DeliverClass(std::string_view name, char* buffer, DWORD* length) {
  if (length == nullptr) return ERROR_SUCCESS;
  if (buffer != nullptr) return DeliverName(name, buffer, length);
  *length = static_cast<DWORD>(name.size());
  return ERROR_SUCCESS;
}

// Where this handle was last in its enumeration of one kind; nowhere when it lacks the memory for that.
Position LastPosition(HKEY key, RecordKind kind) {
  const LockedKey slot(key);
  if (!slot || slot->memory == nullptr) return {};
  return kind == RecordKind::Value ? slot->memory->valuePosition : slot->memory->subKeyPosition;
}

void KeepPosition(HKEY key, RecordKind kind, const Position& position) {
  try {
    const LockedKey slot(key);
    if (!slot) return;
    (kind == RecordKind::Value ? slot.Memory().valuePosition : slot.Memory().subKeyPosition) = position;
  } catch (const std::bad_alloc&) {  // the next record is looked for from the beginning
  }
}

// Calls `deliver(record)` on the record with an index, going on from where this handle was last.
template <class Deliver>
DWORD AtIndex(HKEY key, const OpenKey& open, RecordKind kind, DWORD index, Deliver&& deliver) {
  LinkFilter links;
  std::function<bool(const MDB_val&)> counts;
  if (kind == RecordKind::SubKey) counts = [&links](const MDB_val& record) { return links.Counts(record); };
  const Position start = open.hive->InBatch() ? Position{} : LastPosition(key, kind);
  Position position;
  DWORD result = ERROR_SUCCESS;
  do {
    result = open.hive->Read([&](MDB_txn* txn) -> DWORD {
      position = start;
      MDB_val record{};
      const DWORD error = GetByIndex(txn, PrefixOf(kind, open.id), index, counts, &position, &record);
      if (links.HasUnknown()) return ERROR_SUCCESS;
      if (error == ERROR_SUCCESS) return deliver(record);
      const DWORD alive = CheckAlive(txn, open.id);
      return alive == ERROR_SUCCESS ? error : alive;
    });
  } while (links.Resolve() && result == ERROR_SUCCESS);
  // Within a transaction of its own the content changes without a new number.
  if (!open.hive->InBatch()) KeepPosition(key, kind, position);
  return result;
}

struct Counts {
  DWORD subKeys = 0, longestSubKey = 0, values = 0, longestValueName = 0, largestValue = 0;
  FILETIME lastWrite{};
  std::string className;
};

DWORD Count(MDB_txn* txn, std::uint64_t key, LinkFilter* links, Counts* counts) {
  InfoRecord info;
  DWORD error = CheckAlive(txn, key);
  if (error == ERROR_SUCCESS) error = GetInfo(txn, key, &info);
  if (error != ERROR_SUCCESS) return error;
  counts->lastWrite = FileTimeOf(info.lastWrite);
  counts->className = info.className;
  bool isSound = true;
  error = ForEach(txn, PrefixOf(RecordKind::SubKey, key), [&](const MDB_val&, const MDB_val& record) {
    SubKeyRecord subKey;
    isSound = Parse(record, &subKey);
    if (!links->Counts(record)) return true;
    ++counts->subKeys;
    counts->longestSubKey = std::max(counts->longestSubKey, static_cast<DWORD>(subKey.name.size()));
    return isSound;
  });
  if (error != ERROR_SUCCESS || !isSound) return isSound ? error : ERROR_BADDB;
  error = ForEach(txn, PrefixOf(RecordKind::Value, key), [&](const MDB_val&, const MDB_val& record) {
    ValueRecord value;
    isSound = Parse(record, &value);
    ++counts->values;
    counts->longestValueName = std::max(counts->longestValueName, static_cast<DWORD>(value.name.size()));
    counts->largestValue = std::max(counts->largestValue, static_cast<DWORD>(value.data.size()));
    return isSound;
  });
  return isSound ? error : ERROR_BADDB;
}

void Set(DWORD* where, DWORD value) {
  if (where != nullptr) *where = value;
}

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

LSTATUS RegEnumValueA(HKEY key, DWORD index, char* valueName, DWORD* nameLength, DWORD* reserved, DWORD* type,
                      BYTE* data, DWORD* size) {
  if (valueName == nullptr || nameLength == nullptr || reserved != nullptr ||
      (data != nullptr && size == nullptr)) {
    return ERROR_INVALID_PARAMETER;
  }
  return Guarded([&]() -> DWORD {
    OpenKey open;
    if (const DWORD error = FindFor(key, KEY_QUERY_VALUE, &open); error != ERROR_SUCCESS) return error;
    return AtIndex(key, open, RecordKind::Value, index, [&](const MDB_val& record) -> DWORD {
      ValueRecord value;
      if (!Parse(record, &value)) return ERROR_BADDB;
      const DWORD named = DeliverName(value.name, valueName, nameLength);
      const DWORD delivered =
          DeliverValue(value.type, value.data, type, named == ERROR_SUCCESS ? data : nullptr, size);
      return named == ERROR_SUCCESS ? delivered : named;
    });
  });
}

LSTATUS RegEnumKeyExA(HKEY key, DWORD index, char* name, DWORD* nameLength, DWORD* reserved, char* className,
                      DWORD* classLength, FILETIME* lastWrite) {
  if (name == nullptr || nameLength == nullptr || reserved != nullptr ||
      (className != nullptr && classLength == nullptr)) {
    return ERROR_INVALID_PARAMETER;
  }
  return Guarded([&]() -> DWORD {
    OpenKey open;
    if (const DWORD error = FindFor(key, KEY_ENUMERATE_SUB_KEYS, &open); error != ERROR_SUCCESS) return error;
    SubKeyRecord subKey;
    const DWORD error = AtIndex(key, open, RecordKind::SubKey, index, [&](const MDB_val& record) -> DWORD {
      return Parse(record, &subKey) ? DeliverName(subKey.name, name, nameLength) : ERROR_BADDB;
    });
    if (error != ERROR_SUCCESS || (classLength == nullptr && lastWrite == nullptr)) return error;
    Hive* hive = subKey.isLink ? Hive::Get(Hive::Kind::Open) : open.hive;
    return hive->Read([&](MDB_txn* txn) -> DWORD {
      InfoRecord info;  // stays empty for a subkey that was deleted in between
      const DWORD found = GetInfo(txn, subKey.id, &info);
      if (found != ERROR_SUCCESS && found != ERROR_FILE_NOT_FOUND) return found;
      if (lastWrite != nullptr) *lastWrite = FileTimeOf(info.lastWrite);
      return DeliverClass(info.className, className, classLength);
    });
  });
}

LSTATUS RegQueryInfoKeyA(HKEY key, char* className, DWORD* classLength, DWORD* reserved, DWORD* subKeys,
                         DWORD* maxSubKeyLength, DWORD* maxClassLength, DWORD* values,
                         DWORD* maxValueNameLength, DWORD* maxValueSize, DWORD* securityDescriptorSize,
                         FILETIME* lastWrite) {
  if (reserved != nullptr || (className != nullptr && classLength == nullptr)) return ERROR_INVALID_PARAMETER;
  return Guarded([&]() -> DWORD {
    OpenKey open;
    DWORD error = FindFor(key, KEY_QUERY_VALUE, &open);
    if (error != ERROR_SUCCESS) return error;
    Counts counts;
    LinkFilter links;
    do {
      counts = {};
      error = open.hive->Read([&](MDB_txn* txn) { return Count(txn, open.id, &links, &counts); });
    } while (links.Resolve() && error == ERROR_SUCCESS);
    if (error != ERROR_SUCCESS) return error;
    Set(subKeys, counts.subKeys);
    Set(maxSubKeyLength, counts.longestSubKey);
    Set(maxClassLength, 0);  // classes of subkeys are not collected; nobody asks
    Set(values, counts.values);
    Set(maxValueNameLength, counts.longestValueName);
    Set(maxValueSize, counts.largestValue);
    Set(securityDescriptorSize, 0);
    if (lastWrite != nullptr) *lastWrite = counts.lastWrite;
    return DeliverClass(counts.className, className, classLength);
  });
}
