// Class entries and their registrations.
#include "ClassRegistry.h"

#include "ClassLibrary.h"

#include <algorithm>
#include <iterator>

namespace orm {

namespace {

std::string_view GetKey(const String& text) {
  return {text.GetBegin(), text.GetSize()};
}

}  // namespace

Registrations::iterator ClassEntry::FindPlace(const LibraryIntl* pLibrary) {
  if (!pLibrary) return mRegistrations.begin();
  const auto isNotNewer = [pLibrary](const Registration& other) {
    return other.mpLibrary && other.mpLibrary->GetRegisteredStamp() <= pLibrary->GetRegisteredStamp();
  };
  return std::find_if(mRegistrations.begin(), mRegistrations.end(), isNotNewer);
}

RegistrationSet ClassRegistry::Register(std::vector<ClassRecord> records, FactoryRegistration* pFactory,
                                        LibraryIntl* pLibrary, RegistrationSet& rSet) {
  // The set holds the old and the new until nothing can fail any more: who unregisters it takes back both.
  std::vector<RegistrationSet::Item>& rItems = rSet.items;
  const size_t formerCount = rItems.size();
  RegistrationSet former;
  former.items.reserve(formerCount);
  rItems.reserve(formerCount + records.size());
  for (ClassRecord& record : records) {
    ClassEntry& entry = FindOrAdd(record.id);
    const auto position = entry.mRegistrations.insert(
        entry.FindPlace(pLibrary), {std::move(record.data), std::move(record.faces), pFactory, pLibrary});
    rItems.push_back({FacePtr<ClassEntry>(&entry), position});
  }
  const auto firstNew = rItems.begin() + static_cast<std::ptrdiff_t>(formerCount);
  std::move(rItems.begin(), firstNew, std::back_inserter(former.items));
  rItems.erase(rItems.begin(), firstNew);
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
  const auto place = mEntries.find(GetKey(classId));
  return place != mEntries.end() && place->second->GetCurrent() ? place->second.Get() : nullptr;
}

const std::vector<const ClassEntry*>& ClassRegistry::GetOrdered() {
  if (mOrdered.size() == mEntries.size()) return mOrdered;
  mOrdered.reserve(mEntries.size());
  for (const auto& [text, entry] : mEntries) mOrdered.push_back(entry.Get());
  std::sort(mOrdered.begin(), mOrdered.end(),
            [](const ClassEntry* left, const ClassEntry* right) { return left->GetId() < right->GetId(); });
  return mOrdered;
}

void ClassRegistry::DropExternalReference(ClassEntry& rEntry) {
  --rEntry.mExternalReferences;
  RemoveIfUnused(rEntry);
}

ClassEntry& ClassRegistry::FindOrAdd(const HashedId& id) {
  if (const auto place = mEntries.find(GetKey(id.text)); place != mEntries.end()) return *place->second;
  auto entry = FacePtr<ClassEntry>::Adopt(new ClassEntry(id));
  mOrdered.clear();
  const std::string_view key = GetKey(entry->GetId().text);
  return *mEntries.emplace(key, std::move(entry)).first->second;
}

void ClassRegistry::RemoveIfUnused(const ClassEntry& entry) {
  if (entry.GetCurrent() || entry.mExternalReferences != 0) return;
  const auto place = mEntries.find(GetKey(entry.GetId().text));
  if (place == mEntries.end() || place->second.Get() != &entry) return;
  mOrdered.clear();
  mEntries.erase(place);
}

}  // namespace orm
