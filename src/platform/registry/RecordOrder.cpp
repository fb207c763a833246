// Records in their order: one after the other, and by their place.
#include "registry/Cursor.h"
#include "registry/Records.h"

namespace orm::platform {

DWORD ForEach(MDB_txn* txn, const RecordKey& prefix,
              const std::function<bool(const MDB_val&, const MDB_val&)>& visit) {
  Cursor cursor;
  if (const DWORD error = cursor.Open(txn); error != ERROR_SUCCESS) return error;
  MDB_val key = prefix.Val();
  MDB_val record{};
  int result = mdb_cursor_get(cursor.Get(), &key, &record, MDB_SET_RANGE);
  while (result == 0 && prefix.Begins(key) && visit(key, record)) {
    result = mdb_cursor_get(cursor.Get(), &key, &record, MDB_NEXT);
  }
  return result == 0 || result == MDB_NOTFOUND ? ERROR_SUCCESS : ErrorFromStore(result);
}

DWORD GetByIndex(MDB_txn* txn, const RecordKey& prefix, DWORD index,
                 const std::function<bool(const MDB_val&)>& counts, Position* position, MDB_val* record) {
  Cursor cursor;
  if (const DWORD error = cursor.Open(txn); error != ERROR_SUCCESS) return error;
  const bool isNext = position->txn != Position::nowhere && position->index + 1 == index;
  const bool isOnTheWay = isNext || (position->txn == mdb_txn_id(txn) && position->index <= index);
  MDB_val key = isOnTheWay ? position->key.Val() : prefix.Val();
  int result = mdb_cursor_get(cursor.Get(), &key, record, MDB_SET_RANGE);
  const auto next = [&] { result = mdb_cursor_get(cursor.Get(), &key, record, MDB_NEXT); };
  // The record of the position may be gone; then the one behind it is here already.
  if (isNext && result == 0 && key.mv_size == position->key.size && position->key.Begins(key)) next();
  DWORD left = isNext ? 0 : isOnTheWay ? index - position->index : index;
  for (; result == 0 && prefix.Begins(key); next()) {
    if (counts && !counts(*record)) continue;
    if (left == 0) break;
    --left;
  }
  if (result == MDB_NOTFOUND || (result == 0 && !prefix.Begins(key))) return ERROR_NO_MORE_ITEMS;
  if (result != 0) return ErrorFromStore(result);
  *position = {mdb_txn_id(txn), index, {}};
  position->key.Append({static_cast<const char*>(key.mv_data), key.mv_size});
  return ERROR_SUCCESS;
}

}  // namespace orm::platform
