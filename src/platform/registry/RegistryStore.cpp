// What the registry offers beyond the platform's: transactions and the check of a store.
#include <array>
#include <map>

#include "registry/Guard.h"
#include "registry/KeyTable.h"
#include "registry/PageCheck.h"
#include "win32/registryx.h"

namespace orm::platform {
namespace {

// The stores of a transaction: both halves of the local machine, the machine's own first. An open key may
// be written by users who may not write the machine's.
struct Stores {
  std::array<Hive*, 2> hives{};
  std::size_t count = 0;
};

DWORD StoresOf(HKEY key, Stores* stores) {
  OpenKey open;
  if (const DWORD error = FindKey(key, &open); error != ERROR_SUCCESS) return error;
  stores->hives[stores->count++] = open.hive;
  if (open.hive->GetKind() == Hive::Kind::Machine)
    stores->hives[stores->count++] = Hive::Get(Hive::Kind::Open);
  return ERROR_SUCCESS;
}

// The open half goes first: what links to it must not come to be without it.
DWORD End(HKEY key, bool commit) {
  Stores stores;
  DWORD error = StoresOf(key, &stores);
  if (error != ERROR_SUCCESS) return error;
  const bool openOnly = stores.count == 2 && !stores.hives[0]->InBatch() && stores.hives[1]->InBatch();
  for (std::size_t i = stores.count; i-- > (openOnly ? 1u : 0u);) {
    const DWORD ended = stores.hives[i]->EndBatch(commit && error == ERROR_SUCCESS);
    if (error == ERROR_SUCCESS) error = ended;
  }
  return error;
}

// Looks at every record of a store and notes what does not fit together.
class StoreCheck {
 public:
  StoreCheck(void (*report)(void*, const char*), void* context) : mReport(report), mContext(context) {}

  DWORD Run(Hive* hive) {
    DWORD result = ERROR_BUSY;
    for (int attempt = 0; result == ERROR_BUSY && attempt < 1000; ++attempt) {
      result = hive->Read([&](MDB_txn* txn) { return RunOn(txn, hive); });
    }
    return result;
  }

 private:
  DWORD RunOn(MDB_txn* txn, Hive* hive) {
    mParents = {{rootKey, noKey}};
    mLinks = {};
    std::string fault;
    // The pages of a transaction that is under way are not on the disk yet.
    const DWORD pages =
        hive->InBatch() ? ERROR_SUCCESS : CheckPages(hive->DataFile(), mdb_txn_id(txn), &fault);
    if (pages == ERROR_BADDB) Fault(fault);
    // A page that leads astray is not followed.
    if (pages != ERROR_SUCCESS) return pages;
    Each(txn, RecordKind::Info, [this](std::uint64_t key, const MDB_val& record) { SeeInfo(key, record); });
    Each(txn, RecordKind::SubKey,
         [this](std::uint64_t key, const MDB_val& record) { SeeSubKey(key, record); });
    Each(txn, RecordKind::Value, [this](std::uint64_t key, const MDB_val& record) { SeeValue(key, record); });
    for (const auto& [key, parent] : mParents) {
      if (parent != noKey && mLinks[key] != 1)
        Fault(Name(key) + " is not reached from its parent exactly once");
    }
    return mFaults == 0 ? ERROR_SUCCESS : ERROR_BADDB;
  }

  static std::string Name(std::uint64_t key) { return "key " + std::to_string(key); }

  void Fault(const std::string& text) {
    ++mFaults;
    if (mReport != nullptr) mReport(mContext, text.c_str());
  }

  template <class See>
  void Each(MDB_txn* txn, RecordKind kind, See&& see) {
    RecordKey prefix = PrefixOf(kind, 0);
    prefix.size = 1;
    const DWORD error = ForEach(txn, prefix, [&](const MDB_val& at, const MDB_val& record) {
      if (at.mv_size < 9) {
        Fault("a record has a key of " + std::to_string(at.mv_size) + " bytes");
      } else {
        see(OwnerOf(at), record);
      }
      return true;
    });
    if (error != ERROR_SUCCESS) Fault("the records cannot be read to their end");
  }

  void SeeInfo(std::uint64_t key, const MDB_val& record) {
    InfoRecord info;
    if (!Parse(record, &info)) return Fault(Name(key) + " has no sound description");
    if (key != rootKey) mParents[key] = info.parent;
  }

  void SeeSubKey(std::uint64_t key, const MDB_val& record) {
    SubKeyRecord subKey;
    if (!Parse(record, &subKey)) return Fault(Name(key) + " has an unsound subkey");
    if (!mParents.contains(key)) Fault("a subkey belongs to " + Name(key) + ", which is not there");
    if (subKey.isLink) return;
    const auto child = mParents.find(subKey.id);
    if (child == mParents.end()) return Fault(Name(key) + " has a subkey that is not there");
    if (child->second != key) Fault(Name(subKey.id) + " hangs below a key that is not its parent");
    ++mLinks[subKey.id];
  }

  void SeeValue(std::uint64_t key, const MDB_val& record) {
    ValueRecord value;
    if (!Parse(record, &value)) return Fault(Name(key) + " has an unsound value");
    if (!mParents.contains(key)) Fault("a value belongs to " + Name(key) + ", which is not there");
  }

  void (*mReport)(void*, const char*);
  void* mContext;
  std::size_t mFaults = 0;
  std::map<std::uint64_t, std::uint64_t> mParents;
  std::map<std::uint64_t, unsigned> mLinks;
};

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

LSTATUS OrmRegBeginTransaction(HKEY key, uint64_t expectedBytes) {
  return Guarded([&] {
    Stores stores;
    DWORD error = StoresOf(key, &stores);
    // The open half first, as whoever makes an open key does: they wait for each other at most.
    for (std::size_t i = stores.count; i-- > 0 && error == ERROR_SUCCESS;) {
      error = stores.hives[i]->BeginBatch(expectedBytes);
      const bool isSecond = i == 0 && stores.count == 2;
      // Who may not write the machine's own half may still write the open keys.
      if (error == ERROR_ACCESS_DENIED && isSecond) error = ERROR_SUCCESS;
      if (error != ERROR_SUCCESS && isSecond) stores.hives[1]->EndBatch(false);
    }
    return error;
  });
}

LSTATUS OrmRegCommitTransaction(HKEY key) {
  return Guarded([&] { return End(key, true); });
}

LSTATUS OrmRegAbortTransaction(HKEY key) {
  return Guarded([&] { return End(key, false); });
}

LSTATUS OrmRegCheckStore(HKEY key, void (*report)(void* context, const char* fault), void* context) {
  return Guarded([&] {
    Stores stores;
    DWORD error = StoresOf(key, &stores);
    for (std::size_t i = 0; i < stores.count && error == ERROR_SUCCESS; ++i) {
      error = StoreCheck(report, context).Run(stores.hives[i]);
    }
    return error;
  });
}
