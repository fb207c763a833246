// The folders that have a name of their own, and full paths.
#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "kernel/Errno.h"
#include "kernel/Machine.h"
#include "kernel/Paths.h"
#include "win32.h"

namespace orm::platform {

namespace {

// The length when the text fits, else the size that it needs with its terminator.
DWORD CopyOut(const std::string& text, DWORD size, char* buffer) {
  const auto length = static_cast<DWORD>(text.size());
  if (length >= size) return length + 1;
  memcpy(buffer, text.c_str(), text.size() + 1);
  return length;
}

DWORD Fail(DWORD error) {
  SetLastError(error);
  return 0;
}

DWORD MachineFolderText(const char* text, DWORD size, char* buffer) {
  return MachineFolder().empty() ? Fail(ERROR_PATH_NOT_FOUND) : CopyOut(text, size, buffer);
}

}  // namespace

}  // namespace orm::platform

using namespace orm::platform;

extern "C" {

DWORD GetTempPathA(DWORD size, char* buffer) {
  return MachineFolderText("C:\\Windows\\Temp\\", size, buffer);
}
UINT GetSystemDirectoryA(char* buffer, UINT size) {
  return MachineFolderText("C:\\Windows\\System32", size, buffer);
}
UINT GetWindowsDirectoryA(char* buffer, UINT size) {
  return MachineFolderText("C:\\Windows", size, buffer);
}

DWORD GetCurrentDirectoryA(DWORD size, char* buffer) {
  std::error_code error;
  const std::string current = std::filesystem::current_path(error).string();
  return error ? Fail(ErrorFromErrno(error.value())) : CopyOut(AnsiPath(current), size, buffer);
}

BOOL SetCurrentDirectoryA(const char* name) {
  if (name == nullptr) return Fail(ERROR_INVALID_PARAMETER) != 0;
  DWORD error = ERROR_SUCCESS;
  const std::string path = UnixPath(name, &error);
  if (path.empty()) return Fail(error) != 0;
  if (chdir(path.c_str()) == 0) return TRUE;
  return Fail(errno == ENOENT || errno == ENOTDIR ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno)) != 0;
}

DWORD GetFullPathNameA(const char* name, DWORD size, char* buffer, char** filePart) {
  if (name == nullptr) return Fail(ERROR_INVALID_PARAMETER);
  DWORD error = ERROR_SUCCESS;
  const std::string path = TranslatePath(name, &error);
  if (path.empty()) return Fail(error);
  const DWORD length = CopyOut(AnsiPath(path), size, buffer);
  if (filePart != nullptr && length < size) {
    auto* last = reinterpret_cast<char*>(_mbsrchr(reinterpret_cast<unsigned char*>(buffer), '\\'));
    *filePart = last != nullptr && last[1] != 0 ? last + 1 : nullptr;
  }
  return length;
}

}  // extern "C"
