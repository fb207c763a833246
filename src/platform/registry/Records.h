// How keys and values are laid down in a store, and the operations on them inside one transaction.
//
// A key of the registry is a number; the root is 1, numbers are never used again. Records (the first byte
// tells the kind; numbers in keys are big-endian, so that what belongs to one key lies together; names in
// keys are folded to lower case, so that the order of the records is the order of the names):
//   'M'                       version (4 bytes), least free key number (8)
//   'I' key                   parent (8), last write (8, 100 ns since 1601), flags (4), class name
//   'K' key, folded name      subkey number (8), flags (1), name as spelled
//   'V' key, folded name      type (4), length of the name (2), name as spelled, data
// Numbers in contents are little-endian. A folded name of more than 480 bytes is replaced by its first 480, a
// 64-bit hash of it and a counter, since LMDB's keys end at 511 bytes.
#pragma once

#include <lmdb.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string_view>

#include "win32/types.h"

namespace orm::platform {

inline constexpr std::uint64_t rootKey = 1;
inline constexpr std::uint64_t noKey = 0;  // the parent of the root, and of a key that another store links to
inline constexpr std::size_t maxKeyName = 255;
inline constexpr std::size_t maxValueName = 16383;

enum class RecordKind : unsigned char { Meta = 'M', Info = 'I', SubKey = 'K', Value = 'V' };

// The key of a record, or the common beginning of several.
struct RecordKey {
  std::uint16_t size = 0;
  std::array<unsigned char, 511> bytes;

  [[nodiscard]] MDB_val Val() const { return {size, const_cast<unsigned char*>(bytes.data())}; }
  [[nodiscard]] bool Begins(const MDB_val& other) const;
  // Becomes what PrefixOf returns, without a copy of half a thousand bytes.
  void Begin(RecordKind kind, std::uint64_t key);
  void Append(std::string_view text);
};

// Views of records; they end with the transaction or its next write.
struct SubKeyRecord {
  std::uint64_t id = 0;
  bool isLink = false;  // the number is one of the open store
  std::string_view name;
};
struct ValueRecord {
  DWORD type = 0;
  std::string_view name;
  std::string_view data;
};
struct InfoRecord {
  std::uint64_t parent = noKey;
  std::uint64_t lastWrite = 0;
  std::string_view className;
};

RecordKey PrefixOf(RecordKind kind, std::uint64_t key);
// The key of the registry that a record belongs to; meaningless for a record key of less than 9 bytes.
std::uint64_t OwnerOf(const MDB_val& at);
bool Parse(const MDB_val& record, SubKeyRecord* subKey);
bool Parse(const MDB_val& record, ValueRecord* value);
bool Parse(const MDB_val& record, InfoRecord* info);

// All return 0 or an error number; ERROR_FILE_NOT_FOUND when the thing asked for is absent, ERROR_BADDB for a
// record that cannot be read.
DWORD GetInfo(MDB_txn* txn, std::uint64_t key, InfoRecord* info);
// ERROR_SUCCESS, or ERROR_KEY_DELETED when there is no such key.
DWORD CheckAlive(MDB_txn* txn, std::uint64_t key);
DWORD GetSubKey(MDB_txn* txn, std::uint64_t key, std::string_view name, SubKeyRecord* subKey);
DWORD GetValue(MDB_txn* txn, std::uint64_t key, std::string_view name, ValueRecord* value);

// A key that hangs below `parent`, or below nothing when that is noKey.
DWORD MakeKey(MDB_txn* txn, std::uint64_t parent, std::string_view className, std::uint64_t* id);
DWORD PutSubKey(MDB_txn* txn, std::uint64_t key, const SubKeyRecord& subKey);
DWORD PutValue(MDB_txn* txn, std::uint64_t key, const ValueRecord& value);
DWORD DropSubKey(MDB_txn* txn, std::uint64_t key, std::string_view name);
DWORD DropValue(MDB_txn* txn, std::uint64_t key, std::string_view name);
// The values and the information of a key; ERROR_ACCESS_DENIED while it has subkeys.
DWORD DropKey(MDB_txn* txn, std::uint64_t key);

// Where an enumeration by rising index has come to: the record with that index in that transaction.
struct Position {
  static constexpr std::uint64_t nowhere = ~std::uint64_t{0};

  std::uint64_t txn = nowhere;
  DWORD index = 0;
  RecordKey key;
};

// The record with the given index among those that begin with `prefix`; ERROR_NO_MORE_ITEMS behind the last.
// Starts at *position when that is of this transaction and not behind the index, and moves it to the result.
// The index after that of *position is the record after it in any transaction: who enumerates one after the
// other meets each record that stays, whatever comes and goes meanwhile. Records for which `counts` (may be
// empty) returns false are passed over.
DWORD GetByIndex(MDB_txn* txn, const RecordKey& prefix, DWORD index,
                 const std::function<bool(const MDB_val& record)>& counts, Position* position,
                 MDB_val* record);

// Calls `visit` on each record that begins with `prefix`, in order, until it returns false.
DWORD ForEach(MDB_txn* txn, const RecordKey& prefix,
              const std::function<bool(const MDB_val& key, const MDB_val& record)>& visit);

}  // namespace orm::platform
