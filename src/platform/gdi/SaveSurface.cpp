// Writing what a context shows as a PNG file.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <string>
#include <vector>

#include "gdi/Context.h"
#include "gdi/Screen.h"
#include "gdi/Typeface.h"
#include "kernel/Paths.h"
#include "win32/files.h"
#include "win32/kernel.h"

using namespace orm::platform::gdi;

namespace {

// The pixels of the context's visible part, three bytes each, red first.
std::vector<std::uint8_t> CopyColors(Context& context, const RECT& part) {
  const int width = part.right - part.left;
  std::vector<std::uint8_t> bytes;
  bytes.reserve(static_cast<std::size_t>(width) * static_cast<std::size_t>(part.bottom - part.top) * 3);
  std::vector<std::uint32_t> values(static_cast<std::size_t>(width));
  const Surface& surface = context.Target();
  const SurfaceLock lock(context.Target());
  for (int y = part.top; y < part.bottom; ++y) {
    surface.Read(part.left, y, width, values.data());
    for (const std::uint32_t value : values) {
      const Xrgb color = surface.ColorOf(value);
      bytes.insert(bytes.end(), {static_cast<std::uint8_t>(color >> 16),
                                 static_cast<std::uint8_t>(color >> 8), static_cast<std::uint8_t>(color)});
    }
  }
  return bytes;
}

bool Write(const char* path, const std::vector<std::uint8_t>& bytes) {
  const HANDLE file =
      CreateFileA(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  DWORD written = 0;
  const BOOL done = WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  const DWORD error = GetLastError();
  CloseHandle(file);
  if (!done) Fail(error);
  return done != 0;
}

// Whether there is a file that another one can stand in for: nothing may be lost but its content. So it is no
// link or device, has no other name or owner, may be written, and its folder takes a file of a longer name.
bool IsReplaceable(const char* path, mode_t& mode) {
  constexpr std::size_t longestName = NAME_MAX - sizeof ".2147483647.new";
  const std::string onDisk = orm::platform::UnixPath(path);
  const std::size_t name = onDisk.rfind('/') + 1;
  struct stat status {};
  if (onDisk.empty() || lstat(onDisk.c_str(), &status) != 0) return false;
  mode = status.st_mode & 07777;
  return S_ISREG(status.st_mode) && status.st_nlink == 1 && status.st_uid == geteuid() &&
         access(onDisk.c_str(), W_OK) == 0 && access(onDisk.substr(0, name).c_str(), W_OK) == 0 &&
         onDisk.size() - name <= longestName;
}

// The old picture is gone only when the new one is complete.
bool Replace(const char* path, mode_t mode, const std::vector<std::uint8_t>& bytes) {
  const std::string beside = std::string(path) + '.' + std::to_string(getpid()) + ".new";
  const std::string besideOnDisk = orm::platform::UnixPath(beside.c_str());
  if (Write(beside.c_str(), bytes)) {
    chmod(besideOnDisk.c_str(), mode);
    if (MoveFileExA(beside.c_str(), path, MOVEFILE_REPLACE_EXISTING)) return true;
  }
  const DWORD error = GetLastError();
  DeleteFileA(beside.c_str());
  Fail(error);
  return false;
}

}  // namespace

extern "C" BOOL WINAPI OrmSaveSurfaceA(HDC handle, const char* path) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    const auto context = Require<Context>(handle);
    if (!context) return FALSE;
    const RECT part = context->Clip();
    if (IsEmpty(part) || !path) {
      Fail(ERROR_INVALID_PARAMETER);
      return FALSE;
    }
    const std::vector<std::uint8_t> file =
        CompressPng(CopyColors(*context, part), part.right - part.left, part.bottom - part.top);
    if (file.empty()) {
      Fail(ERROR_NOT_ENOUGH_MEMORY);
      return FALSE;
    }
    mode_t mode = 0;
    return IsReplaceable(path, mode) ? Replace(path, mode, file) : Write(path, file);
  });
}
