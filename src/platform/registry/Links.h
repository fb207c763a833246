// Links from keys of the machine's store to open keys. A process that dies between the two halves of making
// or deleting one leaves a link that leads to nothing. It counts as absent wherever keys are looked for,
// listed or counted, and does not keep its parent from being deleted.
#pragma once

#include <lmdb.h>

#include <cstdint>
#include <map>

#include "registry/Hive.h"

namespace orm::platform {

// Tells, for one question about the subkeys of a key, which of them count. The two stores are never read at
// once: whoever asks reads the machine's, then resolves the links that were met, and reads it again when
// there were any that had not been known.
class LinkFilter {
 public:
  // Whether the record of a subkey counts; so does a link that is not known yet.
  bool Counts(const MDB_val& record);
  // Whether links were met that are not known yet.
  [[nodiscard]] bool HasUnknown() const { return mHasUnknown; }
  // Finds out where they lead. False when there were none.
  bool Resolve();

 private:
  enum class Target { Unknown, Key, Nothing };

  std::map<std::uint64_t, Target> mTargets;
  bool mHasUnknown = false;
};

// Removes the links below a key of the machine's store that lead to nothing. Whether there were any; there
// are none in another store.
bool DropDeadLinks(Hive* hive, std::uint64_t key);

}  // namespace orm::platform
