// A property bag: named, typed values, in memory (MemoryProperties) or in the registry
// (PersistentProperties).
//
//   MemoryProperties defaults;
//   defaults.SetNumber("Width", 80);
//   defaults.SetString("Language", "en");
//
//   PersistentProperties settings;
//   settings.Open("Tools\\Editor", true);
//   settings.Merge(defaults, {}, true);      // everything, nothing excluded
//   settings.GetNumber("WIDTH");             // 80: names do not regard letter case
//   const Binary carried = settings.Export();
//
// A bag is for one thread at a time.
#pragma once

#include <ormutil/Archive.h>
#include <ormutil/BaseString.h>
#include <ormutil/Binary.h>
#include <ormutil/Export.h>
#include <win32.h>

#include <vector>

namespace orm {

class ORMUTIL_API Properties {
 public:
  // The numbers are those of the exported form.
  enum PropertyType : DWORD {
    TYPE_NONE = 0,    // no such property
    TYPE_NUMBER = 1,  // unsigned, 32 bits
    TYPE_STRING = 2,
    TYPE_BINARY = 3,  // an empty buffer is a value
  };

  // The order of these declarations is a binary contract with other modules.

  // The value, or a shared copy of the default when there is no such property or it has another type. Never
  // throw.
  // Without a default: throw an error whose outer layer is "Failed to get the value of property."; its code
  // is 0xE7220002 when there is no such property and 0xE7220001 when it has another type.
  virtual BaseString<MbcsTraits> GetString(const BaseString<MbcsTraits>& name,
                                           const BaseString<MbcsTraits>& defaultValue) const = 0;
  virtual BaseString<MbcsTraits> GetString(const BaseString<MbcsTraits>& name) const = 0;
  virtual DWORD GetNumber(const BaseString<MbcsTraits>& name, DWORD defaultValue) const = 0;
  virtual DWORD GetNumber(const BaseString<MbcsTraits>& name) const = 0;
  virtual Binary GetBinary(const BaseString<MbcsTraits>& name, const Binary& defaultValue) const = 0;
  virtual Binary GetBinary(const BaseString<MbcsTraits>& name) const = 0;

  // Create the property or replace it, whatever type it had.
  virtual void SetString(const BaseString<MbcsTraits>& name, const BaseString<MbcsTraits>& value) = 0;
  virtual void SetNumber(const BaseString<MbcsTraits>& name, DWORD value) = 0;
  virtual void SetBinary(const BaseString<MbcsTraits>& name, const Binary& value) = 0;

  // Removes the property; nothing happens when there is none.
  virtual void Delete(const BaseString<MbcsTraits>& name) = 0;

  // TYPE_NONE when there is no such property.
  virtual PropertyType GetType(const BaseString<MbcsTraits>& name) const = 0;

  // The names, each in the spelling in which it is stored.
  virtual std::vector<BaseString<MbcsTraits>> EnumProperties() const = 0;

  // Removes all properties.
  virtual void Clear() = 0;

  virtual ~Properties();

  // Copies properties of `other` into this bag: those that `names` lists or, with `excludeNames`, those that
  // it does not list. The list is matched with regard to letter case. Nothing is deleted here; what has the
  // same name is replaced. Throws what the bags throw; what was copied before stays.
  void Merge(const Properties& other, const std::vector<BaseString<MbcsTraits>>& names, bool excludeNames);

  // Whether `other` has every property of this bag with the same type and an equal value; `caseSensitive` is
  // about the values of strings. Throws what the bags throw.
  bool IsSubsetOf(const Properties& other, bool caseSensitive) const;

  // The bag as a whole archive; an empty buffer for a bag without properties. Throws what the bag throws.
  Binary Export() const;

  // Sets the properties of an exported bag here, on top of what there is. Nothing happens for an empty
  // buffer. Throws an error whose outer layer is 0xE7220005 "Failed to deserialize properties from external
  // data."; what was set before stays. The data may come from anywhere: nothing in them is trusted.
  void Import(const Binary& data);

 protected:
  Properties() = default;
  Properties(const Properties&) = default;
  Properties& operator=(const Properties&) = default;
};

// A bag in an archive is a record of 32-bit numbers and the archive's strings and buffers: the version
// 0x80000001, the count, then for each property its name, its type and its value. Reading throws as Import
// does.
ORMUTIL_API WriteArchive& operator<<(WriteArchive& archive, const Properties& bag);
ORMUTIL_API ReadArchive& operator>>(ReadArchive& archive, Properties& bag);

}  // namespace orm
