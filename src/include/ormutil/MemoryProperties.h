// A property bag in memory.
#pragma once

#include <ormutil/CountedObject.h>
#include <ormutil/Properties.h>

namespace orm {

class PropertyTable;

// Copies share one table, which is copied when one of them is changed: copying a bag is one interlocked
// increment. Bags that share a table may be used by different threads; one bag is for one thread at a time
// unless all of them only read.
//
// Names are enumerated in ascending order without regard to letter case, each in the spelling with which it
// was first set. Finding, setting and deleting take logarithmic time at most.
class ORMUTIL_API MemoryProperties : public Properties {
 public:
  MemoryProperties();
  MemoryProperties(const MemoryProperties& other);
  MemoryProperties(MemoryProperties&& other) noexcept;
  MemoryProperties& operator=(const MemoryProperties& other);
  MemoryProperties& operator=(MemoryProperties&& other) noexcept;

  BaseString<MbcsTraits> GetString(const BaseString<MbcsTraits>& name,
                                   const BaseString<MbcsTraits>& defaultValue) const override;
  BaseString<MbcsTraits> GetString(const BaseString<MbcsTraits>& name) const override;
  DWORD GetNumber(const BaseString<MbcsTraits>& name, DWORD defaultValue) const override;
  DWORD GetNumber(const BaseString<MbcsTraits>& name) const override;
  Binary GetBinary(const BaseString<MbcsTraits>& name, const Binary& defaultValue) const override;
  Binary GetBinary(const BaseString<MbcsTraits>& name) const override;
  void SetString(const BaseString<MbcsTraits>& name, const BaseString<MbcsTraits>& value) override;
  void SetNumber(const BaseString<MbcsTraits>& name, DWORD value) override;
  void SetBinary(const BaseString<MbcsTraits>& name, const Binary& value) override;
  void Delete(const BaseString<MbcsTraits>& name) override;
  PropertyType GetType(const BaseString<MbcsTraits>& name) const override;
  std::vector<BaseString<MbcsTraits>> EnumProperties() const override;
  void Clear() override;
  ~MemoryProperties() override;

 private:
  friend const PropertyTable* GetPropertyTable(const Properties& bag);
  friend PropertyTable* GetWritablePropertyTable(Properties& bag);

  CountedObject<PropertyTable> mTable;
};

}  // namespace orm
