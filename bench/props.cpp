// Rows of property bags and time texts.
#include <lmdb.h>
#include <ormutil/MemoryProperties.h>
#include <ormutil/PersistentProperties.h>
#include <ormutil/UtcTime.h>
#include <sqlite3.h>
#include <strings.h>
#include <time.h>

#include <cereal/archives/binary.hpp>
#include <cereal/types/map.hpp>
#include <cereal/types/string.hpp>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>

#include "harness/Rooms.h"

#ifdef ORM_BENCH_QT
#include <QSettings>
#endif

using namespace orm;

namespace {

struct NoCase {
  bool operator()(const std::string& a, const std::string& b) const {
    return strcasecmp(a.c_str(), b.c_str()) < 0;
  }
};
using Map = std::map<std::string, uint32_t, NoCase>;

// The same names in the spelling in which they are set, and in the one in which they are asked for.
struct Names {
  explicit Names(size_t count) {
    static const char* const kWords[] = {"Window", "Font", "Colour", "Recent",
                                         "Print",  "View", "Tool",   "Page"};
    const size_t range = count <= 1'000 ? 1'000 : 100'000;
    for (size_t i = 0; i < count; ++i) {
      std::string name = std::string(kWords[i % 8]) + kWords[i / 8 % 8] + std::to_string(i * 7919 % range);
      set.push_back(name);
      for (size_t c = 0; c < name.size(); ++c) {
        name[c] = static_cast<char>((c + i) % 3 == 0 ? std::toupper(name[c]) : std::tolower(name[c]));
      }
      asked.push_back(name);
    }
    for (const std::string& name : set) setStrings.emplace_back(name.c_str());
    for (const std::string& name : asked) askedStrings.emplace_back(name.c_str());
  }
  std::vector<std::string> set, asked;
  std::vector<String> setStrings, askedStrings;
};

struct Pair {
  explicit Pair(size_t count) : names(count) {
    for (size_t i = 0; i < count; ++i) {
      bag.SetNumber(names.setStrings[i], static_cast<DWORD>(i));
      map[names.set[i]] = static_cast<uint32_t>(i);
    }
  }
  Names names;
  MemoryProperties bag;
  Map map;
};

DWORD GetInTurn(const Pair& pair, size_t i) {
  return pair.bag.GetNumber(pair.names.askedStrings[i * 7 % pair.names.askedStrings.size()], 0);
}

void SetInTurn(Pair& pair, size_t i) {
  const auto& names = pair.names.askedStrings;
  pair.bag.SetNumber(names[i * 7 % names.size()], static_cast<DWORD>(i));
}

bench::Sides PrepareGet(size_t count) {
  const auto pair = std::make_shared<Pair>(count);
  return {[pair](size_t n) {
            for (size_t i = 0; i < n; ++i) bench::Keep(GetInTurn(*pair, i));
          },
          [pair](size_t n) {
            const auto& names = pair->names.asked;
            for (size_t i = 0; i < n; ++i) {
              const auto found = pair->map.find(names[i * 7 % names.size()]);
              bench::Keep(found == pair->map.end() ? 0 : found->second);
            }
          }};
}

bench::Sides PrepareSet(size_t count) {
  const auto pair = std::make_shared<Pair>(count);
  return {[pair](size_t n) {
            for (size_t i = 0; i < n; ++i) SetInTurn(*pair, i);
          },
          [pair](size_t n) {
            const auto& names = pair->names.asked;
            for (size_t i = 0; i < n; ++i) pair->map[names[i * 7 % names.size()]] = static_cast<uint32_t>(i);
          }};
}

void Fill(const std::vector<String>& names) {
  MemoryProperties bag;
  for (const String& name : names) bag.SetNumber(name, 1);
  bench::Keep(&bag);
}

bench::Sides PrepareFill(size_t count) {
  const auto names = std::make_shared<Names>(count);
  return {[names](size_t n) {
            while (n-- > 0) Fill(names->setStrings);
          },
          [names](size_t n) {
            while (n-- > 0) {
              Map map;
              for (const std::string& name : names->set) map[name] = 1;
              bench::Keep(&map);
            }
          }};
}

bench::Sides PrepareCopy() {
  const auto pair = std::make_shared<Pair>(1'000);
  return {[pair](size_t n) {
            while (n-- > 0) {
              const MemoryProperties copy = pair->bag;
              bench::Keep(&copy);
            }
          },
          [pair](size_t n) {
            while (n-- > 0) {
              const Map copy = pair->map;
              bench::Keep(&copy);
            }
          }};
}

bench::Sides PrepareExport() {
  const auto pair = std::make_shared<Pair>(1'000);
  return {[pair](size_t n) {
            while (n-- > 0) {
              MemoryProperties copy;
              copy.Import(pair->bag.Export());
              bench::Keep(&copy);
            }
          },
          [pair](size_t n) {
            while (n-- > 0) {
              std::stringstream stream;
              cereal::BinaryOutputArchive out(stream);
              out(pair->map);
              Map copy;
              cereal::BinaryInputArchive in(stream);
              in(copy);
              bench::Keep(&copy);
            }
          }};
}

void AddMemoryRows(bench::Table& table) {
  constexpr const char* kPeer = "std::map with a strcasecmp order";
  for (const size_t count : {20u, 1'000u}) {
    const std::string suffix = ", " + std::to_string(count) + " names, mixed case";
    const auto add = [&](const char* name, double goal, bench::Sides (*prepare)(size_t)) {
      table.Add(bench::Row{
          .name = name + suffix, .peer = kPeer, .goal = goal, .prepare = [=] { return prepare(count); }});
    };
    add("get a number of a memory bag", 0.7, PrepareGet);
    add("set a number of a memory bag", 1.0, PrepareSet);
    add("fill an empty memory bag", 1.0, PrepareFill);
  }
  table.Add(bench::Row{.name = "copy a bag of 1,000 properties",
                       .peer = "copy of that std::map",
                       .goal = 0.001,
                       .prepare = PrepareCopy});
  table.Add(bench::Row{.name = "export and import a bag of 1,000 properties",
                       .peer = "cereal, binary, of that std::map",
                       .goal = 0.7,
                       .prepare = PrepareExport});
}

// One operation is one property, except for the copy, which is one bag.
void AddMemoryGrowths(bench::Table& table) {
  const auto add = [&table](const char* name, std::function<bench::Operation(size_t)> prepare,
                            const char* operation, bool wholePasses = false) {
    table.Add(bench::Growth{.name = name,
                            .unit = "properties",
                            .sizes = {10, 100, 1'000, 10'000, 100'000},
                            .prepare = std::move(prepare),
                            .operation = operation,
                            .wholePasses = wholePasses});
  };
  add(
      "memory bag: get a number", [](size_t size) { return PrepareGet(size).ours; }, "get");
  add(
      "memory bag: set a number", [](size_t size) { return PrepareSet(size).ours; }, "set");
  add(
      "memory bag: fill",
      [](size_t size) -> bench::Operation {
        return [names = std::make_shared<Names>(size), size](size_t n) {
          for (size_t done = 0; done < n; done += size) Fill(names->setStrings);
        };
      },
      "property", true);
  add(
      "memory bag: enumerate",
      [](size_t size) -> bench::Operation {
        return [pair = std::make_shared<Pair>(size), size](size_t n) {
          for (size_t done = 0; done < n; done += size) bench::Keep(pair->bag.EnumProperties().data());
        };
      },
      "property", true);
  add(
      "memory bag: copy",
      [](size_t size) -> bench::Operation {
        return [pair = std::make_shared<Pair>(size)](size_t n) {
          while (n-- > 0) {
            const MemoryProperties copy = pair->bag;
            bench::Keep(&copy);
          }
        };
      },
      "bag");
}

// A bag of 20 numbers in the registry, its key held open.
std::shared_ptr<PersistentProperties> OpenBag() {
  auto bag = std::make_shared<PersistentProperties>();
  bag->Open("Bench", true);
  for (const String& name : Names(20).setStrings) bag->SetNumber(name, 7);
  return bag;
}

std::string WorkPath(const char* name) {
  const char* machine = std::getenv("ORM_MACHINE");
  return (machine ? std::string(machine) : std::filesystem::temp_directory_path().string()) + "/" + name;
}

// The same numbers in a table of an SQLite database that, like the registry, survives the death of the
// process and not the loss of power: a write-ahead log that nobody waits for.
class Database {
 public:
  Database() {
    sqlite3_open(WorkPath("bench.sqlite").c_str(), &mpDatabase);
    for (const char* statement : {"PRAGMA journal_mode=WAL", "PRAGMA synchronous=OFF",
                                  "CREATE TABLE IF NOT EXISTS p (name TEXT PRIMARY KEY COLLATE NOCASE, value "
                                  "INTEGER) WITHOUT ROWID"}) {
      sqlite3_exec(mpDatabase, statement, nullptr, nullptr, nullptr);
    }
    sqlite3_prepare_v2(mpDatabase, "SELECT value FROM p WHERE name=?1", -1, &mpSelect, nullptr);
    sqlite3_prepare_v2(mpDatabase,
                       "INSERT INTO p VALUES(?1,?2) ON CONFLICT(name) DO UPDATE SET value=excluded.value", -1,
                       &mpUpsert, nullptr);
    for (const std::string& name : Names(20).set) Write(name, 7);
  }
  ~Database() {
    sqlite3_finalize(mpSelect);
    sqlite3_finalize(mpUpsert);
    sqlite3_close(mpDatabase);
  }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  int Read(const std::string& name) {
    sqlite3_bind_text(mpSelect, 1, name.c_str(), static_cast<int>(name.size()), SQLITE_STATIC);
    const int value = sqlite3_step(mpSelect) == SQLITE_ROW ? sqlite3_column_int(mpSelect, 0) : -1;
    sqlite3_reset(mpSelect);
    return value;
  }
  void Write(const std::string& name, int value) {
    sqlite3_bind_text(mpUpsert, 1, name.c_str(), static_cast<int>(name.size()), SQLITE_STATIC);
    sqlite3_bind_int(mpUpsert, 2, value);
    sqlite3_step(mpUpsert);
    sqlite3_reset(mpUpsert);
  }

 private:
  sqlite3* mpDatabase = nullptr;
  sqlite3_stmt* mpSelect = nullptr;
  sqlite3_stmt* mpUpsert = nullptr;
};

// The same numbers in an LMDB of their own, read inside one transaction.
class Lmdb {
 public:
  Lmdb() {
    std::filesystem::create_directories(WorkPath("bench.lmdb"));
    mdb_env_create(&mpEnvironment);
    mdb_env_open(mpEnvironment, WorkPath("bench.lmdb").c_str(), MDB_NOSYNC, 0600);
    MDB_txn* write = nullptr;
    mdb_txn_begin(mpEnvironment, nullptr, 0, &write);
    mdb_dbi_open(write, nullptr, 0, &mDatabase);
    for (const std::string& name : Names(20).set) {
      uint32_t number = 7;
      MDB_val key{name.size(), const_cast<char*>(name.data())}, value{sizeof number, &number};
      mdb_put(write, mDatabase, &key, &value, 0);
    }
    mdb_txn_commit(write);
    mdb_txn_begin(mpEnvironment, nullptr, MDB_RDONLY, &mpRead);
  }
  ~Lmdb() {
    mdb_txn_abort(mpRead);
    mdb_env_close(mpEnvironment);
  }
  Lmdb(const Lmdb&) = delete;
  Lmdb& operator=(const Lmdb&) = delete;

  uint32_t Read(const std::string& name) {
    MDB_val key{name.size(), const_cast<char*>(name.data())}, value{};
    return mdb_get(mpRead, mDatabase, &key, &value) == 0 ? *static_cast<uint32_t*>(value.mv_data) : 0;
  }

 private:
  MDB_env* mpEnvironment = nullptr;
  MDB_txn* mpRead = nullptr;
  MDB_dbi mDatabase = 0;
};

bench::Operation ReadNumbers() {
  return [bag = OpenBag(), names = std::make_shared<Names>(20)](size_t n) {
    for (size_t i = 0; i < n; ++i) bench::Keep(bag->GetNumber(names->setStrings[i % 20]));
  };
}

// Reads from a store that has the same names.
template <class Store>
bench::Operation ReadFrom() {
  return [store = std::make_shared<Store>(), names = std::make_shared<Names>(20)](size_t n) {
    for (size_t i = 0; i < n; ++i) bench::Keep(store->Read(names->set[i % 20]));
  };
}

bench::Sides PrepareWrite() {
  const auto names = std::make_shared<Names>(20);
  return {[bag = OpenBag(), names](size_t n) {
            for (size_t i = 0; i < n; ++i) bag->SetNumber(names->setStrings[i % 20], static_cast<DWORD>(i));
          },
          [database = std::make_shared<Database>(), names](size_t n) {
            for (size_t i = 0; i < n; ++i) database->Write(names->set[i % 20], static_cast<int>(i));
          }};
}

#ifdef ORM_BENCH_QT
bench::Operation ReadSettings() {
  const auto settings =
      std::make_shared<QSettings>(QString::fromStdString(WorkPath("bench.ini")), QSettings::IniFormat);
  const auto keys = std::make_shared<std::vector<QString>>();
  for (const std::string& name : Names(20).set) {
    keys->push_back(QString::fromStdString(name));
    settings->setValue(keys->back(), 7u);
  }
  settings->sync();
  return [settings, keys](size_t n) {
    for (size_t i = 0; i < n; ++i) bench::Keep(settings->value((*keys)[i % 20]).toUInt());
  };
}
#endif

void AddPersistentRows(bench::Table& table) {
  table.Add(bench::Row{.name = "read a number of a persistent bag, key held open",
                       .peer = "SQLite, prepared SELECT",
                       .goal = 0.1,
                       .prepare = [] {
                         return bench::Sides{ReadNumbers(), ReadFrom<Database>()};
                       }});
#ifdef ORM_BENCH_QT
  table.Add(bench::Row{.name = "read a number of a persistent bag, beside an INI file in memory",
                       .peer = "QSettings value().toUInt()",
                       .goal = 1.0,
                       .prepare = [] {
                         return bench::Sides{ReadNumbers(), ReadSettings()};
                       }});
#endif
  table.Add(bench::Row{.name = "read a number of a persistent bag, unchanged since the last read",
                       .peer = "one mdb_get in an open transaction (LMDB)",
                       .goal = 1.0,
                       .prepare = [] {
                         return bench::Sides{ReadNumbers(), ReadFrom<Lmdb>()};
                       }});
  table.Add(bench::Row{
      .name = "write a number of a persistent bag",
      .peer = "SQLite, one UPSERT a transaction",
      .goal = 0.5,
      .prepare = PrepareWrite,
      .note = "both survive the death of the process, neither the loss of power (WAL, synchronous=OFF)"});
}

// To seconds and back by the C library. A fraction is beyond it.
bench::Sides PrepareTimes() {
  const auto texts = std::make_shared<std::vector<String>>();
  for (WORD i = 0; i < 100; ++i) {
    texts->push_back(
        UtcTime::GetUtc(static_cast<WORD>(1990 + i % 50), 1 + i % 12, 1 + i % 28, i % 24, i % 60, i % 60, 0)
            .ToStringGeneralizedTime());
  }
  return {[texts](size_t n) {
            for (size_t i = 0; i < n; ++i) {
              const UtcTime time = UtcTime::FromStringGeneralizedTime((*texts)[i % 100]);
              const String text = time.ToStringGeneralizedTime();
              bench::Keep(text.GetBegin());
            }
          },
          [texts](size_t n) {
            for (size_t i = 0; i < n; ++i) {
              tm elements{};
              strptime((*texts)[i % 100].GetBegin(), "%Y%m%d%H%M%S", &elements);
              const time_t time = timegm(&elements);
              char text[32];
              gmtime_r(&time, &elements);
              strftime(text, sizeof text, "%Y%m%d%H%M%SZ", &elements);
              bench::Keep(&text);
            }
          }};
}

}  // namespace

void AddPropertyRows(bench::Table& table) {
  AddMemoryRows(table);
  AddPersistentRows(table);
  table.Add(bench::Row{.name = "GeneralizedTime text to time and back",
                       .peer = "strptime + timegm, gmtime_r + strftime",
                       .goal = 1.0,
                       .prepare = PrepareTimes});
  AddMemoryGrowths(table);
}
