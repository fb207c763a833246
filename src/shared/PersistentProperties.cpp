// PersistentProperties: the bag's operations on its registry key.
#include <ormutil/Error.h>
#include <ormutil/PersistentProperties.h>

#include "Areas.h"
#include "PropertyErrors.h"
#include "RegistryKey.h"

namespace orm {

namespace {

constexpr const char* kSource = "src/shared/PersistentProperties";

constexpr const char* kGetFailed = "Failed to get the value of property.";
constexpr const char* kSetFailed = "Failed to set the value of property.";
constexpr const char* kOpenKeyFailed = "Failed to open registry key '%1'. ";
constexpr const char* kQueryValueFailed = "Failed to query registry value '%1'. ";
constexpr const char* kSetValueFailed = "Failed to set registry value '%1'. ";
constexpr const char* kDeleteValueFailed = "Failed to delete registry value '%1'. ";
constexpr const char* kQueryKeyFailed = "Failed to query information about registry key '%1'. ";
constexpr const char* kEnumValuesFailed = "Failed to enumerate values of registry key '%1'. ";
constexpr const char* kEnumKeysFailed = "Failed to enumerate subkeys of registry key '%1'. ";
constexpr const char* kDeleteKeyFailed = "Failed to delete registry key '%1'. ";

void TraceError(const char* what, const Error& error) {
  TraceWrite(areaPersistentProperties, TRACE_WARNING, false, kSource, __LINE__, "%s: %s(%08x)", what,
             error.GetMessage(0), error.GetCode(0));
}

void AddOperationLayer(Error& error, const char* trace, const char* message) {
  const DWORD cause = error.GetCode(0);
  const DWORD code = cause == ERROR_FILE_NOT_FOUND  ? kPropertyMissing
                     : cause == ERROR_ACCESS_DENIED ? kPropertyAccessDenied
                                                    : ERROR_LAYER_BELOW;
  error.AddLayer(code, message);
  TraceError(trace, error);
}

// Runs `body`; an error that it throws is given the operation's layer and traced on its way out.
template <class Body>
auto Operation(const char* trace, const char* message, Body body) {
  try {
    return body();
  } catch (Error& error) {
    AddOperationLayer(error, trace, message);
    throw;
  }
}

const char* TypeName(DWORD registryType) {
  switch (registryType) {
    case REG_DWORD:
      return "REG_DWORD";
    case REG_SZ:
      return "REG_SZ";
    default:
      return "REG_BINARY";
  }
}

Properties::PropertyType PropertyTypeOf(DWORD registryType) {
  switch (registryType) {
    case REG_DWORD:
      return Properties::TYPE_NUMBER;
    case REG_SZ:
      return Properties::TYPE_STRING;
    case REG_BINARY:
      return Properties::TYPE_BINARY;
    default:
      return Properties::TYPE_NONE;
  }
}

}  // namespace

PersistentProperties::~PersistentProperties() {
  CloseKey();
}

// ---- The key

HKEY PersistentProperties::GetRoot() const {
  return mMachine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
}

void PersistentProperties::CloseKey() const {
  if (mhKey) RegCloseKey(mhKey);
  mhKey = nullptr;
}

HKEY PersistentProperties::GetKey(Access access, OnFailure onFailure) const {
  const bool write = access == Access::Write;
  if (write && !mKeyWritable) CloseKey();
  if (mhKey) return mhKey;

  HKEY key = nullptr;
  const LSTATUS status = write ? RegCreateKeyExA(GetRoot(), mPath.GetBegin(), 0, nullptr, 0,
                                                 KEY_READ | KEY_WRITE, nullptr, &key, nullptr)
                               : RegOpenKeyExA(GetRoot(), mPath.GetBegin(), 0, KEY_READ, &key);
  const DWORD code = static_cast<DWORD>(status);
  if (code != ERROR_SUCCESS) {
    if (onFailure == OnFailure::Null) return nullptr;
    if (onFailure == OnFailure::NullWhenMissing && code == ERROR_FILE_NOT_FOUND) return nullptr;
    ThrowRegistryError(code, kOpenKeyFailed, String());
  }
  mKeyWritable = write;
  return mhKey = key;
}

void PersistentProperties::Open(const BaseString<MbcsTraits>& name, bool perUser) {
  const String path = "SOFTWARE\\" + name;
  if (path.Compare(mPath.GetBegin()) == 0 && mMachine == !perUser) return;
  CloseKey();
  mMachine = !perUser;
  mPath = path;
}

void PersistentProperties::SetLocation(const BaseString<MbcsTraits>& machineLocation,
                                       const BaseString<MbcsTraits>& userLocation) {
  if (machineLocation.CompareNoCase("cfg://localhost") == 0 &&
      userLocation.CompareNoCase("cfg://localuser") == 0) {
    return;
  }
  const Error error(kPropertyLocationNotSupported,
                    "Specified persistent property location is not supported.");
  TraceError("^ PersistentProperties::SetLocation()", error);
  throw error;
}

// ---- Errors

BaseString<MbcsTraits> PersistentProperties::GetDisplayName(const BaseString<MbcsTraits>& valueName) const {
  String result = mMachine ? "HKEY_LOCAL_MACHINE\\" : "HKEY_CURRENT_USER\\";
  result += mPath;
  if (!valueName.IsEmpty()) {
    result += "\\";
    result += valueName;
  }
  return result;
}

// `format` ends with a blank, so that a sentence can follow.
void PersistentProperties::ThrowRegistryError(DWORD code, const char* format,
                                              const BaseString<MbcsTraits>& valueName) const {
  const String message = String::FormatInserts(format, GetDisplayName(valueName));
  const Error error = code == ERROR_FILE_NOT_FOUND
                          ? Error(code, message + "The registry value was not found.")
                          : MakeSystemError(code, message, true);
  TraceError("^ PersistentProperties; RegistryError", error);
  throw error;
}

void PersistentProperties::ThrowWrongType(const char* required,
                                          const BaseString<MbcsTraits>& valueName) const {
  const Error error(kPropertyWrongType,
                    String::FormatInserts("Type of registry value '%1' is unexpected, '%2' type is required.",
                                          GetDisplayName(valueName), required));
  TraceError("^ PersistentProperties; wrong type error", error);
  throw error;
}

// ---- Getters

template <class Value, class Query>
Value PersistentProperties::Get(const BaseString<MbcsTraits>& name, DWORD type, const char* trace,
                                Query query) const {
  return Operation(trace, kGetFailed, [&] {
    Value value{};
    const QueryResult result = query(GetKey(Access::Read, OnFailure::Throw), name, value);
    if (result.code != ERROR_SUCCESS) ThrowRegistryError(result.code, kQueryValueFailed, name);
    if (result.type != type) ThrowWrongType(TypeName(type), name);
    return value;
  });
}

template <class Value, class Query>
Value PersistentProperties::GetOr(const BaseString<MbcsTraits>& name, DWORD type, const Value& defaultValue,
                                  Query query) const {
  const HKEY key = GetKey(Access::Read, OnFailure::Null);
  Value value{};
  return key && query(key, name, value).Has(type) ? value : defaultValue;
}

BaseString<MbcsTraits> PersistentProperties::GetString(const BaseString<MbcsTraits>& name,
                                                       const BaseString<MbcsTraits>& defaultValue) const {
  return GetOr(name, REG_SZ, defaultValue, QueryString);
}

BaseString<MbcsTraits> PersistentProperties::GetString(const BaseString<MbcsTraits>& name) const {
  return Get<String>(name, REG_SZ, "^ PersistentProperties::GetString()", QueryString);
}

DWORD PersistentProperties::GetNumber(const BaseString<MbcsTraits>& name, DWORD defaultValue) const {
  return GetOr(name, REG_DWORD, defaultValue, QueryNumber);
}

DWORD PersistentProperties::GetNumber(const BaseString<MbcsTraits>& name) const {
  return Get<DWORD>(name, REG_DWORD, "^ PersistentProperties::GetNumber()", QueryNumber);
}

Binary PersistentProperties::GetBinary(const BaseString<MbcsTraits>& name, const Binary& defaultValue) const {
  return GetOr(name, REG_BINARY, defaultValue, QueryBinary);
}

Binary PersistentProperties::GetBinary(const BaseString<MbcsTraits>& name) const {
  return Get<Binary>(name, REG_BINARY, "^ PersistentProperties::GetBinary()", QueryBinary);
}

Properties::PropertyType PersistentProperties::GetType(const BaseString<MbcsTraits>& name) const {
  return Operation("^ PersistentProperties::GetType()", "Failed to query the type of property.", [&] {
    const HKEY key = GetKey(Access::Read, OnFailure::NullWhenMissing);
    if (!key) return TYPE_NONE;
    const QueryResult result = QueryType(key, name);
    if (result.code == ERROR_FILE_NOT_FOUND) return TYPE_NONE;
    if (result.code != ERROR_SUCCESS) ThrowRegistryError(result.code, kQueryValueFailed, name);
    return PropertyTypeOf(result.type);
  });
}

// ---- Setters

void PersistentProperties::SetValue(const BaseString<MbcsTraits>& name, DWORD type, const void* data,
                                    DWORD size, const char* trace) {
  Operation(trace, kSetFailed, [&] {
    const HKEY key = GetKey(Access::Write, OnFailure::Throw);
    const LSTATUS status =
        RegSetValueExA(key, name.GetBegin(), 0, type, static_cast<const BYTE*>(data), size);
    if (status != LSTATUS{ERROR_SUCCESS}) {
      ThrowRegistryError(static_cast<DWORD>(status), kSetValueFailed, name);
    }
  });
}

void PersistentProperties::SetString(const BaseString<MbcsTraits>& name,
                                     const BaseString<MbcsTraits>& value) {
  SetValue(name, REG_SZ, value.GetBegin(), static_cast<DWORD>(value.GetSize() + 1),
           "^ PersistentProperties::SetString()");
}

void PersistentProperties::SetNumber(const BaseString<MbcsTraits>& name, DWORD value) {
  SetValue(name, REG_DWORD, &value, sizeof value, "^ PersistentProperties::SetNumber()");
}

void PersistentProperties::SetBinary(const BaseString<MbcsTraits>& name, const Binary& value) {
  SetValue(name, REG_BINARY, value.GetData(), value.GetSize(), "^ PersistentProperties::SetBinary()");
}

void PersistentProperties::Delete(const BaseString<MbcsTraits>& name) {
  Operation("^ PersistentProperties::Delete()", "Failed to delete property.", [&] {
    if (!GetKey(Access::Read, OnFailure::NullWhenMissing)) return;
    const HKEY key = GetKey(Access::Write, OnFailure::Throw);
    const DWORD code = static_cast<DWORD>(RegDeleteValueA(key, name.GetBegin()));
    if (code != ERROR_SUCCESS && code != ERROR_FILE_NOT_FOUND) {
      ThrowRegistryError(code, kDeleteValueFailed, name);
    }
  });
}

void PersistentProperties::Clear() {
  Operation("^ PersistentProperties::Clear()", "Failed to clear properties.", [&] {
    const HKEY key = GetKey(Access::Read, OnFailure::NullWhenMissing);
    if (!key) return;
    KeyInfo info;
    if (const DWORD code = QueryKeyInfo(key, info)) ThrowRegistryError(code, kQueryKeyFailed, String());
    NameBuffer name(info.longestValueName);
    DWORD code;
    // The first deletion reopens the key for writing.
    while ((code = name.EnumValue(GetKey(Access::Read, OnFailure::Throw), 0, nullptr)) == ERROR_SUCCESS) {
      code = static_cast<DWORD>(RegDeleteValueA(GetKey(Access::Write, OnFailure::Throw), name.GetText()));
      if (code != ERROR_SUCCESS) ThrowRegistryError(code, kDeleteValueFailed, String());
    }
    if (code != ERROR_NO_MORE_ITEMS) ThrowRegistryError(code, kEnumValuesFailed, String());
  });
}

// ---- The bag as a whole

std::vector<BaseString<MbcsTraits>> PersistentProperties::EnumProperties() const {
  return Operation("^ PersistentProperties::EnumProperties()", "Failed to enumerate properties.", [&] {
    std::vector<String> names;
    const HKEY key = GetKey(Access::Read, OnFailure::NullWhenMissing);
    if (!key) return names;
    KeyInfo info;
    if (const DWORD code = QueryKeyInfo(key, info)) ThrowRegistryError(code, kQueryKeyFailed, String());
    names.reserve(info.values);
    NameBuffer name(info.longestValueName);
    DWORD type = REG_NONE;
    DWORD code;
    for (DWORD index = 0; (code = name.EnumValue(key, index, &type)) == ERROR_SUCCESS; ++index) {
      if (PropertyTypeOf(type) != TYPE_NONE) names.emplace_back(name.GetText());
    }
    if (code != ERROR_NO_MORE_ITEMS) ThrowRegistryError(code, kEnumValuesFailed, String());
    return names;
  });
}

bool PersistentProperties::IsBagNew() const {
  return !GetKey(Access::Read, OnFailure::Null);
}

std::vector<BaseString<MbcsTraits>> PersistentProperties::EnumBags() const {
  return Operation("^ PersistentProperties::EnumBags()", "Failed to enumerate properties bags.", [&] {
    std::vector<String> names;
    const HKEY key = GetKey(Access::Read, OnFailure::NullWhenMissing);
    if (!key) return names;
    KeyInfo info;
    if (const DWORD code = QueryKeyInfo(key, info)) ThrowRegistryError(code, kQueryKeyFailed, String());
    names.reserve(info.subkeys);
    NameBuffer name(info.longestSubkeyName);
    DWORD code;
    for (DWORD index = 0; (code = name.EnumKey(key, index)) == ERROR_SUCCESS; ++index) {
      names.emplace_back(name.GetText());
    }
    if (code != ERROR_NO_MORE_ITEMS) ThrowRegistryError(code, kEnumKeysFailed, String());
    return names;
  });
}

void PersistentProperties::DeleteBag() {
  Operation("^ PersistentProperties::DeleteBag()", "Failed to delete property bag.", [&] {
    // Without a bag the path leads to the root itself, and nobody means to delete the whole machine.
    const DWORD code = mPath.IsEmpty() ? ERROR_ACCESS_DENIED : DeleteTree(GetRoot(), mPath.GetBegin());
    if (code != ERROR_SUCCESS) ThrowRegistryError(code, kDeleteKeyFailed, String());
    // The next operation is to open the bag anew, not to meet a key that is gone.
    CloseKey();
  });
}

}  // namespace orm
