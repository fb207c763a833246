// Windows: a procedure, a place, and what has to be painted. They have no screen of their own; drawing goes
// to the screen's surface. The table is locked for look-ups only, never while a window procedure runs.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "win32/user.h"

namespace orm::platform {

struct Window {
  HWND handle = nullptr;
  DWORD threadId = 0;
  WNDPROC procedure = nullptr;
  HWND parent = nullptr;
  RECT place{};  // within the parent
  RECT update{};
  bool erase = false;
  bool dying = false;
};

// A copy of what the table holds; an empty handle (and ERROR_INVALID_WINDOW_HANDLE) for unknown windows.
Window FindWindowByHandle(HWND handle);
bool IsDescendant(HWND ancestor, HWND window);
// The first window of the thread that has something to paint, within the filter window when it is not null.
HWND FindDirtyWindow(DWORD threadId, HWND within);
// Takes the windows of a thread that ends out of the table. Their procedures are not called: they are a
// client's, whose module may have gone before the thread.
void ForgetThreadWindows(DWORD threadId);
// The lock of the table, which is taken under that of a queue's content.
std::mutex& WindowLock() noexcept;

}  // namespace orm::platform
