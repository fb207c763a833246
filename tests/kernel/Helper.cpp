// The other process of the tests: does one thing to a named object, says so, and stays until it is told to
// go.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "kernel/Export.h"
#include "win32.h"

namespace {

void Say(const std::string& text) {
  printf("%s\n", text.c_str());
  fflush(stdout);
}

int WaitForOrder() {
  char c;
  return read(0, &c, 1) >= 0 ? 0 : 1;
}

int OpenMutex(const char* name) {
  const HANDLE mutex = OpenMutexA(SYNCHRONIZE, FALSE, name);
  Say(mutex != nullptr ? "open" : std::to_string(GetLastError()));
  return 0;
}

int HoldMutex(const char* name) {
  const HANDLE mutex = CreateMutexA(nullptr, TRUE, name);
  Say(std::to_string(GetLastError()));
  WaitForOrder();
  Say(ReleaseMutex(mutex) ? "released" : "not owned");
  return WaitForOrder();
}

// Locks, writes and unlocks as fast as it can, until it is killed.
int Hammer(const char* name) {
  const HANDLE mutex = CreateMutexA(nullptr, FALSE, name);
  Say("running");
  for (;;) {
    WaitForSingleObject(mutex, INFINITE);
    ReleaseMutex(mutex);
  }
}

// Makes or opens the mutex, takes it if it is free, and lets it go, until it is killed.
int Snatch(const char* name) {
  Say("running");
  for (;;) {
    const HANDLE mutex = CreateMutexA(nullptr, FALSE, name);
    if (WaitForSingleObject(mutex, 0) == WAIT_OBJECT_0) ReleaseMutex(mutex);
    CloseHandle(mutex);
  }
}

int OpenSection(const char* name) {
  const HANDLE section = OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, name);
  if (section == nullptr) {
    Say(std::to_string(GetLastError()));
    return 0;
  }
  auto* const view = static_cast<char*>(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
  Say(view);
  strcpy(view, "answer");
  Say("written");
  return WaitForOrder();
}

int MakeSection(const char* name) {
  const HANDLE section = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 65536, name);
  auto* const view = static_cast<char*>(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
  strcpy(view, "child's");
  Say(std::to_string(GetLastError()));
  return WaitForOrder();
}

int Debug(const char* text) {
  OutputDebugStringA(text);
  return 0;
}

// Asks on the terminal that the parent has made this process's own.
int AskBox(const char*) {
  const auto box = orm::test::ExportOf<int (*)(HWND, const char*, const char*, UINT)>(
      LoadLibraryA("User32.dll"), "MessageBoxA");
  constexpr const char* text = "Text\x1b[2J\x9D";  // both begin a sequence
  return box != nullptr ? box(nullptr, text, "Caption", 0x00212212) : 100;
}

}  // namespace

int main(int argc, char** argv) {
  const struct {
    const char* order;
    int (*run)(const char*);
  } orders[] = {
      {"open-mutex", OpenMutex},     {"hold-mutex", HoldMutex},     {"hammer", Hammer}, {"snatch", Snatch},
      {"open-section", OpenSection}, {"make-section", MakeSection}, {"debug", Debug},   {"ask", AskBox}};
  for (const auto& order : orders) {
    if (argc == 3 && strcmp(argv[1], order.order) == 0) return order.run(argv[2]);
  }
  return 2;
}
