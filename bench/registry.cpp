// The registry beside the store it is built on and beside a database.
#include <lmdb.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "harness/Rooms.h"
#include "win32.h"
#include "win32/registryx.h"

namespace {

constexpr DWORD values = 1000;

std::vector<std::string> Names() {
  std::vector<std::string> names;
  for (DWORD i = 0; i < values; ++i) names.push_back("value" + std::to_string(i));
  return names;
}

// A new folder beside the registry, removed with the machine by whoever made that.
std::string TemporaryFolder() {
  const char* machine = getenv("ORM_MACHINE");
  std::string name = std::string(machine ? machine : "/tmp") + "/bench.XXXXXX";
  return mkdtemp(name.data()) == nullptr ? "/tmp" : name;
}

struct Registry {
  HKEY key = nullptr;
  DWORD next = 0;

  Registry() {
    RegCreateKeyExA(HKEY_CURRENT_USER, "Bench\\Registry", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                    nullptr);
    for (const std::string& name : Names()) Set(name, next++);
  }
  void Set(const std::string& name, DWORD number) const {
    RegSetValueExA(key, name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof number);
  }
  DWORD Get(const std::string& name) const {
    DWORD number = 0, size = sizeof number;
    RegQueryValueExA(key, name.c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(&number), &size);
    return number;
  }
};

// The same names and numbers in an environment of its own, read in one transaction that stays open.
struct Lmdb {
  MDB_env* environment = nullptr;
  MDB_txn* txn = nullptr;
  MDB_dbi records = 0;

  Lmdb() {
    mdb_env_create(&environment);
    mdb_env_open(environment, TemporaryFolder().c_str(), MDB_NOTLS | MDB_NOSYNC, 0600);
    mdb_txn_begin(environment, nullptr, 0, &txn);
    mdb_dbi_open(txn, nullptr, 0, &records);
    DWORD number = 0;
    for (const std::string& name : Names()) {
      MDB_val key{name.size(), const_cast<char*>(name.data())}, data{sizeof number, &number};
      mdb_put(txn, records, &key, &data, 0);
      ++number;
    }
    mdb_txn_commit(txn);
    mdb_txn_begin(environment, nullptr, MDB_RDONLY, &txn);
  }
  DWORD Get(const std::string& name) const {
    MDB_val key{name.size(), const_cast<char*>(name.data())}, data{};
    DWORD number = 0;
    if (mdb_get(txn, records, &key, &data) == 0) memcpy(&number, data.mv_data, sizeof number);
    return number;
  }
};

struct Sqlite {
  sqlite3* database = nullptr;
  sqlite3_stmt *select = nullptr, *upsert = nullptr;

  Sqlite() {
    sqlite3_open((TemporaryFolder() + "/bench.db").c_str(), &database);
    Run("PRAGMA journal_mode=WAL");
    Run("PRAGMA synchronous=OFF");
    Run("CREATE TABLE settings(name TEXT PRIMARY KEY COLLATE NOCASE, number INTEGER) WITHOUT ROWID");
    sqlite3_prepare_v2(database, "SELECT number FROM settings WHERE name = ?", -1, &select, nullptr);
    sqlite3_prepare_v2(
        database,
        "INSERT INTO settings VALUES(?, ?) ON CONFLICT(name) DO UPDATE SET number = excluded.number", -1,
        &upsert, nullptr);
    Run("BEGIN");
    DWORD number = 0;
    for (const std::string& name : Names()) Set(name, number++);
    Run("COMMIT");
  }
  void Run(const char* text) const { sqlite3_exec(database, text, nullptr, nullptr, nullptr); }
  void Set(const std::string& name, DWORD number) const {
    sqlite3_bind_text(upsert, 1, name.c_str(), static_cast<int>(name.size()), SQLITE_STATIC);
    sqlite3_bind_int64(upsert, 2, number);
    sqlite3_step(upsert);
    sqlite3_reset(upsert);
  }
  DWORD Get(const std::string& name) const {
    sqlite3_bind_text(select, 1, name.c_str(), static_cast<int>(name.size()), SQLITE_STATIC);
    const DWORD number =
        sqlite3_step(select) == SQLITE_ROW ? static_cast<DWORD>(sqlite3_column_int64(select, 0)) : 0;
    sqlite3_reset(select);
    return number;
  }
};

// The one of its kind, made when it is first asked for.
template <class Store>
const Store& Get() {
  static const Store store;
  return store;
}

// Reads the values in turn, so that no store answers from what it gave last.
template <class Store>
void ReadInTurn(const Store& store, size_t n) {
  static const std::vector<std::string> names = Names();
  for (size_t i = 0; i < n; ++i) bench::Keep(store.Get(names[i * 7 % values]));
}

template <class Store>
void ReadOne(const Store& store, size_t n) {
  static const std::string name = "value500";
  while (n--) bench::Keep(store.Get(name));
}

template <class Store>
void Write(const Store& store, size_t n) {
  static DWORD number = values;
  static const std::string name = "value500";
  while (n--) store.Set(name, number++);
}

// A key with this many values and as many subkeys, for the life of this object.
class LargeKey {
 public:
  explicit LargeKey(DWORD size) : mPath("Bench\\Growth" + std::to_string(size)) {
    RegCreateKeyExA(HKEY_CURRENT_USER, mPath.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &mKey, nullptr);
    OrmRegBeginTransaction(mKey, std::uint64_t{size} * 1024);
    for (DWORD i = 0; i < size; ++i) {
      mNames.push_back("name" + std::to_string(i));
      RegSetValueExA(mKey, mNames.back().c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&i), sizeof i);
      HKEY subkey = nullptr;
      RegCreateKeyExA(mKey, mNames.back().c_str(), 0, nullptr, 0, KEY_READ, nullptr, &subkey, nullptr);
      RegCloseKey(subkey);
    }
    OrmRegCommitTransaction(mKey);
  }
  ~LargeKey() {
    OrmRegBeginTransaction(mKey, std::uint64_t{mNames.size()} * 1024);
    for (const std::string& name : mNames) RegDeleteKeyA(mKey, name.c_str());
    OrmRegCommitTransaction(mKey);
    RegCloseKey(mKey);
    RegDeleteKeyA(HKEY_CURRENT_USER, mPath.c_str());
  }
  LargeKey(const LargeKey&) = delete;
  LargeKey& operator=(const LargeKey&) = delete;

