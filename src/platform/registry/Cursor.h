// A place in the records of a store, within a transaction.
#pragma once

#include <lmdb.h>

#include "registry/Hive.h"
#include "win32/errors.h"

namespace orm::platform {

class Cursor {
 public:
  Cursor() = default;
  ~Cursor() {
    if (mCursor != nullptr) mdb_cursor_close(mCursor);
  }
  Cursor(const Cursor&) = delete;
  Cursor& operator=(const Cursor&) = delete;

  // Once.
  DWORD Open(MDB_txn* txn) {
    const int result = mdb_cursor_open(txn, records, &mCursor);
    return result == 0 ? ERROR_SUCCESS : ErrorFromStore(result);
  }
  [[nodiscard]] MDB_cursor* Get() const { return mCursor; }

 private:
  MDB_cursor* mCursor = nullptr;
};

}  // namespace orm::platform
