// A program that uses the library from its start: prints the nanoseconds from the first instruction of its
// own, which comes before the library's initialisation, to the moment when the class named by its argument
// could be created. Without an argument it only links the library.
#include <ormutil/ClassManager.h>
#include <time.h>

#include <cstdio>

namespace {

timespec started;

void Begin() {
  clock_gettime(CLOCK_MONOTONIC, &started);
}

// The loader calls what stands here before the initialisers of any library.
[[gnu::section(".preinit_array"), gnu::used]] void (*const begin)() = Begin;

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return orm::GetClassMgr() == nullptr;
  const bool known = orm::GetClassMgr()->IsClassRegistered(argv[1]);
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  std::printf("%lld\n", (now.tv_sec - started.tv_sec) * 1'000'000'000LL + now.tv_nsec - started.tv_nsec);
  return !known;
}