  void OpenOne(size_t i) const {
    HKEY subkey = nullptr;
    RegOpenKeyExA(mKey, Name(i), 0, KEY_READ, &subkey);
    RegCloseKey(subkey);
  }
  void ReadOne(size_t i) const {
    DWORD number = 0, size = sizeof number;
    RegQueryValueExA(mKey, Name(i), nullptr, nullptr, reinterpret_cast<BYTE*>(&number), &size);
    bench::Keep(number);
  }
  void EnumValue(size_t i) const {
    char name[64];
    DWORD size = sizeof name;
    RegEnumValueA(mKey, static_cast<DWORD>(i % mNames.size()), name, &size, nullptr, nullptr, nullptr,
                  nullptr);
    bench::Keep(size);
  }
  void EnumSubkey(size_t i) const {
    char name[64];
    DWORD size = sizeof name;
    RegEnumKeyExA(mKey, static_cast<DWORD>(i % mNames.size()), name, &size, nullptr, nullptr, nullptr,
                  nullptr);
    bench::Keep(size);
  }

 private:
  const char* Name(size_t i) const { return mNames[i * 7 % mNames.size()].c_str(); }

  std::string mPath;
  std::vector<std::string> mNames;
  HKEY mKey = nullptr;
};

void AddGrowths(bench::Table& table) {
  const auto add = [&table](const char* name, const char* unit, const char* operation,
                            void (LargeKey::*work)(size_t) const) {
    table.Add(bench::Growth{.name = name,
                            .unit = unit,
                            .sizes = {10, 100, 1'000, 10'000},
                            .prepare = [work](size_t size) -> bench::Operation {
                              return [key = std::make_shared<LargeKey>(static_cast<DWORD>(size)),
                                      work](size_t n) {
                                for (size_t i = 0; i < n; ++i) ((*key).*work)(i);
                              };
                            },
                            .operation = operation});
  };
  add("registry: open a subkey", "subkeys", "open", &LargeKey::OpenOne);
  add("registry: read a value", "values", "read", &LargeKey::ReadOne);
  add("registry: enumerate values", "values", "value", &LargeKey::EnumValue);
  add("registry: enumerate subkeys", "subkeys", "subkey", &LargeKey::EnumSubkey);
}

}  // namespace

void AddRegistryRows(bench::Table& table) {
  AddGrowths(table);
  table.Add(
      bench::Row{.name = "registry value read, warm",
                 .peer = "mdb_get in an open transaction (LMDB)",
                 .goal = 2,
                 .ours = [](size_t n) { ReadInTurn(Get<Registry>(), n); },
                 .theirs = [](size_t n) { ReadInTurn(Get<Lmdb>(), n); },
                 .note = "1,000 values read in turn; the peer holds its transaction open, ours does not"});
  table.Add(bench::Row{.name = "registry value read, warm, beside a database",
                       .peer = "prepared SELECT (SQLite)",
                       .goal = 0.1,
                       .ours = [](size_t n) { ReadInTurn(Get<Registry>(), n); },
                       .theirs = [](size_t n) { ReadInTurn(Get<Sqlite>(), n); }});
  table.Add(bench::Row{.name = "registry value read, unchanged since the last read",
                       .peer = "mdb_get in an open transaction (LMDB)",
                       .goal = 1,
                       .ours = [](size_t n) { ReadOne(Get<Registry>(), n); },
                       .theirs = [](size_t n) { ReadOne(Get<Lmdb>(), n); }});
  table.Add(bench::Row{.name = "registry value write",
                       .peer = "one UPSERT a transaction (SQLite, WAL)",
                       .goal = 0.5,
                       .ours = [](size_t n) { Write(Get<Registry>(), n); },
                       .theirs = [](size_t n) { Write(Get<Sqlite>(), n); },
                       .note = "equal durability: survives the death of the process, not the loss of power"});
}
