// Making pages before they are touched.
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include "win32/memoryx.h"

namespace {

constexpr uintptr_t kPageSize = 4096;
// Below the size from which the C library maps blocks of their own and above which it gives memory back.
constexpr SIZE_T kMostOfHeap = 96 * 1024;

}  // namespace

void OrmPopulatePages(void* start, SIZE_T bytes) noexcept {
  const auto address = reinterpret_cast<uintptr_t>(start);
  const uintptr_t begin = address & ~(kPageSize - 1);
  const int error = errno;
  madvise(reinterpret_cast<void*>(begin), address + bytes - begin, MADV_POPULATE_WRITE);
  errno = error;
}

void OrmPopulateHeap(SIZE_T bytes) noexcept {
  bytes = std::min(bytes, kMostOfHeap);
  void* const block = malloc(bytes);
  if (block == nullptr) return;
  OrmPopulatePages(block, bytes);
  free(block);
}
