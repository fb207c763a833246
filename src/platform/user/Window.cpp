// The window classes and the window table, and the calls on windows.
#include "user/Window.h"

#include <strings.h>

#include <algorithm>
#include <map>
#include <mutex>

#include "kernel/NoMemory.h"
#include "kernel/ThreadRecord.h"
#include "user/MessageQueue.h"

namespace orm::platform {

namespace {

struct NameOrder {
  bool operator()(const std::string& left, const std::string& right) const {
    return strcasecmp(left.c_str(), right.c_str()) < 0;
  }
};

struct Tables {
  mutable std::mutex lock;
  std::map<std::string, WNDPROC, NameOrder> classes;
  std::map<HWND, Window> windows;  // in the order of creation, since handles only grow
  uintptr_t lastHandle = 0x10000;
  ATOM lastAtom = 0xC000;
};

Tables& Get() {
  static Tables& tables = *new Tables;
  return tables;
}

bool IsEmpty(const RECT& rectangle) {
  return rectangle.right <= rectangle.left || rectangle.bottom <= rectangle.top;
}

LONG Limited(int64_t value) {
  return static_cast<LONG>(std::clamp<int64_t>(value, INT32_MIN, INT32_MAX));
}

// A window may be put anywhere; its far edges stay within what numbers reach.
RECT PlaceOf(int x, int y, int width, int height) {
  return {x, y, Limited(int64_t{x} + std::max(width, 0)), Limited(int64_t{y} + std::max(height, 0))};
}

RECT ClientOf(const Window& window) {
  return {0, 0, window.place.right - window.place.left, window.place.bottom - window.place.top};
}

RECT Union(const RECT& a, const RECT& b) {
  if (IsEmpty(a)) return b;
  if (IsEmpty(b)) return a;
  return {std::min(a.left, b.left), std::min(a.top, b.top), std::max(a.right, b.right),
          std::max(a.bottom, b.bottom)};
}

RECT Intersection(const RECT& a, const RECT& b) {
  const RECT both{std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
                  std::min(a.bottom, b.bottom)};
  return IsEmpty(both) ? RECT{} : both;
}

// What is left of the area: all of it unless the part covers it wholly or from one edge to the other, as for
// a region that is kept as its bounding rectangle.
RECT Difference(const RECT& area, const RECT& part) {
  const RECT both = Intersection(area, part);
  if (IsEmpty(both)) return area;
  RECT left = area;
  if (both.left == area.left && both.right == area.right) {
    if (both.top == area.top)
      left.top = both.bottom;
    else if (both.bottom == area.bottom)
      left.bottom = both.top;
  } else if (both.top == area.top && both.bottom == area.bottom) {
    if (both.left == area.left)
      left.left = both.right;
    else if (both.right == area.right)
      left.right = both.left;
  }
  return IsEmpty(left) ? RECT{} : left;
}

// Runs `use(window)` on the table's entry. False, with the error, for unknown windows.
template <class Use>
bool WithWindow(HWND handle, Use&& use) {
  Tables& tables = Get();
  const std::lock_guard lock(tables.lock);
  const auto found = tables.windows.find(handle);
  if (found == tables.windows.end()) {
    tlsLastError = ERROR_INVALID_WINDOW_HANDLE;
    return false;
  }
  use(found->second);
  return true;
}

// Tells the thread's queue that the windows' update areas have changed.
void UpdatePaintState(DWORD threadId, bool invalidated = false) {
  if (const auto queue = MessageQueue::OfThread(threadId)) queue->UpdatePaint(threadId, invalidated);
}

// The window's end: nobody finds it any more, and what was waiting for it is gone.
void Forget(const Window& window) {
  {
    Tables& tables = Get();
    const std::lock_guard lock(tables.lock);
    tables.windows.erase(window.handle);
  }
  if (const auto queue = MessageQueue::OfThread(window.threadId)) queue->ForgetWindow(window.handle);
  UpdatePaintState(window.threadId);
}

// The first child that was created after that one; null when there is none. To destroy a window needs no
// memory, and procedures that are called meanwhile may make and destroy others.
HWND NextChild(HWND parent, HWND last) {
  Tables& tables = Get();
  const std::lock_guard lock(tables.lock);
  for (auto entry = tables.windows.upper_bound(last); entry != tables.windows.end(); ++entry) {
    if (entry->second.parent == parent) return entry->first;
  }
  return nullptr;
}

void Destroy(const Window& window) {
  bool dying = false;
  if (!WithWindow(window.handle, [&](Window& entry) { dying = std::exchange(entry.dying, true); }) || dying)
    return;
  window.procedure(window.handle, WM_DESTROY, 0, 0);
  for (HWND child = nullptr; (child = NextChild(window.handle, child)) != nullptr;) DestroyWindow(child);
  window.procedure(window.handle, WM_NCDESTROY, 0, 0);
  Forget(window);
}

// A window of the calling thread, in the table. An empty handle, with the last error, when it cannot be made.
Window AddWindow(const char* className, const RECT& place, HWND parent) noexcept {
  return OrNoMemory(Window(), [&]() -> Window {
    MessageQueue::Current();
    Tables& tables = Get();
    const std::lock_guard lock(tables.lock);
    const auto found = className != nullptr ? tables.classes.find(className) : tables.classes.end();
    if (found == tables.classes.end() || (parent != nullptr && !tables.windows.contains(parent))) {
      tlsLastError =
          found == tables.classes.end() ? ERROR_CANNOT_FIND_WND_CLASS : ERROR_INVALID_WINDOW_HANDLE;
      return {};
    }
    Window window;
    window.handle = reinterpret_cast<HWND>(tables.lastHandle += 2);
    window.threadId = GetCurrentThreadId();
    window.procedure = found->second;
    window.parent = parent;
    window.place = place;
    tables.windows.emplace(window.handle, window);
    return window;
  });
}

}  // namespace

Window FindWindowByHandle(HWND handle) {
  Window copy;
  WithWindow(handle, [&](const Window& window) { copy = window; });
  return copy;
}

namespace {

// Under the tables' lock.
bool IsBelow(const Tables& tables, HWND ancestor, HWND window) {
  for (auto found = tables.windows.find(window); found != tables.windows.end();
       found = tables.windows.find(found->second.parent)) {
    if (found->second.parent == ancestor) return ancestor != nullptr;
  }
  return false;
}

}  // namespace

bool IsDescendant(HWND ancestor, HWND window) {
  const Tables& tables = Get();
  const std::lock_guard lock(tables.lock);
  return IsBelow(tables, ancestor, window);
}

HWND FindDirtyWindow(DWORD threadId, HWND within) {
  const Tables& tables = Get();
  const std::lock_guard lock(tables.lock);
  for (const auto& [handle, window] : tables.windows) {
    if (window.threadId != threadId || IsEmpty(window.update)) continue;
    if (within == nullptr || handle == within || IsBelow(tables, within, handle)) return handle;
  }
  return nullptr;
}

std::mutex& WindowLock() noexcept {
  return Get().lock;
}

void ForgetThreadWindows(DWORD threadId) {
  Tables& tables = Get();
  const std::lock_guard lock(tables.lock);
  std::erase_if(tables.windows, [threadId](const auto& entry) { return entry.second.threadId == threadId; });
}

}  // namespace orm::platform

