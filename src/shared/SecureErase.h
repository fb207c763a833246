// Overwriting memory that held text or bytes of a client.
#pragma once

#include <cstddef>
#include <cstring>

namespace orm {

// Fills with zeros. The empty assembler statement claims to read the memory, so the compiler cannot drop the
// fill although the block is freed next.
inline void SecureErase(void* memory, size_t size) {
  std::memset(memory, 0, size);
  __asm__ __volatile__("" : : "r"(memory) : "memory");
}

}  // namespace orm
