// Keeps the thread's last error over platform calls whose own failures nobody asks for.
#pragma once

#include <win32.h>

namespace orm {

// Who reports a failure formats a message first and asks for the error number afterwards, or evaluates both
// as arguments of one call, in any order. What serves reports therefore puts the number back that it found.
// For the thread that makes it.
class LastErrorKeeper {
 public:
  LastErrorKeeper() : mError(GetLastError()) {}
  ~LastErrorKeeper() { SetLastError(mError); }
  LastErrorKeeper(const LastErrorKeeper&) = delete;
  LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

 private:
  DWORD mError;
};

}  // namespace orm
