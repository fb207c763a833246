// The program's allocation functions. In a file of their own: the compiler must not see through them.
#include "WipeWatch.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace test {

std::atomic<bool> memoryIsOut{false};
std::atomic<size_t> watchedCapacity{0};
std::atomic<int> wipedBlocks{0}, dirtyBlocks{0};

namespace {

void Inspect(const void* memory) {
  const size_t capacity = watchedCapacity.load();
  if (!memory || capacity == 0) return;
  const auto* bytes = static_cast<const unsigned char*>(memory);
  uint32_t stored = 0;
  std::memcpy(&stored, bytes + 4, sizeof stored);
  if (stored != capacity) return;
  bool dirty = false;
  for (size_t i = 0; i < capacity; ++i) dirty |= bytes[8 + i] != 0;
  ++(dirty ? dirtyBlocks : wipedBlocks);
}

}  // namespace
}  // namespace test

void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return test::memoryIsOut ? nullptr : std::malloc(size);
}
void* operator new(size_t size) {
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  test::Inspect(memory);
  std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
  operator delete(memory);
}
