// Windows and messages: a message queue for each thread, windows that have a procedure and a size but no
// screen, timers, the wait that also ends on input, and the message box, which asks on the terminal.
//
// A queue and the windows of a thread are used by that thread; the posting and injecting functions may be
// called by any thread.
#pragma once

#include "win32/errors.h"
#include "win32/geometry.h"
#include "win32/kernel.h"
#include "win32/types.h"

using HBRUSH = struct HBRUSH__*;
using HICON = struct HICON__*;
using HCURSOR = HICON;
using HMENU = struct HMENU__*;

// Kinds of input, for wake masks and GetQueueStatus.
inline constexpr UINT QS_KEY = 0x0001;
inline constexpr UINT QS_MOUSEMOVE = 0x0002;
inline constexpr UINT QS_MOUSEBUTTON = 0x0004;
inline constexpr UINT QS_POSTMESSAGE = 0x0008;
inline constexpr UINT QS_TIMER = 0x0010;
inline constexpr UINT QS_PAINT = 0x0020;
inline constexpr UINT QS_SENDMESSAGE = 0x0040;
inline constexpr UINT QS_HOTKEY = 0x0080;
inline constexpr UINT QS_ALLPOSTMESSAGE = 0x0100;
inline constexpr UINT QS_MOUSE = QS_MOUSEMOVE | QS_MOUSEBUTTON;
inline constexpr UINT QS_INPUT = QS_MOUSE | QS_KEY;
inline constexpr UINT QS_ALLEVENTS = QS_INPUT | QS_POSTMESSAGE | QS_TIMER | QS_PAINT | QS_HOTKEY;
inline constexpr UINT QS_ALLINPUT = QS_ALLEVENTS | QS_SENDMESSAGE;

inline constexpr UINT PM_NOREMOVE = 0;
inline constexpr UINT PM_REMOVE = 1;
inline constexpr UINT PM_NOYIELD = 2;

inline constexpr DWORD MWMO_WAITALL = 1;
inline constexpr DWORD MWMO_INPUTAVAILABLE = 4;

inline constexpr UINT WM_NULL = 0x0000;
inline constexpr UINT WM_CREATE = 0x0001;
inline constexpr UINT WM_DESTROY = 0x0002;
inline constexpr UINT WM_SIZE = 0x0005;
inline constexpr UINT WM_PAINT = 0x000F;
inline constexpr UINT WM_CLOSE = 0x0010;
inline constexpr UINT WM_QUIT = 0x0012;
inline constexpr UINT WM_ERASEBKGND = 0x0014;
inline constexpr UINT WM_NCCREATE = 0x0081;
inline constexpr UINT WM_NCDESTROY = 0x0082;
inline constexpr UINT WM_KEYDOWN = 0x0100;
inline constexpr UINT WM_KEYUP = 0x0101;
inline constexpr UINT WM_CHAR = 0x0102;
inline constexpr UINT WM_TIMER = 0x0113;
inline constexpr UINT WM_MOUSEMOVE = 0x0200;
inline constexpr UINT WM_LBUTTONDOWN = 0x0201;
inline constexpr UINT WM_LBUTTONUP = 0x0202;
inline constexpr UINT WM_RBUTTONDOWN = 0x0204;
inline constexpr UINT WM_RBUTTONUP = 0x0205;
inline constexpr UINT WM_MBUTTONDOWN = 0x0207;
inline constexpr UINT WM_MBUTTONUP = 0x0208;
inline constexpr UINT WM_QUERYNEWPALETTE = 0x030F;
inline constexpr UINT WM_PALETTECHANGED = 0x0311;
inline constexpr UINT WM_USER = 0x0400;
inline constexpr UINT WM_APP = 0x8000;

inline constexpr UINT MB_OK = 0x0;
inline constexpr UINT MB_OKCANCEL = 0x1;
inline constexpr UINT MB_ABORTRETRYIGNORE = 0x2;
inline constexpr UINT MB_YESNOCANCEL = 0x3;
inline constexpr UINT MB_YESNO = 0x4;
inline constexpr UINT MB_RETRYCANCEL = 0x5;
inline constexpr UINT MB_ICONHAND = 0x10;
inline constexpr UINT MB_ICONSTOP = 0x10;
inline constexpr UINT MB_DEFBUTTON2 = 0x100;
inline constexpr UINT MB_DEFBUTTON3 = 0x200;
inline constexpr UINT MB_TASKMODAL = 0x2000;
inline constexpr UINT MB_SETFOREGROUND = 0x10000;
inline constexpr UINT MB_SERVICE_NOTIFICATION = 0x200000;

