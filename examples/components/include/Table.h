// Faces of objects that keep a table of text in a database file. One object answers both.
#pragma once

#include <ormutil/FacePtr.h>

#include <vector>

using TableRow = std::vector<orm::String>;

// Paths are those of the C runtime. Every operation throws an orm::Error with the database's message when it
// fails, and may be called by one thread at a time.
struct TableReader : orm::BaseFace {
  static constexpr const char* FACE_ID = "IID_TableReader";

  // The rows of a table in the order in which they were added; the first row holds the names of the columns.
  virtual std::vector<TableRow> Read(const orm::String& path, const orm::String& table) = 0;
};

struct TableWriter : orm::BaseFace {
  static constexpr const char* FACE_ID = "IID_TableWriter";

  // Adds rows in one transaction, all or none. `rows[0]` names the columns; a table that is not there is
  // made, a file too.
  virtual void Append(const orm::String& path, const orm::String& table,
                      const std::vector<TableRow>& rows) = 0;
};
