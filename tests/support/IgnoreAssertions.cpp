// Linked into a test program, lets failed assertions of all modules write their line and go on. The policy is
// read when a module is loaded, so the program sets it and starts itself again.
#include <unistd.h>
#include <win32.h>

namespace {

constexpr const char* kKey = "SOFTWARE\\tdbg_trace\\1.0";
constexpr const char* kPolicy = " option_autoassert";

[[gnu::constructor]] void IgnoreAssertions(int, char** arguments, char**) {
  HKEY key = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, kKey, 0, KEY_READ | KEY_WRITE, &key) != LSTATUS{ERROR_SUCCESS})
    return;
  char policy[8] = {};
  DWORD size = sizeof policy;
  RegQueryValueExA(key, kPolicy, nullptr, nullptr, reinterpret_cast<BYTE*>(policy), &size);
  const bool set =
      policy[0] != 'i' && RegSetValueExA(key, kPolicy, 0, REG_SZ, reinterpret_cast<const BYTE*>("i"), 2) ==
                              LSTATUS{ERROR_SUCCESS};
  RegCloseKey(key);
  // By its name: under valgrind the link in /proc leads to valgrind.
  if (set) execvp(arguments[0], arguments);
}

}  // namespace
