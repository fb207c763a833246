// A property bag in the registry.
#pragma once

#include <ormutil/Properties.h>

namespace orm {

class Error;

// A bag is the key "SOFTWARE\<name>" of the local machine or of the current user, and each property is a
// value of that key: REG_DWORD, REG_SZ or REG_BINARY. Values of other types are no properties: they have no
// type and are not enumerated, though Clear removes them.
//
// The key is opened by the first operation that needs it and stays open. Reading never creates a bag; setting
// does. An object is for one thread at a time, while any number of objects, in any processes, may work on one
// bag; what another one changes meanwhile can make an operation fail.
//
// Every operation that can fail throws an error of at least two layers: what was to be done, over the failing
// call with the key's or value's full name, over the system's text unless something was not found. The top
// code is 0xE7220002 for what does not exist, 0xE7220004 for denied access, else the code below. Getters with
// a default never throw.
class ORMUTIL_API PersistentProperties : public Properties {
 public:
  // No bag is chosen: until Open is called the object stands for the root key of the local machine itself.
  PersistentProperties() = default;
  PersistentProperties(const PersistentProperties&) = delete;
  PersistentProperties& operator=(const PersistentProperties&) = delete;

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
  ~PersistentProperties() override;

  // Accepts the locations "cfg://localhost" and "cfg://localuser", without regard to letter case, and stores
  // nothing. Throws 0xE7220003 for any others.
  void SetLocation(const BaseString<MbcsTraits>& machineLocation, const BaseString<MbcsTraits>& userLocation);

  // Chooses the bag; does not touch the registry. `name` may hold several levels separated by backslashes.
  void Open(const BaseString<MbcsTraits>& name, bool perUser);

  // Whether the bag's key cannot be opened for reading: it does not exist yet or is denied.
  bool IsBagNew() const;

  // The names of the bags right below this one; none when this one does not exist.
  std::vector<BaseString<MbcsTraits>> EnumBags() const;

  // Deletes the bag, its properties and all bags below it; nothing happens when there is no such bag. The
  // object can be used further: setting a property creates the bag anew. Before a bag was chosen it is denied
  // (5) and nothing is touched: nobody means to delete everything that the machine knows.
  void DeleteBag();

 private:
  enum class Access { Read, Write };
  // What happens when the key cannot be opened.
  enum class OnFailure { Throw, NullWhenMissing, Null };

  HKEY GetRoot() const;
  HKEY GetKey(Access access, OnFailure onFailure) const;
  void CloseKey() const;
  BaseString<MbcsTraits> GetDisplayName(const BaseString<MbcsTraits>& valueName) const;

  [[noreturn]] void ThrowRegistryError(DWORD code, const char* format,
                                       const BaseString<MbcsTraits>& valueName) const;
  [[noreturn]] void ThrowWrongType(const char* required, const BaseString<MbcsTraits>& valueName) const;
  // `type` is the registry's, `trace` the operation's name in trace lines, `query` reads the value.
  template <class Value, class Query>
  Value Get(const BaseString<MbcsTraits>& name, DWORD type, const char* trace, Query query) const;
  template <class Value, class Query>
  Value GetOr(const BaseString<MbcsTraits>& name, DWORD type, const Value& defaultValue, Query query) const;
  void SetValue(const BaseString<MbcsTraits>& name, DWORD type, const void* data, DWORD size,
                const char* trace);

  // Reading operations open the key on demand, too.
  mutable HKEY mhKey = nullptr;
  mutable bool mKeyWritable = false;
  bool mMachine = true;
  BaseString<MbcsTraits> mPath;
};

}  // namespace orm
