// The program's allocation functions. In a file of their own: the compiler must not see through them.
#include "support/ScarceMemory.h"

#include <cstdlib>

namespace test {

std::atomic<long> allocationsLeft{-1};
std::atomic<size_t> refusedSize{0};
std::atomic<long> liveBlocks{0};

namespace {

bool IsRefused(size_t size) {
  if (const size_t limit = refusedSize; limit != 0 && size >= limit) return true;
  return allocationsLeft.load() >= 0 && allocationsLeft-- == 0;
}

}  // namespace
}  // namespace test

void* operator new(size_t size, const std::nothrow_t&) noexcept {
  void* memory = test::IsRefused(size) ? nullptr : std::malloc(size);
  if (memory) ++test::liveBlocks;
  return memory;
}
void* operator new(size_t size) {
  if (void* memory = operator new(size, std::nothrow)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  if (memory) --test::liveBlocks;
  std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
  operator delete(memory);
}
