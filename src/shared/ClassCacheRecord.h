// One record of the shared block: the class list of one version of one library file.
//
//   offset  size  field
//        0     8  last use, FILETIME
//        8     8  file stamp: last-write FILETIME of the library file
//       16     4  payload offset = 33 + name length
//       20     4  payload size
//       24     4  hash of the name
//       28   n+1  name: the library's full path in lower case, zero-terminated; then 4 unused bytes
//     33+n        payload: the class list; empty for a library without classes
#pragma once

#include <ormutil/BaseString.h>

#include <optional>
#include <string>

#include "ClassCacheBytes.h"

namespace orm {

// The key of a record.
struct CacheKey {
  String name;  // lower case
  DWORD hash = 0;

  CacheKey() = default;
  // The key of the library file with that path.
  explicit CacheKey(const String& path);
};

// The numbers of a record, checked: name and payload lie within the `size` bytes that were asked for.
struct CacheRecord {
  static constexpr DWORD LAST_USE = 0;
  static constexpr DWORD STAMP = 8;
  static constexpr DWORD PAYLOAD_OFFSET = 16;
  static constexpr DWORD PAYLOAD_SIZE = 20;
  static constexpr DWORD HASH = 24;
  static constexpr DWORD NAME = 28;
  static constexpr DWORD PAYLOAD_AFTER_NAME = 33;  // payload offset less name length
  // Stands in the stamp while the rest of the record is being written. No file has that time.
  static constexpr ULONGLONG UNFINISHED = 0;

  DWORD offset;  // in the block
  ULONGLONG stamp;
  DWORD nameLength;
  DWORD payloadSize;
  DWORD hash;

  bool IsFinished() const { return stamp != UNFINISHED; }
  DWORD GetPayload() const { return offset + PAYLOAD_AFTER_NAME + nameLength; }

  // Bytes that a record with that name and payload owns: a multiple of 16.
  static ULONGLONG GetSize(ULONGLONG nameLength, ULONGLONG payloadSize) {
    return (nameLength + payloadSize + 48) & ~ULONGLONG{15};
  }

  // Empty when the record does not fit into the `size` bytes at `offset`, which lie within the block.
  static std::optional<CacheRecord> Load(const CacheBytes& bytes, DWORD offset, DWORD size);
  // The order of keys: by hash, then by name. Below, at or above 0 as `key` sorts before, with or after this.
  int CompareKey(const CacheBytes& bytes, const CacheKey& key) const;
  // The name as it stands in the block now; `nameLength` bytes, which may hold zeros when it is damaged.
  std::string GetName(const CacheBytes& bytes) const;
};

}  // namespace orm
