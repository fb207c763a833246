// Writing what a context shows as a PNG file.
#include <vector>

#include "gdi/Context.h"
#include "gdi/Screen.h"
#include "gdi/Typeface.h"
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

}  // namespace

extern "C" BOOL WINAPI OrmSaveSurfaceA(HDC handle, const char* path) {
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
  const HANDLE target =
      CreateFileA(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (target == INVALID_HANDLE_VALUE) return FALSE;
  DWORD written = 0;
  const BOOL done = WriteFile(target, file.data(), static_cast<DWORD>(file.size()), &written, nullptr);
  const DWORD error = GetLastError();
  CloseHandle(target);
  if (done && written == file.size()) return TRUE;
  Fail(done ? ERROR_WRITE_FAULT : error);
  return FALSE;
}
