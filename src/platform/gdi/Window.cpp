// Contexts of the screen and of windows: parts of the screen's surface. Windows do not hide each other.
#include "gdi/Context.h"
#include "gdi/Screen.h"
#include "win32/user.h"

using namespace orm::platform::gdi;

namespace {

// Places a context on a window's client area. False when there is no such window.
bool PlaceOnWindow(Context& context, HWND window) {
  RECT client{};
  POINT corner{0, 0};
  if (!GetClientRect(window, &client) || !ClientToScreen(window, &corner)) return false;
  context.window = window;
  context.offset = corner;
  context.Narrow({SaturatedAdd(client.left, corner.x), SaturatedAdd(client.top, corner.y),
                  SaturatedAdd(client.right, corner.x), SaturatedAdd(client.bottom, corner.y)});
  return true;
}

HDC MakeContext(Context::Origin origin, HWND window) {
  auto context = std::make_shared<Context>(origin);
  if (window && !PlaceOnWindow(*context, window)) return nullptr;
  return static_cast<HDC>(AddObject(std::move(context)));
}

}  // namespace

extern "C" {

HDC WINAPI GetDC(HWND window) noexcept {
  return OrNoMemory<HDC>(nullptr, [&] { return MakeContext(Context::Origin::Screen, window); });
}

int WINAPI ReleaseDC(HWND window, HDC handle) noexcept {
  const auto context = Require<Context>(handle);
  if (!context || context->origin != Context::Origin::Screen || context->window != window) return 0;
  return RemoveObject(handle);
}

HDC WINAPI BeginPaint(HWND window, PAINTSTRUCT* paint) noexcept {
  return OrNoMemory<HDC>(nullptr, [&]() -> HDC {
    if (!paint || !window) {
      Fail(window ? ERROR_INVALID_PARAMETER : ERROR_INVALID_WINDOW_HANDLE);
      return nullptr;
    }
    *paint = {};
    const HDC handle = MakeContext(Context::Origin::Paint, window);
    if (!handle) return nullptr;
    BOOL erase = FALSE;
    OrmTakeUpdateRect(window, &paint->rcPaint, &erase);
    const RECT& area = paint->rcPaint;
    IntersectClipRect(handle, area.left, area.top, area.right, area.bottom);
    paint->hdc = handle;
    if (erase) {
      const LRESULT erased = SendMessageA(window, WM_ERASEBKGND, reinterpret_cast<WPARAM>(handle), 0);
      paint->fErase = erased == 0;
    }
    return handle;
  });
}

BOOL WINAPI EndPaint(HWND, const PAINTSTRUCT* paint) noexcept {
  if (!paint) return FALSE;
  const auto context = Require<Context>(paint->hdc);
  return context && context->origin == Context::Origin::Paint && RemoveObject(paint->hdc);
}

}  // extern "C"
