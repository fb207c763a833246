// MemoryProperties: the bag's operations on its table.
#include <ormutil/Error.h>
#include <ormutil/MemoryProperties.h>

#include <typeinfo>

#include "Areas.h"
#include "PropertyErrors.h"
#include "PropertyTable.h"

namespace orm {

namespace {

constexpr const char* kSource = "src/shared/MemoryProperties";

void TraceError(const Error& error) {
  TraceWrite(areaMemoryProperties, TRACE_WARNING, false, kSource, __LINE__, "%s: %s(%08x)",
             "^ MemoryProperties", error.GetMessage(0), error.GetCode(0));
}

// `required`: the type that the existing property does not have; null when there is no such property.
[[noreturn]] void ThrowGetError(const char* required, const String& name) {
  Error error =
      required ? Error(kPropertyWrongType,
                       String::FormatInserts("Type of property '%1' is unexpected, '%2' type is required.",
                                             name, required))
               : Error(kPropertyMissing, String::FormatInserts("Property '%1' does not exist.", name));
  TraceError(error);
  error.AddLayer(ERROR_LAYER_BELOW, "Failed to get the value of property.");
  TraceError(error);
  throw error;
}

// The value when the property exists with the type, else null.
template <Properties::PropertyType kType>
const auto* FindTyped(const CountedObject<PropertyTable>& table, const String& name) {
  const PropertyValue* value = table.IsNull() ? nullptr : table->Find(name);
  return value ? std::get_if<kType>(value) : nullptr;
}

template <Properties::PropertyType kType>
const auto& RequireTyped(const CountedObject<PropertyTable>& table, const String& name,
                         const char* typeName) {
  const PropertyValue* value = table.IsNull() ? nullptr : table->Find(name);
  if (!value) ThrowGetError(nullptr, name);
  const auto* typed = std::get_if<kType>(value);
  if (!typed) ThrowGetError(typeName, name);
  return *typed;
}

}  // namespace

MemoryProperties::MemoryProperties() = default;
MemoryProperties::MemoryProperties(const MemoryProperties& other) = default;
MemoryProperties::MemoryProperties(MemoryProperties&& other) noexcept = default;
MemoryProperties& MemoryProperties::operator=(const MemoryProperties& other) = default;
MemoryProperties& MemoryProperties::operator=(MemoryProperties&& other) noexcept = default;
MemoryProperties::~MemoryProperties() = default;

BaseString<MbcsTraits> MemoryProperties::GetString(const BaseString<MbcsTraits>& name,
                                                   const BaseString<MbcsTraits>& defaultValue) const {
  const auto* value = FindTyped<TYPE_STRING>(mTable, name);
  return value ? *value : defaultValue;
}

BaseString<MbcsTraits> MemoryProperties::GetString(const BaseString<MbcsTraits>& name) const {
  return RequireTyped<TYPE_STRING>(mTable, name, "TYPE_STRING");
}

DWORD MemoryProperties::GetNumber(const BaseString<MbcsTraits>& name, DWORD defaultValue) const {
  const auto* value = FindTyped<TYPE_NUMBER>(mTable, name);
  return value ? *value : defaultValue;
}

DWORD MemoryProperties::GetNumber(const BaseString<MbcsTraits>& name) const {
  return RequireTyped<TYPE_NUMBER>(mTable, name, "TYPE_NUMBER");
}

Binary MemoryProperties::GetBinary(const BaseString<MbcsTraits>& name, const Binary& defaultValue) const {
  const auto* value = FindTyped<TYPE_BINARY>(mTable, name);
  return value ? *value : defaultValue;
}

Binary MemoryProperties::GetBinary(const BaseString<MbcsTraits>& name) const {
  return RequireTyped<TYPE_BINARY>(mTable, name, "TYPE_BINARY");
}

void MemoryProperties::SetString(const BaseString<MbcsTraits>& name, const BaseString<MbcsTraits>& value) {
  mTable.MakeWritable().FindOrInsert(name) = value;
}

void MemoryProperties::SetNumber(const BaseString<MbcsTraits>& name, DWORD value) {
  mTable.MakeWritable().FindOrInsert(name) = value;
}

void MemoryProperties::SetBinary(const BaseString<MbcsTraits>& name, const Binary& value) {
  mTable.MakeWritable().FindOrInsert(name) = value;
}

void MemoryProperties::Delete(const BaseString<MbcsTraits>& name) {
  if (!mTable.IsNull()) mTable.MakeWritable().Delete(name);
}

Properties::PropertyType MemoryProperties::GetType(const BaseString<MbcsTraits>& name) const {
  const PropertyValue* value = mTable.IsNull() ? nullptr : mTable->Find(name);
  return value ? static_cast<PropertyType>(value->index()) : TYPE_NONE;
}

std::vector<BaseString<MbcsTraits>> MemoryProperties::EnumProperties() const {
  std::vector<BaseString<MbcsTraits>> names;
  if (mTable.IsNull()) return names;
  names.reserve(mTable->GetSize());
  mTable->ForEach([&names](const PropertyEntry& entry) { names.push_back(entry.name); });
  return names;
}

void MemoryProperties::Clear() {
  mTable.Release();
}

const PropertyTable* GetPropertyTable(const Properties& bag) {
  if (typeid(bag) != typeid(MemoryProperties)) return nullptr;
  const auto& table = static_cast<const MemoryProperties&>(bag).mTable;
  return table.IsNull() ? nullptr : &*table;
}

PropertyTable* GetWritablePropertyTable(Properties& bag) {
  if (typeid(bag) != typeid(MemoryProperties)) return nullptr;
  return &static_cast<MemoryProperties&>(bag).mTable.MakeWritable();
}

}  // namespace orm
