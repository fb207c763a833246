// UTF-16 text inside a serialized string.
#pragma once

#include <win32.h>

#include <cstring>
#include <vector>

namespace orm {

// Zero-terminated UTF-16 text at any address as units that may be read as such. A serialized string follows
// whatever was written before it, so its text may lie at an odd address; then, and only then, it is copied.
class AlignedUnits {
 public:
  explicit AlignedUnits(const void* source) : mpBegin(static_cast<const WCHAR*>(source)) {
    if (reinterpret_cast<uintptr_t>(source) % alignof(WCHAR) == 0) return;
    const char* bytes = static_cast<const char*>(source);
    WCHAR unit;
    do {
      std::memcpy(&unit, bytes, sizeof unit);
      bytes += sizeof unit;
      mCopy.push_back(unit);
    } while (unit != 0);
    mpBegin = mCopy.data();
  }

  const WCHAR* GetBegin() const { return mpBegin; }

 private:
  std::vector<WCHAR> mCopy;
  const WCHAR* mpBegin;
};

}  // namespace orm
