// Registers traced objects and leaves some of them behind. With the argument "exit" it leaves while threads
// make and unmake traced objects, with "fork" it has children that do, made while a thread does,
// and with "nomemory" it misuses the tracing when there is no memory.
#include <ormutil/ClassManager.h>
#include <ormutil/Module.h>
#include <ormutil/Thread.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <thread>

#include "support/Child.h"
#include "support/TraceConfig.h"

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

void MakeObject() {
  auto* object = static_cast<LONG*>(std::calloc(1, sizeof(LONG)));
  TraceObjectRegister(object, &area, "Passing");
  TraceObjectRefCounter(object, object);
  TraceObjectUnregister(object);
  std::free(object);
}

int ForkWhileAThreadMakesObjects() {
  static constinit std::atomic<bool> ends{false};
  std::thread other([] {
    while (!ends) {
      MakeObject();
      orm::GetClassMgr()->IsClassRegistered("CID_Nobody");
    }
  });
  const bool succeeded = test::ForkSome(20, [] {
    MakeObject();
    orm::GetClassMgr()->IsClassRegistered("CID_Nobody");
    orm::Thread::GetSelf()->Interrupt();
  });
  ends = true;
  other.join();
  return succeeded ? 0 : 1;
}

// What is said then, on both facilities, does not depend on whether the registry can be asked.
int MisuseWithoutMemory() {
  const orm::String name("Untraced");
  test::SetRegistryText(test::TRACE_KEY, "moved", "so that areas ask again");
  memoryIsOut = true;
  TraceObjectUnregister(&objects[0]);
  TraceObjectRegister(&objects[1], &area, name);
  TraceObjectRefCounter(&objects[1], &counter);
  TraceObjectUnregister(&objects[1]);
  orm::TraceWrite(area, orm::TRACE_WARNING, false, "leaker", 1, "%s memory", "without");
  { const orm::TraceScope scope(area, orm::TRACE_WARNING, "leaker", 2, "scope of %s", name); }
  memoryIsOut = false;
  return 0;
}

int LeaveWhileThreadsMakeObjects() {
  static constinit std::atomic<int> begun{0};
  constexpr int THREADS = 4;
  for (int i = 0; i < THREADS; ++i) {
    std::thread([] {
      for (bool isFirst = true;; isFirst = false) {
        MakeObject();
        if (isFirst) begun.fetch_add(1);
      }
    }).detach();
  }
  while (begun.load() < THREADS) std::this_thread::yield();
  return 0;
}

}  // namespace

int main(int count, char** arguments) {
  if (DelayLoadMe() != 0) return 1;
  orm::TraceAreaRegister(area);
  if (count > 1 && std::strcmp(arguments[1], "fork") == 0) return ForkWhileAThreadMakesObjects();
  if (count > 1 && std::strcmp(arguments[1], "nomemory") == 0) return MisuseWithoutMemory();
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