inline constexpr int IDOK = 1;
inline constexpr int IDCANCEL = 2;
inline constexpr int IDABORT = 3;
inline constexpr int IDRETRY = 4;
inline constexpr int IDIGNORE = 5;
inline constexpr int IDYES = 6;
inline constexpr int IDNO = 7;

inline constexpr UINT USER_TIMER_MINIMUM = 10;

struct MSG {
  HWND hwnd;
  UINT message;
  WPARAM wParam;
  LPARAM lParam;
  DWORD time;  // GetTickCount when it was posted
  POINT pt;    // 0, 0: there is no cursor
};

using WNDPROC = LRESULT (*)(HWND window, UINT message, WPARAM first, LPARAM second);
using TIMERPROC = void (*)(HWND window, UINT message, UINT_PTR id, DWORD time);

struct WNDCLASSA {
  UINT style;
  WNDPROC lpfnWndProc;
  int cbClsExtra;
  int cbWndExtra;
  HINSTANCE hInstance;
  HICON hIcon;
  HCURSOR hCursor;
  HBRUSH hbrBackground;
  const char* lpszMenuName;
  const char* lpszClassName;
};

struct CREATESTRUCTA {
  void* lpCreateParams;
  HINSTANCE hInstance;
  HMENU hMenu;
  HWND hwndParent;
  int cy;
  int cx;
  int y;
  int x;
  LONG style;
  const char* lpszName;
  const char* lpszClass;
  DWORD dwExStyle;
};

