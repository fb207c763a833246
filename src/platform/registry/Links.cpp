// Links to open keys that are gone.
#include "registry/Links.h"

#include <string>
#include <vector>

#include "registry/Records.h"

namespace orm::platform {
namespace {

// What cannot be found out counts as there: opening it then tells the error.
bool LeadsToNothing(std::uint64_t id) {
  Hive* open = Hive::Get(Hive::Kind::Open);
  if (open->Open() == ERROR_FILE_NOT_FOUND) return true;
  return open->Read([&](MDB_txn* txn) { return CheckAlive(txn, id); }) == ERROR_KEY_DELETED;
}

bool ParseLink(const MDB_val& record, SubKeyRecord* subKey) {
  return Parse(record, subKey) && subKey->isLink;
}

struct Link {
  std::uint64_t id;
  std::string name;
};

// Those below the key that are still the same.
DWORD DropLinks(MDB_txn* txn, std::uint64_t key, const std::vector<Link>& links) {
  for (const Link& link : links) {
    SubKeyRecord now;
    const DWORD error = GetSubKey(txn, key, link.name, &now);
    const bool isSame = error == ERROR_SUCCESS && now.isLink && now.id == link.id;
    const DWORD dropped = isSame ? DropSubKey(txn, key, link.name) : error;
    if (dropped != ERROR_SUCCESS && dropped != ERROR_FILE_NOT_FOUND) return dropped;
  }
  return ERROR_SUCCESS;
}

}  // namespace

bool LinkFilter::Counts(const MDB_val& record) {
  SubKeyRecord subKey;
  if (!ParseLink(record, &subKey)) return true;
  const Target target = mTargets.emplace(subKey.id, Target::Unknown).first->second;
  mHasUnknown |= target == Target::Unknown;
  return target != Target::Nothing;
}

bool LinkFilter::Resolve() {
  if (!mHasUnknown) return false;
  for (auto& [id, target] : mTargets) {
    if (target == Target::Unknown) target = LeadsToNothing(id) ? Target::Nothing : Target::Key;
  }
  mHasUnknown = false;
  return true;
}

bool DropDeadLinks(Hive* hive, std::uint64_t key) {
  if (hive->GetKind() != Hive::Kind::Machine) return false;
  std::vector<Link> links;
  const DWORD listed = hive->Read([&](MDB_txn* txn) {
    links.clear();
    return ForEach(txn, PrefixOf(RecordKind::SubKey, key), [&](const MDB_val&, const MDB_val& record) {
      SubKeyRecord subKey;
      if (ParseLink(record, &subKey)) links.push_back({subKey.id, std::string(subKey.name)});
      return true;
    });
  });
  if (listed != ERROR_SUCCESS || links.empty()) return false;
  // Without a writer of the open store, who may be about to make what a link is there for.
  return Hive::Get(Hive::Kind::Open)->Write(0, [&](MDB_txn* open) -> DWORD {
    std::erase_if(links, [&](const Link& link) { return CheckAlive(open, link.id) != ERROR_KEY_DELETED; });
    if (links.empty()) return ERROR_FILE_NOT_FOUND;
    return hive->Write(0, [&](MDB_txn* txn) { return DropLinks(txn, key, links); });
  }) == ERROR_SUCCESS;
}

}  // namespace orm::platform
