// The folders that have names of their own: temporary, system, current; and whole paths.
#include <limits.h>
#include <string.h>
#include <unistd.h>

#include "kernel/FileDisk.h"
#include "kernel/Machine.h"
#include "kernel/NoMemory.h"
#include "kernel/Object.h"
#include "win32/files.h"
#include "win32/nls.h"

namespace orm::platform {
namespace {

// The platform's rule for texts of unknown length.
DWORD Deliver(const std::string& text, char* buffer, DWORD size) {
  const auto length = static_cast<DWORD>(text.size());
  if (buffer == nullptr || size <= length) return length + 1;
  memcpy(buffer, text.c_str(), length + 1);
  return length;
}

// A folder of drive C, which is the machine's.
DWORD DeliverMachineFolder(const char* text, char* buffer, DWORD size) {
  if (!MachineFolder().empty()) return Deliver(text, buffer, size);
  SetLastErrorCode(ERROR_PATH_NOT_FOUND);
  return 0;
}

// A trail byte is none.
bool EndsInSeparator(const char* name) {
  const auto* text = reinterpret_cast<const unsigned char*>(name);
  const unsigned char* last = _mbsdec(text, text + strlen(name));
  return last != nullptr && last[1] == 0 && (*last == '\\' || *last == '/');
}

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

DWORD GetTempPathA(DWORD size, char* buffer) noexcept {
  return OrNoMemory<DWORD>(0, [&] { return DeliverMachineFolder("C:\\Windows\\Temp\\", buffer, size); });
}

UINT GetSystemDirectoryA(char* buffer, UINT size) noexcept {
  return OrNoMemory<UINT>(0, [&] { return DeliverMachineFolder("C:\\Windows\\System32", buffer, size); });
}

UINT GetWindowsDirectoryA(char* buffer, UINT size) noexcept {
  return OrNoMemory<UINT>(0, [&] { return DeliverMachineFolder("C:\\Windows", buffer, size); });
}

DWORD GetCurrentDirectoryA(DWORD size, char* buffer) noexcept {
  return OrNoMemory<DWORD>(0, [&]() -> DWORD {
    char folder[PATH_MAX];
    if (getcwd(folder, sizeof folder) != nullptr) return Deliver(AnsiPath(folder), buffer, size);
    SetLastErrorCode(ErrorFromErrno(errno));
    return 0;
  });
}

BOOL SetCurrentDirectoryA(const char* name) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    std::string path = TranslateOrFail(name);
    if (path.empty()) return FALSE;
    if (WithCase(&path, [](const std::string& used) { return chdir(used.c_str()); }) == 0) return TRUE;
    FailWith(errno, path);
    if (errno == ENOTDIR) SetLastErrorCode(ERROR_DIRECTORY);
    return FALSE;
  });
}

DWORD GetFullPathNameA(const char* name, DWORD size, char* buffer, char** filePart) noexcept {
  return OrNoMemory<DWORD>(0, [&]() -> DWORD {
    const std::string path = TranslateOrFail(name);
    if (path.empty()) return 0;
    std::string text = AnsiPath(path);
    if (text.size() > strlen("X:\\") && EndsInSeparator(name)) text += '\\';
    const DWORD result = Deliver(text, buffer, size);
    if (filePart != nullptr && buffer != nullptr && result < size) {
      auto* last = reinterpret_cast<char*>(_mbsrchr(reinterpret_cast<unsigned char*>(buffer), '\\'));
      *filePart = last != nullptr && last[1] != 0 ? last + 1 : nullptr;
    }
    return result;
  });
}
