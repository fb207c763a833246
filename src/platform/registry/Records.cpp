// Keys and values in a store.
#include "registry/Records.h"

#include <time.h>

#include <algorithm>
#include <cstring>

#include "registry/Cursor.h"
#include "registry/FoldedName.h"
#include "registry/Hive.h"
#include "win32/errors.h"

namespace orm::platform {
namespace {

constexpr std::size_t longestInKey = 480;
constexpr std::uint32_t formatVersion = 1;
constexpr std::uint64_t ticksTo1970 = 116444736000000000u;

template <class T>
void AppendNumber(std::string* text, T value) {
  for (std::size_t i = 0; i < sizeof value; ++i) text->push_back(static_cast<char>(value >> (8 * i)));
}

template <class T>
T NumberAt(const MDB_val& record, std::size_t offset) {
  const auto* bytes = static_cast<const unsigned char*>(record.mv_data) + offset;
  T value = 0;
  for (std::size_t i = 0; i < sizeof value; ++i) value = static_cast<T>(value | T{bytes[i]} << (8 * i));
  return value;
}

std::string_view TextFrom(const MDB_val& record, std::size_t offset, std::size_t size) {
  return {static_cast<const char*>(record.mv_data) + offset, size};
}

MDB_val ValOf(std::string_view text) {
  return {text.size(), const_cast<char*>(text.data())};
}

// FNV-1a; collisions are told apart by the names themselves.
std::uint64_t HashOf(std::string_view text) {
  std::uint64_t hash = 0xCBF29CE484222325u;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3u;
  return hash;
}

std::uint64_t Now() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return ticksTo1970 + static_cast<std::uint64_t>(now.tv_sec) * 10000000u +
         static_cast<std::uint64_t>(now.tv_nsec) / 100u;
}

// The name that a record carries, whichever of the two kinds it is.
bool NameOf(RecordKind kind, const MDB_val& record, std::string_view* name) {
  if (kind == RecordKind::Value) {
    ValueRecord value;
    const bool isSound = Parse(record, &value);
    *name = value.name;
    return isSound;
  }
  SubKeyRecord subKey;
  const bool isSound = Parse(record, &subKey);
  *name = subKey.name;
  return isSound;
}

// Leaves a cursor, if any, at the record.
DWORD Find(MDB_txn* txn, const RecordKey& key, MDB_val* record, MDB_cursor* cursor = nullptr) {
  MDB_val at = key.Val();
  const int result =
      cursor == nullptr ? mdb_get(txn, records, &at, record) : mdb_cursor_get(cursor, &at, record, MDB_SET);
  return result == 0 ? ERROR_SUCCESS : ErrorFromStore(result);
}

// Finds the record of a name. *key is its key, or the key that a new one has to get. A cursor, if any, is
// left at the record when the whole name is in the key.
DWORD Locate(MDB_txn* txn, RecordKind kind, std::uint64_t owner, std::string_view name, RecordKey* key,
             MDB_val* record, MDB_cursor* cursor = nullptr) {
  key->Begin(kind, owner);
  if (name.size() <= longestInKey && FoldAscii(name, reinterpret_cast<char*>(&key->bytes[key->size]))) {
    key->size = static_cast<std::uint16_t>(key->size + name.size());
    return Find(txn, *key, record, cursor);
  }
  const FoldedName folded(name);
  const std::string_view text = folded.View();
  if (text.size() <= longestInKey) {
    key->Append(text);
    return Find(txn, *key, record, cursor);
  }
  key->Append(text.substr(0, longestInKey));
  std::string hash;
  AppendNumber(&hash, HashOf(text));
  key->Append(hash);
  // Names with one hash follow each other by their counter; a gap is where one was deleted.
  unsigned counter = 0;
  DWORD error = ERROR_FILE_NOT_FOUND;
  const DWORD walked = ForEach(txn, *key, [&](const MDB_val& at, const MDB_val& found) {
    std::string_view spelled;
    if (at.mv_size != std::size_t{key->size} + 1 || !NameOf(kind, found, &spelled)) {
      error = ERROR_BADDB;
      return false;
    }
    const auto number = static_cast<const unsigned char*>(at.mv_data)[key->size];
    if (FoldedName(spelled).View() == text) {
      counter = number;
      *record = found;
      error = ERROR_SUCCESS;
      return false;
    }
    if (number == counter) ++counter;
    return true;
  });
  if (walked != ERROR_SUCCESS) return walked;
  if (counter > 255) return ERROR_NO_SYSTEM_RESOURCES;
  const char last = static_cast<char>(counter);
  key->Append({&last, 1});
  return error;
}

DWORD Put(MDB_txn* txn, const RecordKey& key, std::string_view content) {
  MDB_val at = key.Val();
  MDB_val record = ValOf(content);
  const int result = mdb_put(txn, records, &at, &record, 0);
  return result == 0 ? ERROR_SUCCESS : ErrorFromStore(result);
}

DWORD Drop(MDB_txn* txn, const RecordKey& key) {
  MDB_val at = key.Val();
  const int result = mdb_del(txn, records, &at, nullptr);
  return result == 0 ? ERROR_SUCCESS : ErrorFromStore(result);
}

// Puts a record in the place of the one that the cursor has found, which spares a second walk down the tree.
DWORD Replace(MDB_cursor* cursor, const RecordKey& key, std::string_view content) {
  MDB_val at = key.Val();
  MDB_val record = ValOf(content);
  const int result = mdb_cursor_put(cursor, &at, &record, MDB_CURRENT);
  return result == 0 ? ERROR_SUCCESS : ErrorFromStore(result);
}

std::string ContentOf(const InfoRecord& info) {
  std::string content;
  AppendNumber(&content, info.parent);
  AppendNumber(&content, info.lastWrite);
  AppendNumber(&content, std::uint32_t{0});
  content += info.className;
  return content;
}

DWORD PutInfo(MDB_txn* txn, std::uint64_t key, std::uint64_t parent, std::string_view className) {
  return Put(txn, PrefixOf(RecordKind::Info, key), ContentOf({parent, Now(), className}));
}

// Notes that a key was written.
DWORD Touch(MDB_txn* txn, std::uint64_t key) {
  Cursor cursor;
  if (const DWORD error = cursor.Open(txn); error != ERROR_SUCCESS) return error;
  const RecordKey at = PrefixOf(RecordKind::Info, key);
  MDB_val record{};
  const DWORD error = Find(txn, at, &record, cursor.Get());
  if (error == ERROR_FILE_NOT_FOUND) return key == rootKey ? PutInfo(txn, key, noKey, {}) : ERROR_KEY_DELETED;
  if (error != ERROR_SUCCESS) return error;
  InfoRecord info;
  if (!Parse(record, &info)) return ERROR_BADDB;
  info.lastWrite = Now();
  return Replace(cursor.Get(), at, ContentOf(info));
}

// At least the time: after a store was put back from an older copy, or was lost, what still refers to a key
// that is gone with it must not come to lead to another one.
DWORD TakeNumber(MDB_txn* txn, std::uint64_t* number) {
  RecordKey key = PrefixOf(RecordKind::Meta, 0);
  key.size = 1;
  MDB_val at = key.Val();
  MDB_val record{};
  *number = rootKey + 1;
  const int result = mdb_get(txn, records, &at, &record);
  if (result == 0) {
    if (record.mv_size != 12 || NumberAt<std::uint32_t>(record, 0) != formatVersion) return ERROR_BADDB;
    *number = NumberAt<std::uint64_t>(record, 4);
    if (*number <= rootKey) return ERROR_BADDB;
  } else if (result != MDB_NOTFOUND) {
    return ErrorFromStore(result);
  }
  *number = std::max(*number, Now());
  std::string content;
  AppendNumber(&content, formatVersion);
  AppendNumber(&content, *number + 1);
  return Put(txn, key, content);
}

}  // namespace

