// Class entries and their registrations.
#include "ClassRegistry.h"

#include "ClassLibrary.h"

#include <algorithm>

namespace orm {

namespace {

std::string_view GetKey(const String& text) {
  return {text.GetBegin(), text.GetSize()};
}

}  // namespace

Registrations::iterator ClassEntry::FindPlace(const LibraryIntl* pLibrary) {
  if (!pLibrary) return mRegistrations.begin();
  const auto isNotNewer = [pLibrary](const FacePtr<Registration>& other) {
    return other->mpLibrary && other->mpLibrary->GetRegisteredStamp() <= pLibrary->GetRegisteredStamp();
  };
  return std::find_if(mRegistrations.begin(), mRegistrations.end(), isNotNewer);
}

RegistrationSet ClassRegistry::Register(const std::vector<ClassRecord>& records,
                                        FactoryRegistration* pFactory, LibraryIntl* pLibrary,
                                        RegistrationSet& rSet) {
  RegistrationSet former;
  std::swap(former.items, rSet.items);
  rSet.items.reserve(records.size());
  for (const ClassRecord& record : records) {
    ClassEntry& entry = FindOrAdd(record.id);
    auto registration = FacePtr<Registration>::Adopt(new Registration());
    registration->mpEntry = &entry;
    registration->mClassData = record.data;
    registration->mFaces = record.faces;
    registration->mpFactory = pFactory;
    registration->mpLibrary = pLibrary;
    const auto position = entry.mRegistrations.insert(entry.FindPlace(pLibrary), std::move(registration));
    rSet.items.push_back({FacePtr<ClassEntry>(&entry), position});
  }
  // One step of the stamp for one change: what is unregistered next takes it.
  if (former.items.empty() && !records.empty()) ++mStamp;
  return former;
}

void ClassRegistry::Unregister(RegistrationSet& rSet) {
  if (rSet.items.empty()) return;
  for (const auto& [entry, position] : rSet.items) {
    entry->mRegistrations.erase(position);
    RemoveIfUnused(*entry);
  }
  rSet.items.clear();
  ++mStamp;
}

ClassEntry* ClassRegistry::Find(const String& classId) const {
  const auto place = mIndex.find(GetKey(classId));
  return place != mIndex.end() && place->second->GetCurrent() ? place->second : nullptr;
}

void ClassRegistry::DropExternalReference(ClassEntry& rEntry) {
  --rEntry.mExternalReferences;
  RemoveIfUnused(rEntry);
}

ClassEntry& ClassRegistry::FindOrAdd(const HashedId& id) {
  FacePtr<ClassEntry>& rPlace = mEntries[id];
  if (!rPlace) {
    rPlace = FacePtr<ClassEntry>::Adopt(new ClassEntry(id));
    mIndex.emplace(GetKey(rPlace->GetId().text), rPlace.Get());
  }
  return *rPlace;
}

void ClassRegistry::RemoveIfUnused(const ClassEntry& entry) {
  if (entry.GetCurrent() || entry.mExternalReferences != 0) return;
  const auto place = mEntries.find(entry.GetId());
  if (place == mEntries.end() || place->second.Get() != &entry) return;
  mIndex.erase(GetKey(entry.GetId().text));
  mEntries.erase(place);
}

}  // namespace orm
