// Windows that record what they are told, and tests that begin with an empty queue.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "win32/user.h"

namespace test {

// What the windows' procedure was called with.
inline std::vector<UINT> gsSeen;

inline LRESULT Record(HWND window, UINT message, WPARAM first, LPARAM second) {
  gsSeen.push_back(message);
  if (message == WM_USER) return static_cast<LRESULT>(first) + second;
  if (message == WM_DESTROY) PostQuitMessage(static_cast<int>(gsSeen.size()));
  return DefWindowProcA(window, message, first, second);
}

inline HWND MakeWindow(HWND parent = nullptr) {
  WNDCLASSA windowClass{};
  windowClass.lpfnWndProc = &Record;
  windowClass.lpszClassName = "Recorder";
  RegisterClassA(&windowClass);
  const HWND window =
      CreateWindowExA(0, "recorder", "title", 0, 10, 20, 100, 50, parent, nullptr, nullptr, nullptr);
  gsSeen.clear();
  return window;
}

// Looks for new input of those kinds, or waits for it.
inline DWORD WaitForInput(UINT mask, DWORD time = 0) {
  return MsgWaitForMultipleObjects(0, nullptr, FALSE, time, mask);
}

// Takes what an earlier case of the same process left.
class EmptyQueue : public testing::Test {
 protected:
  void SetUp() override {
    MSG message;
    while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
    }
  }
};

}  // namespace test