// ---- Keys and contents of records

bool RecordKey::Begins(const MDB_val& other) const {
  return other.mv_size >= size && std::memcmp(other.mv_data, bytes.data(), size) == 0;
}

void RecordKey::Begin(RecordKind kind, std::uint64_t key) {
  bytes[0] = static_cast<unsigned char>(kind);
  const std::uint64_t bigEndian = __builtin_bswap64(key);
  std::memcpy(&bytes[1], &bigEndian, sizeof bigEndian);
  size = 1 + sizeof bigEndian;
}

void RecordKey::Append(std::string_view text) {
  const std::size_t count = std::min(text.size(), bytes.size() - size);
  std::memcpy(bytes.data() + size, text.data(), count);
  size = static_cast<std::uint16_t>(size + count);
}

RecordKey PrefixOf(RecordKind kind, std::uint64_t key) {
  RecordKey result;
  result.Begin(kind, key);
  return result;
}

std::uint64_t OwnerOf(const MDB_val& at) {
  const auto* bytes = static_cast<const unsigned char*>(at.mv_data);
  std::uint64_t key = 0;
  for (std::size_t i = 1; i < 9 && i < at.mv_size; ++i) key = key << 8 | bytes[i];
  return key;
}

bool Parse(const MDB_val& record, SubKeyRecord* subKey) {
  if (record.mv_size < 10 || record.mv_size > 9 + maxKeyName) return false;
  subKey->id = NumberAt<std::uint64_t>(record, 0);
  subKey->isLink = NumberAt<std::uint8_t>(record, 8) != 0;
  subKey->name = TextFrom(record, 9, record.mv_size - 9);
  return subKey->id != noKey;
}