extern "C" {

// --- Messages.
// A queue holds 10000 posted messages and as much input. What finds it full is refused with
// ERROR_NOT_ENOUGH_QUOTA, by the posting and injecting functions alike; a mouse move that follows another one
// of its window replaces it and needs no room. Calls that other threads send are not counted.

// Appends to the queue of the thread with this number; ERROR_INVALID_THREAD_ID when there is none, or it has
// never used its queue (PeekMessageA makes one).
ORM_PLATFORM_API BOOL PostThreadMessageA(DWORD threadId, UINT message, WPARAM first, LPARAM second) noexcept;
// Appends to the queue of the window's thread (null window: the caller's). ERROR_INVALID_WINDOW_HANDLE.
ORM_PLATFORM_API BOOL PostMessageA(HWND window, UINT message, WPARAM first, LPARAM second) noexcept;
// Calls the window's procedure and gives its result; from another thread it waits until the window's thread
// looks at its queue and runs the call there. 0 with ERROR_INVALID_WINDOW_HANDLE for an unknown window.
ORM_PLATFORM_API LRESULT SendMessageA(HWND window, UINT message, WPARAM first, LPARAM second) noexcept;
// Takes the first message that matches: of `window` (null: any), numbered `first` to `last` (0, 0: any), in
// the order posted messages, quit, input, paint, timers. The high word of `remove` may name QS_ kinds to look
// at. TRUE when there is one; input that was looked at is no longer new.
ORM_PLATFORM_API BOOL PeekMessageA(MSG* message, HWND window, UINT first, UINT last, UINT remove) noexcept;
// The same, waits for one. 0 for WM_QUIT, -1 on failure.
ORM_PLATFORM_API BOOL GetMessageA(MSG* message, HWND window, UINT first, UINT last) noexcept;
ORM_PLATFORM_API BOOL TranslateMessage(const MSG* message) noexcept;
ORM_PLATFORM_API LRESULT DispatchMessageA(const MSG* message) noexcept;
// Without memory for the thread's first use of its queue the process ends (std::terminate): the loop that the
// call is to end would never learn of it.
ORM_PLATFORM_API void PostQuitMessage(int exitCode) noexcept;
ORM_PLATFORM_API BOOL WaitMessage() noexcept;
// Kinds of `flags` in the queue: low word the new ones since the last look, high word all; they stop being
// new.
ORM_PLATFORM_API DWORD GetQueueStatus(UINT flags) noexcept;
// Like WaitForMultipleObjects, with the queue as the last object (index `count`), signalled by new input of
// the kinds in `wakeMask`. Up to 63 objects.
ORM_PLATFORM_API DWORD MsgWaitForMultipleObjects(DWORD count, const HANDLE* objects, BOOL all,
                                                 DWORD milliseconds, DWORD wakeMask) noexcept;
// With MWMO_INPUTAVAILABLE input that has been seen but not removed counts as well.
ORM_PLATFORM_API DWORD MsgWaitForMultipleObjectsEx(DWORD count, const HANDLE* objects, DWORD milliseconds,
                                                   DWORD wakeMask, DWORD flags) noexcept;
// Input as a device would give it: queues a keyboard or mouse message (WM_KEY..., WM_MOUSEMOVE,
// WM_...BUTTON...) for the window. There is no device; programs and tests inject. ERROR_INVALID_PARAMETER for
// other messages.
ORM_PLATFORM_API BOOL OrmInjectInput(HWND window, UINT message, WPARAM first, LPARAM second) noexcept;
// The same for a thread that has a queue but no window.
ORM_PLATFORM_API BOOL OrmInjectThreadInput(DWORD threadId, UINT message, WPARAM first,
                                           LPARAM second) noexcept;

// --- Windows.
ORM_PLATFORM_API ATOM RegisterClassA(const WNDCLASSA* windowClass) noexcept;
ORM_PLATFORM_API BOOL UnregisterClassA(const char* name, HINSTANCE instance) noexcept;
// Makes a window of the calling thread; sends WM_NCCREATE and WM_CREATE, whose refusal (FALSE, -1) gives
// null.
ORM_PLATFORM_API HWND CreateWindowExA(DWORD extendedStyle, const char* className, const char* title,
                                      DWORD style, int x, int y, int width, int height, HWND parent,
                                      HMENU menu, HINSTANCE instance, void* parameter) noexcept;
// Destroys a window of the calling thread and its children; ERROR_ACCESS_DENIED for another thread's.
ORM_PLATFORM_API BOOL DestroyWindow(HWND window) noexcept;
ORM_PLATFORM_API BOOL IsWindow(HWND window) noexcept;
ORM_PLATFORM_API HWND GetParent(HWND window) noexcept;
ORM_PLATFORM_API BOOL GetClientRect(HWND window, RECT* rectangle) noexcept;
// Turns a point of the client area into one of the screen.
ORM_PLATFORM_API BOOL ClientToScreen(HWND window, POINT* point) noexcept;
ORM_PLATFORM_API BOOL MoveWindow(HWND window, int x, int y, int width, int height, BOOL repaint) noexcept;
ORM_PLATFORM_API DWORD GetWindowThreadProcessId(HWND window, DWORD* processId) noexcept;
ORM_PLATFORM_API LRESULT DefWindowProcA(HWND window, UINT message, WPARAM first, LPARAM second) noexcept;
// Adds the rectangle (null: the client area) to what has to be painted. `erase` asks for the background too.
ORM_PLATFORM_API BOOL InvalidateRect(HWND window, const RECT* rectangle, BOOL erase) noexcept;
ORM_PLATFORM_API BOOL ValidateRect(HWND window, const RECT* rectangle) noexcept;
// The bounding rectangle of what has to be painted; FALSE (and an empty rectangle) when nothing has.
ORM_PLATFORM_API BOOL GetUpdateRect(HWND window, RECT* rectangle, BOOL erase) noexcept;
// Sends WM_PAINT at once when something has to be painted.
ORM_PLATFORM_API BOOL UpdateWindow(HWND window) noexcept;
// For the drawing half: takes over what has to be painted, as BeginPaint does. Returns whether there was
// something; `erase` tells whether the background was asked for.
ORM_PLATFORM_API BOOL OrmTakeUpdateRect(HWND window, RECT* rectangle, BOOL* erase) noexcept;

// --- Timers: a WM_TIMER in the queue (or a call of `procedure` by DispatchMessageA) every `milliseconds`; a
// null window makes a timer of the calling thread with a new id. Returns the id, 0 on failure.
ORM_PLATFORM_API UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT milliseconds, TIMERPROC procedure) noexcept;
ORM_PLATFORM_API BOOL KillTimer(HWND window, UINT_PTR id) noexcept;

// --- Message box: asks on the controlling terminal; 0 when the process has none (or it is
// closed, or the process runs in the background there).
ORM_PLATFORM_API int MessageBoxA(HWND owner, const char* text, const char* caption, UINT style) noexcept;

}  // extern "C"
