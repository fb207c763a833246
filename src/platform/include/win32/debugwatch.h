// The reader's side of OutputDebugStringA: for tools that show the debugger output of a machine's processes.
#pragma once

#include <string>

#include "win32/types.h"

namespace orm::platform {

// One text as a process sent it.
struct DebugRecord {
  DWORD processId;
  std::string text;  // in the machine's ANSI code page, with the line end that the sender gave it
};

// Watches the machine's debugger output from construction on. Up to eight watchers may exist at once, each
// sees every record. A sender waits a moment for a slow watcher and then drops the record. One thread uses an
// object.
class ORM_PLATFORM_API DebugWatch {
 public:
  DebugWatch();  // check IsOpen(): no machine folder, no right to write there, or eight watchers already
  ~DebugWatch();
  DebugWatch(const DebugWatch&) = delete;
  DebugWatch& operator=(const DebugWatch&) = delete;

  bool IsOpen() const { return mSocket >= 0; }
  // Waits up to `milliseconds` (INFINITE: for ever) for the next record; false on time-out.
  bool Read(DebugRecord& record, DWORD milliseconds);

 private:
  int mSocket = -1;
  int mSlot = -1;
};

}  // namespace orm::platform
