// Registers traced objects and leaves some of them behind.
#include <ormutil/Module.h>

#include <cstdio>
#include <cstdlib>
#include <new>

namespace {
constinit bool memoryIsOut = false;
constinit orm::TraceArea area{"leaks"};
constinit LONG counter = 3;
constinit int objects[4];
}  // namespace

void* operator new(size_t size) {
  void* memory = memoryIsOut ? nullptr : std::malloc(size);
  if (!memory) throw std::bad_alloc();
  return memory;
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return memoryIsOut ? nullptr : std::malloc(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
  std::free(memory);
}

int main() {
  if (DelayLoadMe() != 0) return 1;
  orm::TraceAreaRegister(area);
  TraceObjectRegister(&objects[2], &area, "Third");
  TraceObjectRegister(&objects[0], &area, "First");
  TraceObjectRegister(&objects[1], &area, "Second");
  TraceObjectRefCounter(&objects[0], &counter);
  TraceObjectRefCounter(&objects[3], &counter);  // never registered: nothing happens
  TraceObjectUnregister(&objects[1]);
  // An object for whose record there is no memory is not traced; the program goes on.
  const orm::String untraced("Untraced");
  memoryIsOut = true;
  TraceObjectRegister(&objects[1], &area, untraced);
  memoryIsOut = false;
  std::printf("%08lx\n%08lx\n", reinterpret_cast<unsigned long>(&objects[0]),
              reinterpret_cast<unsigned long>(&objects[2]));
  return 0;
}