bool Parse(const MDB_val& record, ValueRecord* value) {
  if (record.mv_size < 6) return false;
  const std::size_t nameSize = NumberAt<std::uint16_t>(record, 4);
  if (nameSize > maxValueName || nameSize > record.mv_size - 6) return false;
  value->type = NumberAt<std::uint32_t>(record, 0);
  value->name = TextFrom(record, 6, nameSize);
  value->data = TextFrom(record, 6 + nameSize, record.mv_size - 6 - nameSize);
  return true;
}

bool Parse(const MDB_val& record, InfoRecord* info) {
  if (record.mv_size < 20) return false;
  info->parent = NumberAt<std::uint64_t>(record, 0);
  info->lastWrite = NumberAt<std::uint64_t>(record, 8);
  info->className = TextFrom(record, 20, record.mv_size - 20);
  return true;
}

// ---- Reading

DWORD GetInfo(MDB_txn* txn, std::uint64_t key, InfoRecord* info) {
  const RecordKey at = PrefixOf(RecordKind::Info, key);
  MDB_val name = at.Val();
  MDB_val record{};
  const int result = mdb_get(txn, records, &name, &record);
  if (result == MDB_NOTFOUND && key == rootKey) {
    *info = {};  // the root is there before anything was written
    return ERROR_SUCCESS;
  }
  if (result != 0) return ErrorFromStore(result);
  return Parse(record, info) ? ERROR_SUCCESS : ERROR_BADDB;
}

DWORD CheckAlive(MDB_txn* txn, std::uint64_t key) {
  InfoRecord info;
  const DWORD error = GetInfo(txn, key, &info);
  return error == ERROR_FILE_NOT_FOUND ? ERROR_KEY_DELETED : error;
}

DWORD GetSubKey(MDB_txn* txn, std::uint64_t key, std::string_view name, SubKeyRecord* subKey) {
  RecordKey at;
  MDB_val record{};
  const DWORD error = Locate(txn, RecordKind::SubKey, key, name, &at, &record);
  if (error != ERROR_SUCCESS) return error;
  return Parse(record, subKey) ? ERROR_SUCCESS : ERROR_BADDB;
}

DWORD GetValue(MDB_txn* txn, std::uint64_t key, std::string_view name, ValueRecord* value) {
  RecordKey at;
  MDB_val record{};
  const DWORD error = Locate(txn, RecordKind::Value, key, name, &at, &record);
  if (error != ERROR_SUCCESS) return error;
  return Parse(record, value) ? ERROR_SUCCESS : ERROR_BADDB;
}

