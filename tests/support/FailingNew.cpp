// The program's own operator new, which is found before the standard library's.
#include "FailingNew.h"

#include <cstdlib>
#include <new>

namespace {

constinit thread_local unsigned gsLeft = 0;  // allocations up to the one that fails; 0 makes none fail
constinit thread_local bool gsHasFailed = false;

void* Allocate(size_t size) {
  gsHasFailed |= gsLeft == 1;
  void* memory = gsLeft == 1 ? nullptr : std::malloc(size);
  if (gsLeft > 0) --gsLeft;
  return memory;
}

void* AllocateOrThrow(size_t size) {
  void* memory = Allocate(size);
  if (!memory) throw std::bad_alloc();
  return memory;
}

}  // namespace

void* operator new(size_t size) {
  return AllocateOrThrow(size);
}
void* operator new[](size_t size) {
  return AllocateOrThrow(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, size_t) noexcept {
  std::free(memory);
}

namespace test {

FailingNew::FailingNew(unsigned at) {
  gsHasFailed = false;
  gsLeft = at;
}

FailingNew::~FailingNew() {
  gsLeft = 0;
}

bool FailingNew::HasFailed() const {
  return gsHasFailed;
}

}  // namespace test
