// UTF-16 text inside a serialized string.
#pragma once

#include <ormutil/BaseString.h>

#include <new>

namespace orm {

// After a conversion that came to nothing: when that is for want of memory, its text must not be lost.
inline void ThrowWithoutMemory(int result) {
  if (result == 0 && GetLastError() == ERROR_NOT_ENOUGH_MEMORY) throw std::bad_alloc();
}

// Zero-terminated UTF-16 text at any address as units that may be read as such. A serialized string follows
// whatever was written before it, so its text may lie at an odd address; then, and only then, it is copied.
// The copy is a string for its wiped memory.
class AlignedUnits {
 public:
  explicit AlignedUnits(const void* source) : mpBegin(static_cast<const WCHAR*>(source)) {
    if (reinterpret_cast<uintptr_t>(source) % alignof(WCHAR) == 0) return;
    const auto* bytes = static_cast<const unsigned char*>(source);
    size_t size = 0;
    while (bytes[size] != 0 || bytes[size + 1] != 0) size += sizeof(WCHAR);
    size += sizeof(WCHAR);
    std::memcpy(mCopy.PrepareWriting(size, false), bytes, size);
    mpBegin = mCopy.GetBegin();
  }

  const WCHAR* GetBegin() const { return mpBegin; }

 private:
  WideString mCopy;
  const WCHAR* mpBegin;
};

}  // namespace orm
