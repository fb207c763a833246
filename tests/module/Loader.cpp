// A program that is not linked with the library and loads it late: "rounds PATH" loads and frees it three
// times, "noslot PATH" loads it first without and then with a thread slot to be had, and "nomemory PATH AT"
// while the AT-th allocation fails, which it tells, and then again.
#include <win32.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "support/FailingNew.h"

namespace {

bool IsLoaded(const char* path) {
  return GetModuleHandleA(path) != nullptr;
}

int Rounds(const char* path) {
  for (int round = 0; round < 3; ++round) {
    const HMODULE library = LoadLibraryA(path);
    auto* delayLoadMe = reinterpret_cast<int (*)()>(
        reinterpret_cast<void*>(library ? GetProcAddress(library, "DelayLoadMe") : nullptr));
    if (!delayLoadMe || delayLoadMe() != 0) return 1;
    if (!FreeLibrary(library) || IsLoaded(path)) return 2;
  }
  return 0;
}

int WithoutSlot(const char* path) {
  std::vector<DWORD> slots;
  for (DWORD slot; (slot = TlsAlloc()) != TLS_OUT_OF_INDEXES;) slots.push_back(slot);
  if (LoadLibraryA(path)) return 1;
  const DWORD error = GetLastError();
  if (IsLoaded(path)) return 2;
  TlsFree(slots.back());
  const HMODULE library = LoadLibraryA(path);
  if (!library || !FreeLibrary(library)) return 3;
  std::printf("%u\n", error);
  return 0;
}

int WithoutMemory(const char* path, unsigned at) {
  HMODULE library = nullptr;
  {
    const test::FailingNew failing(at);
    library = LoadLibraryA(path);
    std::printf("%s %u\n", failing.HasFailed() ? "failed" : "enough", library ? 0 : GetLastError());
  }
  if (!library && IsLoaded(path)) return 1;
  if (!library) library = LoadLibraryA(path);
  return library && FreeLibrary(library) && !IsLoaded(path) ? 0 : 2;
}

}  // namespace

int main(int count, char** arguments) {
  if (count == 4) return WithoutMemory(arguments[2], static_cast<unsigned>(std::atoi(arguments[3])));
  if (count != 3) return 9;
  return std::strcmp(arguments[1], "rounds") == 0 ? Rounds(arguments[2]) : WithoutSlot(arguments[2]);
}
