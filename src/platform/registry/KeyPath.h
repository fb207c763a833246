// Paths of keys: the way from an open key down to another, over both stores of the local machine.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "registry/Hive.h"
#include "win32/types.h"

namespace orm::platform {

using KeyParts = std::vector<std::string_view>;

// Splits a path at its back slashes; empty parts vanish. ERROR_BAD_PATHNAME when it begins with one,
// ERROR_INVALID_PARAMETER when a part is longer than a name may be, or there are more than 512.
DWORD SplitKeyPath(std::string_view path, KeyParts* parts);

// A key on the way: the first `done` parts lead to it.
struct Place {
  Hive* hive = nullptr;
  std::uint64_t id = 0;
  std::size_t done = 0;
  bool isBrokenLink = false;  // the next part is there, but leads to nothing
};

// Goes from *place as far down as there are keys. 0 at the end of the path, ERROR_FILE_NOT_FOUND when a part
// is missing (*place is then the last key that is there), ERROR_KEY_DELETED when the first key is gone.
DWORD WalkDown(const KeyParts& parts, Place* place);

// Makes what is missing below *place, which WalkDown has reached from `start`. `isOpen`: the last key is to
// be open to every user. *made tells whether the last part was made by this call.
DWORD MakeBelow(const KeyParts& parts, std::string_view className, bool isOpen, const Place& start,
                Place* place, bool* made);

// Deletes the last part of a path that begins at `start`.
DWORD DeleteAt(const KeyParts& parts, const Place& start);

// Deletes the key itself, by looking for what leads to it. ERROR_ACCESS_DENIED for the roots.
DWORD DeleteSelf(const Place& place);

}  // namespace orm::platform
