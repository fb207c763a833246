// Prints the most memory that has been resident in this process, as the system writes it: "    1234 kB".
// Built once by itself and once with the library linked.
#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#ifdef ORM_BENCH_LINKED
#include <ormutil/ClassManager.h>

[[gnu::used]] orm::ClassManager* (*const linked)() = &orm::GetClassMgr;
#endif

int main() {
  char text[4096];
  const int file = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
  const ssize_t size = read(file, text, sizeof text - 1);
  if (size <= 0) return 1;
  text[size] = 0;
  static constexpr const char* NAME = "VmHWM:";
  const char* value = std::strstr(text, NAME);
  if (!value) return 1;
  value += std::strlen(NAME);
  const size_t length = std::strcspn(value, "\n");
  return write(STDOUT_FILENO, value, length) == static_cast<ssize_t>(length) ? 0 : 1;
}
