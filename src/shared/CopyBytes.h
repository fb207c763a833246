// Copying the few bytes of one value.
#pragma once

#include <cstddef>
#include <cstring>

namespace orm {

// Like memcpy, which for a size that the compiler does not know is a call: two moves of 16 bytes, which may
// overlap, cover the sizes that values mostly have. `from` may be null for no bytes.
inline void CopyBytes(void* to, const void* from, size_t size) {
  constexpr size_t HALF = 16;
  struct Bytes {
    unsigned char bytes[HALF];
  };
  if (size >= HALF && size <= 2 * HALF) {
    Bytes first, last;
    std::memcpy(&first, from, HALF);
    std::memcpy(&last, static_cast<const char*>(from) + size - HALF, HALF);
    std::memcpy(to, &first, HALF);
    std::memcpy(static_cast<char*>(to) + size - HALF, &last, HALF);
  } else if (size != 0) {
    std::memcpy(to, from, size);
  }
}

}  // namespace orm
