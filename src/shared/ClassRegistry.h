// Which classes exist and which source makes their objects.
#pragma once

#include <ormutil/FacePtr.h>

#include <list>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ClassRecord.h"

namespace orm {

class ClassEntry;
class FactoryRegistration;
class LibraryIntl;

// One class as one source offers it. Exactly one of factory and library is set; both outlive the
// registration.
struct Registration {
  Binary mClassData;
  std::vector<FaceRecord> mFaces;
  FactoryRegistration* mpFactory = nullptr;
  LibraryIntl* mpLibrary = nullptr;
};

using Registrations = std::list<Registration>;

// One class id. Lives while it has registrations or somebody asks about it (ClassInfo).
class ClassEntry final : public FaceObject<BaseFace> {
 public:
  explicit ClassEntry(const HashedId& id) : mId(id) {}

  const HashedId& GetId() const { return mId; }
  // The registration that makes the objects; null when there is none.
  const Registration* GetCurrent() const {
    return mRegistrations.empty() ? nullptr : &mRegistrations.front();
  }

 private:
  friend class ClassRegistry;

  // Where a registration of that source belongs: a factory's at the front; a library's behind all factories
  // and before the first library whose file is not newer, so that the newest file wins, and the later
  // registration of two of the same time.
  Registrations::iterator FindPlace(const LibraryIntl* pLibrary);

  const HashedId mId;
  Registrations mRegistrations;
  DWORD mExternalReferences = 0;
};

// The registrations that one source made, so that it can take back exactly its own.
struct RegistrationSet {
  struct Item {
    FacePtr<ClassEntry> entry;
    Registrations::iterator position;
  };
  std::vector<Item> items;
};

// Used under the class manager's lock.
class ClassRegistry {
 public:
  // Adds the source's classes to the registry and to `rSet`, which then holds them alone. Gives back what it
  // held before, for the caller to unregister: a class that the source still offers never drops out in
  // between.
  RegistrationSet Register(std::vector<ClassRecord> records, FactoryRegistration* pFactory,
                           LibraryIntl* pLibrary, RegistrationSet& rSet);
  void Unregister(RegistrationSet& rSet);

  // Null when the class has no source.
  ClassEntry* Find(const String& classId) const;
  // All entries in the order of ids; some may have no current registration. The lock must be held alone.
  const std::vector<const ClassEntry*>& GetOrdered();

  void AddExternalReference(ClassEntry& rEntry) { ++rEntry.mExternalReferences; }
  void DropExternalReference(ClassEntry& rEntry);

  // Changes whenever the set of classes changes; never 0.
  DWORD GetStamp() {
    if (mStamp == 0) mStamp = 1;
    return mStamp;
  }
  void SetStamp(DWORD stamp) { mStamp = stamp; }

 private:
  ClassEntry& FindOrAdd(const HashedId& id);
  void RemoveIfUnused(const ClassEntry& entry);

  // By text: ids of one length and the same letters share their hash, so the order of ids is a poor index.
  // The keys are the entries' own texts.
  std::unordered_map<std::string_view, FacePtr<ClassEntry>> mEntries;
  // The same entries in order, or nothing since one was added or removed: it is made when somebody asks. A
  // tree that is kept in order took a twelfth of what a process does to learn its classes at its start.
  std::vector<const ClassEntry*> mOrdered;
  DWORD mStamp = 0;
};

}  // namespace orm
