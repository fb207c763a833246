// Copying the few bytes of one value.
#pragma once

#include <cstddef>
#include <cstring>

namespace orm {

namespace copy_detail {

// From HALF to twice as many bytes, by two moves that may overlap.
template <size_t HALF>
void CopyHalves(void* to, const void* from, size_t size) {
  struct Bytes {
    unsigned char bytes[HALF];
  };
  Bytes first, last;
  std::memcpy(&first, from, HALF);
  std::memcpy(&last, static_cast<const char*>(from) + size - HALF, HALF);
  std::memcpy(to, &first, HALF);
  std::memcpy(static_cast<char*>(to) + size - HALF, &last, HALF);
}

}  // namespace copy_detail

// Like memcpy, which for a size that the compiler does not know is a call: two moves cover the sizes that
// values mostly have. `from` may be null for no bytes. Any thread.
inline void CopyBytes(void* to, const void* from, size_t size) {
  if (size >= 16 && size <= 32) {
    copy_detail::CopyHalves<16>(to, from, size);
  } else if (size >= 8 && size < 16) {
    copy_detail::CopyHalves<8>(to, from, size);
  } else if (size != 0) {
    std::memcpy(to, from, size);
  }
}

}  // namespace orm
