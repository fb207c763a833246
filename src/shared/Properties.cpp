// Operations on any two property bags, and the exported form of a bag.
#include <ormutil/Error.h>
#include <ormutil/Properties.h>

#include <algorithm>

#include "PropertyErrors.h"
#include "PropertyTable.h"

namespace orm {

namespace {

constexpr const char* kSource = "src/shared/Properties";
constexpr DWORD kVersion = 0x80000001;

[[noreturn]] void ThrowBadData(const String& message, const char* suggestion) {
  Error error(kPropertyDataBad, message);
  if (suggestion) error.SetSuggestion(suggestion);
  throw error;
}

void WriteValue(WriteArchive& archive, const Properties& bag, const String& name,
                Properties::PropertyType type) {
  switch (type) {
    case Properties::TYPE_NUMBER:
      archive << bag.GetNumber(name);
      break;
    case Properties::TYPE_STRING:
      archive << bag.GetString(name);
      break;
    case Properties::TYPE_BINARY:
      archive << bag.GetBinary(name);
      break;
    default:
      ORM_FORCED_ASSERT(kSource, __LINE__);
  }
}

// Room for the fixed parts of an entry and for texts of common length.
constexpr unsigned kUsualEntry = 32;
constexpr unsigned kMaxReserve = 1u << 20;
// An empty name, the type and an empty string.
constexpr unsigned kLeastEntry = 12;

// What WriteBag writes, without asking the bag for one name after the other.
bool WriteTable(WriteArchive& archive, const PropertyTable& table) {
  const auto count = static_cast<DWORD>(table.GetSize());
  archive << count;
  archive.Reserve(static_cast<unsigned>(std::min<uint64_t>(uint64_t{count} * kUsualEntry, kMaxReserve)));
  table.ForEach([&archive](const PropertyEntry& entry) {
    archive << entry.name << static_cast<DWORD>(entry.value.index());
    std::visit(
        [&archive](const auto& value) {
          if constexpr (!std::is_same_v<decltype(value), const std::monostate&>) archive << value;
        },
        entry.value);
  });
  return count != 0;
}

// Tells whether the bag has any properties.
bool WriteBag(WriteArchive& archive, const Properties& bag) {
  archive << kVersion;
  if (const PropertyTable* table = GetPropertyTable(bag)) return WriteTable(archive, *table);
  const std::vector<String> names = bag.EnumProperties();
  archive << static_cast<DWORD>(names.size());
  for (const String& name : names) {
    archive << name;
    const Properties::PropertyType type = bag.GetType(name);
    archive << static_cast<DWORD>(type);
    WriteValue(archive, bag, name, type);
  }
  return !names.empty();
}

template <class Payload>
Payload ReadPayload(ReadArchive& archive) {
  Payload result{};
  archive >> result;
  return result;
}

// Calls `set(name, value)` with what was read. `name` is the caller's, so that one serves many properties.
template <class Set>
void ReadProperty(ReadArchive& archive, String& name, Set set) {
  archive >> name;
  switch (ReadPayload<DWORD>(archive)) {
    case Properties::TYPE_NUMBER:
      return set(name, ReadPayload<DWORD>(archive));
    case Properties::TYPE_STRING:
      return set(name, ReadPayload<String>(archive));
    case Properties::TYPE_BINARY:
      return set(name, ReadPayload<Binary>(archive));
    default:
      ORM_FORCED_ASSERT(kSource, __LINE__);
      ThrowBadData("Unknown data format or data are corrupted.", nullptr);
  }
}

// Sets in a bag of any kind.
struct SetInBag {
  Properties& bag;
  void operator()(const String& name, DWORD value) const { bag.SetNumber(name, value); }
  void operator()(const String& name, const String& value) const { bag.SetString(name, value); }
  void operator()(const String& name, const Binary& value) const { bag.SetBinary(name, value); }
};

void ReadBag(ReadArchive& archive, Properties& bag) {
  const auto version = ReadPayload<DWORD>(archive);
  if (version != kVersion) {
    ThrowBadData(
        String::FormatInserts("Incompatible version (0x%1!x!) of external data was detected.", version),
        "Make sure that you are not mixing incompatible versions of this software.");
  }
  // The count is not trusted with memory: an entry is set as it is read, and a count that lies ends with the
  // data. Room is made for no more entries than the rest of the data can hold.
  auto left = ReadPayload<DWORD>(archive);
  if (left == 0) return;
  String name;
  if (PropertyTable* table = GetWritablePropertyTable(bag)) {
    table->Reserve(std::min(left, archive.GetRemaining() / kLeastEntry));
    const auto set = [table](const String& key, const auto& value) { table->FindOrInsert(key) = value; };
    for (; left > 0; --left) ReadProperty(archive, name, set);
  } else {
    for (; left > 0; --left) ReadProperty(archive, name, SetInBag{bag});
  }
}

// Whether the property, which both bags have with this type, has the same value in both.
bool HasEqualValue(const Properties& mine, const Properties& other, const String& name,
                   Properties::PropertyType type, bool caseSensitive) {
  switch (type) {
    case Properties::TYPE_NUMBER: {
      const DWORD theirs = other.GetNumber(name);
      return mine.GetNumber(name) == theirs;
    }
    case Properties::TYPE_STRING: {
      const String theirs = other.GetString(name);
      const String ours = mine.GetString(name);
      return (caseSensitive ? ours.Compare(theirs.GetBegin()) : ours.CompareNoCase(theirs.GetBegin())) == 0;
    }
    case Properties::TYPE_BINARY: {
      const Binary theirs = other.GetBinary(name);
      return mine.GetBinary(name).RawCompare(theirs.GetData(), theirs.GetSize()) == 0;
    }
    default:
      ORM_FORCED_ASSERT(kSource, __LINE__);
      return true;
  }
}

void CopyProperty(const Properties& from, Properties& to, const String& name) {
  switch (from.GetType(name)) {
    case Properties::TYPE_NUMBER:
      return to.SetNumber(name, from.GetNumber(name));
    case Properties::TYPE_STRING:
      return to.SetString(name, from.GetString(name));
    case Properties::TYPE_BINARY:
      return to.SetBinary(name, from.GetBinary(name));
    default:
      ORM_FORCED_ASSERT(kSource, __LINE__);
  }
}

}  // namespace

Properties::~Properties() = default;

void Properties::Merge(const Properties& other, const std::vector<BaseString<MbcsTraits>>& names,
                       bool excludeNames) {
  for (const String& name : other.EnumProperties()) {
    const bool listed = std::any_of(names.begin(), names.end(), [&name](const String& candidate) {
      return candidate.Compare(name.GetBegin()) == 0;
    });
    if (listed != excludeNames) CopyProperty(other, *this, name);
  }
}

bool Properties::IsSubsetOf(const Properties& other, bool caseSensitive) const {
  const std::vector<String> names = EnumProperties();
  return std::all_of(names.begin(), names.end(), [&](const String& name) {
    const PropertyType type = GetType(name);
    return other.GetType(name) == type && HasEqualValue(*this, other, name, type, caseSensitive);
  });
}

WriteArchive& operator<<(WriteArchive& archive, const Properties& bag) {
  WriteBag(archive, bag);
  return archive;
}

ReadArchive& operator>>(ReadArchive& archive, Properties& bag) {
  try {
    ReadBag(archive, bag);
  } catch (Error& error) {
    error.AddLayer(kPropertyDataBad, "Failed to deserialize properties from external data.");
    throw;
  }
  return archive;
}

Binary Properties::Export() const {
  Binary result;
  WriteArchive archive(result);
  return WriteBag(archive, *this) ? result : Binary();
}

void Properties::Import(const Binary& data) {
  if (data.GetSize() == 0) return;
  ReadArchive archive(data);
  archive >> *this;
}

}  // namespace orm