using namespace orm::platform;

ATOM RegisterClassA(const WNDCLASSA* windowClass) noexcept {
  return OrNoMemory<ATOM>(0, [&]() -> ATOM {
    if (windowClass == nullptr || windowClass->lpszClassName == nullptr ||
        windowClass->lpfnWndProc == nullptr) {
      tlsLastError = ERROR_INVALID_PARAMETER;
      return 0;
    }
    Tables& tables = Get();
    const std::lock_guard lock(tables.lock);
    if (!tables.classes.emplace(windowClass->lpszClassName, windowClass->lpfnWndProc).second) {
      tlsLastError = ERROR_CLASS_ALREADY_EXISTS;
      return 0;
    }
    return ++tables.lastAtom;
  });
}

BOOL UnregisterClassA(const char* name, HINSTANCE) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    Tables& tables = Get();
    const std::lock_guard lock(tables.lock);
    if (name != nullptr && tables.classes.erase(name) != 0) return TRUE;
    tlsLastError = ERROR_CLASS_DOES_NOT_EXIST;
    return FALSE;
  });
}

HWND CreateWindowExA(DWORD extendedStyle, const char* className, const char* title, DWORD style, int x, int y,
                     int width, int height, HWND parent, HMENU menu, HINSTANCE instance,
                     void* parameter) noexcept {
  const Window window = AddWindow(className, PlaceOf(x, y, width, height), parent);
  if (window.handle == nullptr) return nullptr;
  CREATESTRUCTA create{
      parameter, instance,  menu,         parent, height, width, y, x, static_cast<LONG>(style),
      title,     className, extendedStyle};
  const auto second = reinterpret_cast<LPARAM>(&create);
  if (window.procedure(window.handle, WM_NCCREATE, 0, second) == 0) {
    Forget(window);
    return nullptr;
  }
  if (window.procedure(window.handle, WM_CREATE, 0, second) == -1) {
    Destroy(window);
    return nullptr;
  }
  return window.handle;
}

