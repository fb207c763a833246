// The registry's operations on keys: create, open, close, delete, flush.
#include "kernel/NamedFile.h"
#include "registry/Guard.h"
#include "registry/KeyPath.h"
#include "registry/KeyTable.h"
#include "win32/registry.h"

namespace orm::platform {
namespace {

constexpr REGSAM genericRead = 0x80000000, genericWrite = 0x40000000, genericExecute = 0x20000000,
                 genericAll = 0x10000000, maximumAllowed = 0x02000000;
// Rights that change something: a value, a subkey, the key itself, its owner or its access list.
constexpr REGSAM writingRights = KEY_SET_VALUE | KEY_CREATE_SUB_KEY | KEY_CREATE_LINK | 0x000D0000;

// The rights that a handle gets, or ERROR_ACCESS_DENIED.
DWORD Grant(Hive* hive, REGSAM asked, REGSAM* granted) {
  REGSAM rights = asked & 0x00FFFFFF;
  if ((asked & (genericRead | genericExecute)) != 0) rights |= KEY_READ;
  if ((asked & genericWrite) != 0) rights |= KEY_WRITE;
  if ((asked & genericAll) != 0) rights |= KEY_ALL_ACCESS;
  if ((asked & maximumAllowed) != 0) rights |= hive->IsWritable() ? KEY_ALL_ACCESS : KEY_READ;
  if ((rights & writingRights) != 0 && !hive->IsWritable()) return ERROR_ACCESS_DENIED;
  *granted = rights;
  return ERROR_SUCCESS;
}

// Where the way begins, and its parts.
DWORD Begin(HKEY key, const char* subKey, Place* place, KeyParts* parts) {
  OpenKey open;
  if (const DWORD error = FindKey(key, &open); error != ERROR_SUCCESS) return error;
  *place = {open.hive, open.id, 0, false};
  return SplitKeyPath(subKey == nullptr ? "" : subKey, parts);
}

DWORD MakeHandle(const Place& place, REGSAM access, HKEY* result) {
  REGSAM granted = 0;
  if (const DWORD error = Grant(place.hive, access, &granted); error != ERROR_SUCCESS) return error;
  *result = AddKey({place.hive, place.id, granted});
  return *result == nullptr ? ERROR_NO_SYSTEM_RESOURCES : ERROR_SUCCESS;
}

DWORD CreateKey(HKEY key, const char* subKey, const char* className, REGSAM access, bool isOpen, HKEY* result,
                bool* made) {
  Place place;
  KeyParts parts;
  DWORD error = Begin(key, subKey, &place, &parts);
  if (error != ERROR_SUCCESS) return error;
  const Place start = place;
  error = WalkDown(parts, &place);
  // A store that this user cannot even make is denied, rather than absent.
  if (error == ERROR_FILE_NOT_FOUND && place.hive->Open() != ERROR_SUCCESS) return ERROR_ACCESS_DENIED;
  if (error == ERROR_FILE_NOT_FOUND) {
    error = MakeBelow(parts, className == nullptr ? "" : className, isOpen, start, &place, made);
  }
  return error == ERROR_SUCCESS ? MakeHandle(place, access, result) : error;
}

DWORD OpenExisting(HKEY key, const char* subKey, REGSAM access, HKEY* result) {
  Place place;
  KeyParts parts;
  DWORD error = Begin(key, subKey, &place, &parts);
  if (error == ERROR_SUCCESS) error = WalkDown(parts, &place);
  return error == ERROR_SUCCESS ? MakeHandle(place, access, result) : error;
}

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

LSTATUS RegCreateKeyExA(HKEY key, const char* subKey, DWORD reserved, char* className, DWORD options,
                        REGSAM access, const SECURITY_ATTRIBUTES* attributes, HKEY* result,
                        DWORD* disposition) {
  if (reserved != 0 || result == nullptr || subKey == nullptr || options != REG_OPTION_NON_VOLATILE) {
    return ERROR_INVALID_PARAMETER;
  }
  bool made = false;
  const LSTATUS error = Guarded(
      [&] { return CreateKey(key, subKey, className, access, IsOpenToAll(attributes), result, &made); });
  if (error == ERROR_SUCCESS && disposition != nullptr) {
    *disposition = made ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
  }
  return error;
}

LSTATUS RegOpenKeyExA(HKEY key, const char* subKey, DWORD options, REGSAM access, HKEY* result) {
  if (result == nullptr || options != 0) return ERROR_INVALID_PARAMETER;
  return Guarded([&] { return OpenExisting(key, subKey, access, result); });
}

LSTATUS RegCloseKey(HKEY key) {
  return Guarded([&] { return RemoveKey(key); });
}

LSTATUS RegDeleteKeyA(HKEY key, const char* subKey) {
  if (subKey == nullptr) return ERROR_INVALID_PARAMETER;
  return Guarded([&]() -> DWORD {
    Place place;
    KeyParts parts;
    if (const DWORD error = Begin(key, subKey, &place, &parts); error != ERROR_SUCCESS) return error;
    return parts.empty() ? DeleteSelf(place) : DeleteAt(parts, place);
  });
}

LSTATUS RegFlushKey(HKEY key) {
  return Guarded([&] {
    OpenKey open;
    const DWORD error = FindKey(key, &open);
    return error == ERROR_SUCCESS ? open.hive->Flush() : error;
  });
}
