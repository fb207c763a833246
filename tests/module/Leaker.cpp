// Registers traced objects and leaves some of them behind.
#include <ormutil/Module.h>

#include <cstdio>

namespace {
constinit orm::TraceArea area{"leaks"};
constinit LONG counter = 3;
constinit int objects[4];
}  // namespace

int main() {
  if (DelayLoadMe() != 0) return 1;
  orm::TraceAreaRegister(area);
  TraceObjectRegister(&objects[2], &area, "Third");
  TraceObjectRegister(&objects[0], &area, "First");
  TraceObjectRegister(&objects[1], &area, "Second");
  TraceObjectRefCounter(&objects[0], &counter);
  TraceObjectRefCounter(&objects[3], &counter);  // never registered: nothing happens
  TraceObjectUnregister(&objects[1]);
  std::printf("%08lx\n%08lx\n", reinterpret_cast<unsigned long>(&objects[0]),
              reinterpret_cast<unsigned long>(&objects[2]));
  return 0;
}