BOOL DestroyWindow(HWND handle) noexcept {
  const Window window = FindWindowByHandle(handle);
  if (window.handle == nullptr) return FALSE;
  if (window.threadId != GetCurrentThreadId()) {
    tlsLastError = ERROR_ACCESS_DENIED;
    return FALSE;
  }
  Destroy(window);
  return TRUE;
}

BOOL IsWindow(HWND window) noexcept {
  return FindWindowByHandle(window).handle != nullptr;
}

HWND GetParent(HWND window) noexcept {
  return FindWindowByHandle(window).parent;
}

BOOL GetClientRect(HWND handle, RECT* rectangle) noexcept {
  return WithWindow(handle, [&](const Window& window) { *rectangle = ClientOf(window); });
}

BOOL ClientToScreen(HWND window, POINT* point) noexcept {
  if (!IsWindow(window)) return FALSE;
  while (window != nullptr) {
    const Window at = FindWindowByHandle(window);
    point->x = Limited(int64_t{point->x} + at.place.left);
    point->y = Limited(int64_t{point->y} + at.place.top);
    window = at.parent;
  }
  return TRUE;
}

BOOL MoveWindow(HWND handle, int x, int y, int width, int height, BOOL repaint) noexcept {
  bool resized = false;
  const bool known = WithWindow(handle, [&](Window& window) {
    const RECT before = ClientOf(window);
    window.place = PlaceOf(x, y, width, height);
    const RECT after = ClientOf(window);
    resized = before.right != after.right || before.bottom != after.bottom;
  });
  if (!known) return FALSE;
  if (resized)
    SendMessageA(handle, WM_SIZE, 0, static_cast<LPARAM>((height & 0xFFFF) << 16 | (width & 0xFFFF)));
  if (repaint) InvalidateRect(handle, nullptr, TRUE);
  return TRUE;
}

DWORD GetWindowThreadProcessId(HWND window, DWORD* processId) noexcept {
  const DWORD threadId = FindWindowByHandle(window).threadId;
  if (processId != nullptr && threadId != 0) *processId = GetCurrentProcessId();
  return threadId;
}

BOOL InvalidateRect(HWND handle, const RECT* rectangle, BOOL erase) noexcept {
  DWORD threadId = 0;
  bool invalidated = false;
  const bool known = WithWindow(handle, [&](Window& window) {
    const RECT client = ClientOf(window);
    const RECT area = rectangle != nullptr ? Intersection(*rectangle, client) : client;
    invalidated = !IsEmpty(area);
    if (!invalidated) return;
    window.update = Union(window.update, area);
    window.erase = window.erase || erase;
    threadId = window.threadId;
  });
  if (invalidated) UpdatePaintState(threadId, true);
  return known;
}

BOOL ValidateRect(HWND handle, const RECT* rectangle) noexcept {
  DWORD threadId = 0;
  const bool known = WithWindow(handle, [&](Window& window) {
    window.update = rectangle != nullptr ? Difference(window.update, *rectangle) : RECT{};
    if (IsEmpty(window.update)) window.erase = false;
    threadId = window.threadId;
  });
  if (known) UpdatePaintState(threadId);
  return known;
}

BOOL GetUpdateRect(HWND handle, RECT* rectangle, BOOL) noexcept {
  RECT update{};
  WithWindow(handle, [&](const Window& window) { update = window.update; });
  if (rectangle != nullptr) *rectangle = update;
  return !IsEmpty(update);
}

BOOL OrmTakeUpdateRect(HWND handle, RECT* rectangle, BOOL* erase) noexcept {
  DWORD threadId = 0;
  *rectangle = {};
  *erase = FALSE;
  if (!WithWindow(handle, [&](Window& window) {
        *rectangle = std::exchange(window.update, RECT{});
        *erase = std::exchange(window.erase, false);
        threadId = window.threadId;
      })) {
    return FALSE;
  }
  UpdatePaintState(threadId);
  return !IsEmpty(*rectangle);
}

BOOL UpdateWindow(HWND window) noexcept {
  if (!IsWindow(window)) return FALSE;
  if (GetUpdateRect(window, nullptr, FALSE)) SendMessageA(window, WM_PAINT, 0, 0);
  return TRUE;
}

LRESULT DefWindowProcA(HWND window, UINT message, WPARAM, LPARAM) noexcept {
  switch (message) {
    case WM_NCCREATE:
      return TRUE;
    case WM_PAINT:
      ValidateRect(window, nullptr);
      return 0;
    case WM_CLOSE:
      DestroyWindow(window);
      return 0;
    default:
      return 0;
  }
}
