// Walking, making and deleting keys along a path.
//
// A key of the local machine with a null access list lies in the open store; its parent, in the machine's
// store, holds a link to it. Two stores cannot be changed in one step, so the order is such that a process
// that dies between the two leaves a link that leads to nothing. It counts as absent, and making the key
// again puts it right. Whoever writes both stores at once begins with the open one.
#include "registry/KeyPath.h"

#include <algorithm>

#include "kernel/CodePage.h"
#include "registry/Links.h"
#include "registry/Records.h"

namespace orm::platform {
namespace {

constexpr std::size_t maxParts = 512;
constexpr int maxRaces = 64;
// Somebody else changed what this call had looked at: look again.
constexpr DWORD errorRaced = 0x20000002;

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// Length of the first part; a trail byte that looks like a back slash is none.
std::size_t PartSize(std::string_view path, bool isAscii) {
  if (isAscii) return std::min(path.find('\\'), path.size());
  const CodePage& page = AnsiCodePage();
  const auto* start = reinterpret_cast<const unsigned char*>(path.data());
  const unsigned char* end = start + path.size();
  const unsigned char* current = start;
  while (current != end && *current != '\\') current += page.CharacterSize(current, end);
  return static_cast<std::size_t>(current - start);
}

DWORD DropOpenKey(std::uint64_t id) {
  return Hive::Get(Hive::Kind::Open)->Write(0, [&](MDB_txn* txn) { return DropKey(txn, id); });
}

// Walks within one store. *link when the part that was reached last leads to the open store.
DWORD WalkStore(const KeyParts& parts, Place* place, bool* link) {
  return place->hive->Read([&](MDB_txn* txn) -> DWORD {
    *link = false;
    if (const DWORD error = CheckAlive(txn, place->id); error != ERROR_SUCCESS) return error;
    while (place->done < parts.size() && !*link) {
      SubKeyRecord subKey;
      if (const DWORD error = GetSubKey(txn, place->id, parts[place->done], &subKey);
          error != ERROR_SUCCESS) {
        return error;
      }
      place->id = subKey.id;
      ++place->done;
      *link = subKey.isLink;
    }
    return ERROR_SUCCESS;
  });
}

// An open key that nothing leads to yet, in the transaction on the open store that makes it.
struct NewOpenKey {
  MDB_txn* txn = nullptr;
  std::uint64_t id = noKey;
};

// The keys that are missing, made in one transaction. The last one is to be a link to `target`, if there is
// one.
DWORD MakeInStore(const KeyParts& parts, std::string_view className, const NewOpenKey& target,
                  const Place& from, std::uint64_t* id, bool* made) {
  return from.hive->Write(parts.size() * 512, [&](MDB_txn* txn) -> DWORD {
    *id = from.id;
    *made = false;
    DWORD error = CheckAlive(txn, from.id);
    for (std::size_t i = from.done; i < parts.size() && error == ERROR_SUCCESS; ++i) {
      const bool isLast = i + 1 == parts.size();
      const bool isLink = isLast && target.id != noKey;
      SubKeyRecord subKey;
      error = GetSubKey(txn, *id, parts[i], &subKey);
      if (error == ERROR_SUCCESS) {
        // Whoever made the link may have made the key by now.
        const bool isBroken = from.isBrokenLink && i == from.done && isLink && subKey.isLink &&
                              CheckAlive(target.txn, subKey.id) == ERROR_KEY_DELETED;
        if (!isBroken && (subKey.isLink || isLink)) return errorRaced;
        if (!isBroken) {
          *id = subKey.id;
          continue;
        }
      } else if (error != ERROR_FILE_NOT_FOUND) {
        return error;
      }
      const std::uint64_t parent = *id;
      error = isLink ? ERROR_SUCCESS : MakeKey(txn, parent, isLast ? className : std::string_view(), id);
      if (isLink) *id = target.id;
      if (error == ERROR_SUCCESS) error = PutSubKey(txn, parent, {*id, isLink, parts[i]});
      *made = isLast;
    }
    return error;
  });
}

// The same with an open key at the end, whose transaction encloses that of the link: as long as it lasts
// nobody takes the link for a broken one.
DWORD MakeLinked(const KeyParts& parts, std::string_view className, const Place& from, std::uint64_t* id,
                 bool* made) {
  return Hive::Get(Hive::Kind::Open)->Write(className.size(), [&](MDB_txn* txn) -> DWORD {
    NewOpenKey target{txn, noKey};
    const DWORD error = MakeKey(txn, noKey, className, &target.id);
    return error == ERROR_SUCCESS ? MakeInStore(parts, {}, target, from, id, made) : error;
  });
}

// What a name leads to, without following it.
DWORD LookAt(const Place& parent, std::string_view name, SubKeyRecord* subKey) {
  const DWORD error = parent.hive->Read([&](MDB_txn* txn) -> DWORD {
    if (const DWORD alive = CheckAlive(txn, parent.id); alive != ERROR_SUCCESS) return alive;
    return GetSubKey(txn, parent.id, name, subKey);
  });
  subKey->name = {};  // ended with the transaction
  return error;
}

// Where a key is listed.
struct Listing {
  Hive* hive = nullptr;
  std::uint64_t parent = noKey;
  std::string name;
};

// Finds the name of a key among its parent's subkeys. Nothing in an open key tells its parent, which is in
// the machine's store: the link to it is looked for among all subkeys there.
DWORD FindListing(std::uint64_t id, bool isLinked, Listing* listing) {
  RecordKey prefix = PrefixOf(RecordKind::SubKey, listing->parent);
  if (isLinked) prefix.size = 1;
  return listing->hive->Read([&](MDB_txn* txn) {
    return ForEach(txn, prefix, [&](const MDB_val& at, const MDB_val& record) {
      SubKeyRecord subKey;
      if (!Parse(record, &subKey) || subKey.id != id || subKey.isLink != isLinked) return true;
      listing->parent = OwnerOf(at);
      listing->name = subKey.name;
      return false;
    });
  });
}

DWORD DeleteOnce(const Place& parent, std::string_view name) {
  SubKeyRecord seen;
  if (const DWORD error = LookAt(parent, name, &seen); error != ERROR_SUCCESS) return error;
  if (!parent.hive->IsWritable()) return ERROR_ACCESS_DENIED;
  if (seen.isLink) {
    const DWORD error = DropOpenKey(seen.id);
    if (error != ERROR_SUCCESS) return error;
  }
  const DWORD result = parent.hive->Write(0, [&](MDB_txn* txn) -> DWORD {
    SubKeyRecord now;
    DWORD error = GetSubKey(txn, parent.id, name, &now);
    if (error != ERROR_SUCCESS) return error;
    if (now.isLink != seen.isLink || now.id != seen.id) return errorRaced;
    if (!now.isLink) error = DropKey(txn, now.id);
    return error == ERROR_SUCCESS ? DropSubKey(txn, parent.id, name) : error;
  });
  // What it holds may be links that lead to nothing.
  const bool isHeld = result == ERROR_ACCESS_DENIED && !seen.isLink;
  return isHeld && DropDeadLinks(parent.hive, seen.id) ? errorRaced : result;
}

}  // namespace

DWORD SplitKeyPath(std::string_view path, KeyParts* parts) {
  if (!path.empty() && path[0] == '\\') return ERROR_BAD_PATHNAME;
  const bool isAscii = IsAscii(path);
  while (!path.empty()) {
    const std::size_t size = PartSize(path, isAscii);
    if (size > maxKeyName) return ERROR_INVALID_PARAMETER;
    if (size != 0) parts->push_back(path.substr(0, size));
    path.remove_prefix(std::min(size + 1, path.size()));
  }
  return parts->size() <= maxParts ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
}

DWORD WalkDown(const KeyParts& parts, Place* place) {
  bool link = false;
  Place parent = *place;
  place->isBrokenLink = false;
  DWORD error = WalkStore(parts, place, &link);
  if (error != ERROR_SUCCESS || !link) return error;
  // The place before the link, in case that it leads to nothing.
  const std::size_t linkAt = place->done - 1;
  const KeyParts before(parts.begin(), parts.begin() + static_cast<std::ptrdiff_t>(linkAt));
  Place target{Hive::Get(Hive::Kind::Open), place->id, place->done, false};
  error = WalkStore(parts, &target, &link);
  if (target.done == place->done && (error == ERROR_KEY_DELETED || (error == ERROR_FILE_NOT_FOUND &&
                                                                    target.hive->Open() != ERROR_SUCCESS))) {
    error = WalkStore(before, &parent, &link);
    *place = parent;
    place->isBrokenLink = true;
    return error == ERROR_SUCCESS ? ERROR_FILE_NOT_FOUND : error;
  }
  *place = target;
  return error;
}

DWORD MakeBelow(const KeyParts& parts, std::string_view className, bool isOpen, const Place& start,
                Place* place, bool* made) {
  *made = false;
  for (int race = 0; race < maxRaces; ++race) {
    if (!place->hive->IsWritable()) return ERROR_ACCESS_DENIED;
    // A broken link is mended first; what is missing below it then goes into the open store.
    const bool isMachine = place->hive->GetKind() == Hive::Kind::Machine;
    const KeyParts step(
        parts.begin(),
        parts.begin() + static_cast<std::ptrdiff_t>(place->isBrokenLink ? place->done + 1 : parts.size()));
    const bool isWhole = step.size() == parts.size();
    const bool isLinked = isMachine && (isOpen || place->isBrokenLink);
    std::uint64_t id = 0;
    const DWORD error = isLinked
                            ? MakeLinked(step, isWhole ? className : std::string_view(), *place, &id, made)
                            : MakeInStore(step, className, {}, *place, &id, made);
    if (error == ERROR_SUCCESS && isWhole) {
      *place = {isLinked ? Hive::Get(Hive::Kind::Open) : place->hive, id, parts.size(), false};
      return ERROR_SUCCESS;
    }
    // What was there a moment ago may be gone.
    const bool isGone = error == ERROR_KEY_DELETED && place->done != 0;
    if (error != ERROR_SUCCESS && error != errorRaced && !isGone) return error;
    *place = start;
    *made = false;
    if (const DWORD walked = WalkDown(parts, place); walked != ERROR_FILE_NOT_FOUND) return walked;
  }
  return ERROR_BUSY;
}

DWORD DeleteAt(const KeyParts& parts, const Place& start) {
  const KeyParts before(parts.begin(), parts.end() - 1);
  for (int race = 0; race < maxRaces; ++race) {
    Place parent = start;
    if (const DWORD error = WalkDown(before, &parent); error != ERROR_SUCCESS) return error;
    const DWORD error = DeleteOnce(parent, parts.back());
    const bool isGone = error == ERROR_KEY_DELETED && !before.empty();
    if (error != errorRaced && !isGone) return error;
  }
  return ERROR_BUSY;
}

DWORD DeleteSelf(const Place& place) {
  Listing listing{place.hive, noKey, {}};
  const DWORD error = place.hive->Read([&](MDB_txn* txn) -> DWORD {
    InfoRecord info;
    if (const DWORD alive = CheckAlive(txn, place.id); alive != ERROR_SUCCESS) return alive;
    const DWORD got = GetInfo(txn, place.id, &info);
    listing.parent = info.parent;
    return got;
  });
  if (error != ERROR_SUCCESS) return error;
  const bool isLinked = place.hive->GetKind() == Hive::Kind::Open && listing.parent == noKey;
  if (isLinked) listing.hive = Hive::Get(Hive::Kind::Machine);
  const DWORD found = FindListing(place.id, isLinked, &listing);
  if (found != ERROR_SUCCESS) return found;
  // Nothing leads to the roots.
  if (listing.parent == noKey || listing.name.empty()) return ERROR_ACCESS_DENIED;
  return DeleteAt({listing.name}, {listing.hive, listing.parent, 0, false});
}

}  // namespace orm::platform