// ---- Writing

DWORD MakeKey(MDB_txn* txn, std::uint64_t parent, std::string_view className, std::uint64_t* id) {
  if (const DWORD error = TakeNumber(txn, id); error != ERROR_SUCCESS) return error;
  return PutInfo(txn, *id, parent, className);
}

DWORD PutSubKey(MDB_txn* txn, std::uint64_t key, const SubKeyRecord& subKey) {
  RecordKey at;
  MDB_val old{};
  const DWORD error = Locate(txn, RecordKind::SubKey, key, subKey.name, &at, &old);
  if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND) return error;
  std::string content;
  AppendNumber(&content, subKey.id);
  content.push_back(subKey.isLink ? 1 : 0);
  content += subKey.name;
  const DWORD result = Put(txn, at, content);
  return result == ERROR_SUCCESS ? Touch(txn, key) : result;
}

DWORD PutValue(MDB_txn* txn, std::uint64_t key, const ValueRecord& value) {
  Cursor cursor;
  if (const DWORD error = cursor.Open(txn); error != ERROR_SUCCESS) return error;
  RecordKey at;
  MDB_val old{};
  const DWORD error = Locate(txn, RecordKind::Value, key, value.name, &at, &old, cursor.Get());
  if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND) return error;
  // A name keeps the spelling that it was made with.
  ValueRecord before;
  if (error == ERROR_SUCCESS && !Parse(old, &before)) return ERROR_BADDB;
  const std::string_view name = error == ERROR_SUCCESS ? before.name : value.name;
  std::string content;
  content.reserve(6 + name.size() + value.data.size());
  AppendNumber(&content, value.type);
  AppendNumber(&content, static_cast<std::uint16_t>(name.size()));
  content += name;
  content += value.data;
  const bool isAtCursor =
      error == ERROR_SUCCESS && at.size <= PrefixOf(RecordKind::Value, key).size + longestInKey;
  const DWORD put = isAtCursor ? Replace(cursor.Get(), at, content) : Put(txn, at, content);
  return put == ERROR_SUCCESS ? Touch(txn, key) : put;
}

DWORD DropSubKey(MDB_txn* txn, std::uint64_t key, std::string_view name) {
  RecordKey at;
  MDB_val record{};
  DWORD error = Locate(txn, RecordKind::SubKey, key, name, &at, &record);
  if (error == ERROR_SUCCESS) error = Drop(txn, at);
  return error == ERROR_SUCCESS ? Touch(txn, key) : error;
}

DWORD DropValue(MDB_txn* txn, std::uint64_t key, std::string_view name) {
  RecordKey at;
  MDB_val record{};
  DWORD error = Locate(txn, RecordKind::Value, key, name, &at, &record);
  if (error == ERROR_SUCCESS) error = Drop(txn, at);
  return error == ERROR_SUCCESS ? Touch(txn, key) : error;
}

DWORD DropKey(MDB_txn* txn, std::uint64_t key) {
  bool hasSubKeys = false;
  DWORD error = ForEach(txn, PrefixOf(RecordKind::SubKey, key), [&](const MDB_val&, const MDB_val&) {
    hasSubKeys = true;
    return false;
  });
  if (error != ERROR_SUCCESS) return error;
  if (hasSubKeys) return ERROR_ACCESS_DENIED;
  Cursor cursor;
  if (error = cursor.Open(txn); error != ERROR_SUCCESS) return error;
  const RecordKey prefix = PrefixOf(RecordKind::Value, key);
  for (;;) {
    MDB_val at = prefix.Val();
    MDB_val record{};
    int result = mdb_cursor_get(cursor.Get(), &at, &record, MDB_SET_RANGE);
    if (result == MDB_NOTFOUND || (result == 0 && !prefix.Begins(at))) break;
    if (result == 0) result = mdb_cursor_del(cursor.Get(), 0);
    if (result != 0) return ErrorFromStore(result);
  }
  error = Drop(txn, PrefixOf(RecordKind::Info, key));
  return error == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : error;
}

}  // namespace orm::platform
