// table.dll: tables of text in SQLite files.
#include <ormutil/Component.h>
#include <ormutil/Error.h>
#include <sqlite3.h>

#include <memory>
#include <string>

#include "Table.h"

namespace {

using orm::String;

class Database {
 public:
  Database(const String& path, int flags) {
    const int result = sqlite3_open_v2(path.GetBegin(), &mpDatabase, flags, nullptr);
    if (result == SQLITE_OK) return;
    const std::string reason = sqlite3_errstr(result);
    sqlite3_close(mpDatabase);
    throw orm::Error(orm::ERROR_GENERAL,
                     String::FormatInserts("Cannot open database '%1': %2.", path, reason.c_str()));
  }
  ~Database() { sqlite3_close(mpDatabase); }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  void Execute(const std::string& sql) {
    if (sqlite3_exec(mpDatabase, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) Throw();
  }
  [[noreturn]] void Throw() { throw orm::Error(orm::ERROR_GENERAL, sqlite3_errmsg(mpDatabase)); }
  sqlite3* Get() { return mpDatabase; }

 private:
  sqlite3* mpDatabase = nullptr;
};

class Statement {
 public:
  Statement(Database& rDatabase, const std::string& sql) : mrDatabase(rDatabase) {
    if (sqlite3_prepare_v2(rDatabase.Get(), sql.c_str(), -1, &mpStatement, nullptr) != SQLITE_OK) {
      rDatabase.Throw();
    }
  }
  ~Statement() { sqlite3_finalize(mpStatement); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  // True while there is a row.
  bool Step() {
    const int result = sqlite3_step(mpStatement);
    if (result != SQLITE_ROW && result != SQLITE_DONE) mrDatabase.Throw();
    return result == SQLITE_ROW;
  }
  void Run(const TableRow& values) {
    for (size_t i = 0; i < values.size(); ++i) {
      sqlite3_bind_text(mpStatement, static_cast<int>(i) + 1, values[i].GetBegin(), -1, SQLITE_TRANSIENT);
    }
    Step();
    sqlite3_reset(mpStatement);
  }
  int GetWidth() { return sqlite3_column_count(mpStatement); }
  String GetName(int column) { return sqlite3_column_name(mpStatement, column); }
  String GetText(int column) {
    return reinterpret_cast<const char*>(sqlite3_column_text(mpStatement, column));
  }

 private:
  Database& mrDatabase;
  sqlite3_stmt* mpStatement = nullptr;
};

std::string Quote(const String& name) {
  std::string quoted = "\"";
  for (const char* c = name.GetBegin(); *c != 0; ++c) quoted.append(*c == '"' ? 2 : 1, *c);
  return quoted + '"';
}

// `item(i)` for each of `count`, between commas.
template <class Item>
std::string List(size_t count, Item item) {
  std::string list;
  for (size_t i = 0; i < count; ++i) list += (i == 0 ? "" : ", ") + item(i);
  return "(" + list + ")";
}

class Table final : public orm::ComponentObject<TableReader, TableWriter> {
 public:
  static constexpr const char* CLASS_ID = "CID_Table";

  std::vector<TableRow> Read(const String& path, const String& table) override {
    Database database(path, SQLITE_OPEN_READONLY);
    Statement statement(database, "SELECT * FROM " + Quote(table) + " ORDER BY rowid");
    std::vector<TableRow> rows(1);
    for (int i = 0; i < statement.GetWidth(); ++i) rows[0].push_back(statement.GetName(i));
    while (statement.Step()) {
      TableRow& row = rows.emplace_back();
      for (int i = 0; i < statement.GetWidth(); ++i) row.push_back(statement.GetText(i));
    }
    return rows;
  }

  void Append(const String& path, const String& table, const std::vector<TableRow>& rows) override {
    if (rows.empty()) return;
    const TableRow& columns = rows[0];
    Database database(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    // Closing the database without the commit takes everything back.
    database.Execute("BEGIN IMMEDIATE");
    database.Execute("CREATE TABLE IF NOT EXISTS " + Quote(table) +
                     List(columns.size(), [&](size_t i) { return Quote(columns[i]); }));
    {
      Statement insert(database, "INSERT INTO " + Quote(table) + " VALUES " +
                                     List(columns.size(), [](size_t) { return std::string("?"); }));
      for (size_t i = 1; i < rows.size(); ++i) insert.Run(rows[i]);
    }
    database.Execute("COMMIT");
  }
};

using Classes = orm::ComponentClasses<Table>;

}  // namespace

void LibEnumClasses(std::vector<orm::ClassDescription>& classes) {
  Classes::Enum(classes);
}
void LibCreateInstance(const String& classId, orm::FacePtr<orm::BaseFace>& object) {
  Classes::Create(classId, object);
}
bool LibCanUnload(bool) {
  return orm::CanUnloadComponent();
}
