// Registers traced objects and leaves some of them behind. With the argument "exit" it leaves while threads
// make and unmake traced objects.
#include <ormutil/Module.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <thread>

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

namespace {

int LeaveWhileThreadsMakeObjects() {
  static constinit std::atomic<int> begun{0};
  constexpr int THREADS = 4;
  for (int i = 0; i < THREADS; ++i) {
    std::thread([] {
      for (bool isFirst = true;; isFirst = false) {
        auto* object = static_cast<LONG*>(std::calloc(1, sizeof(LONG)));
        TraceObjectRegister(object, &area, "Passing");
        TraceObjectRefCounter(object, object);
        TraceObjectUnregister(object);
        std::free(object);
        if (isFirst) begun.fetch_add(1);
      }
    }).detach();
  }
  while (begun.load() < THREADS) std::this_thread::yield();
  return 0;
}

}  // namespace

int main(int count, char**) {
  if (DelayLoadMe() != 0) return 1;
  orm::TraceAreaRegister(area);
  if (count > 1) return LeaveWhileThreadsMakeObjects();
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
