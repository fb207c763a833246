// What the traits of narrow and of wide text share in asking the platform for messages.
#pragma once

#include <win32.h>

namespace orm {

// The system's message for an error number, as one line.
inline constexpr DWORD kSystemMessage =
    FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK;

// What FormatMessage answered for a buffer of `room` characters, the last error having been 0 before, in the
// form of the traits. An empty result is a success without characters.
template <class Char>
int MessageResult(DWORD length, Char* buffer, unsigned room) {
  if (length != 0) return 1;
  switch (GetLastError()) {
    case ERROR_INSUFFICIENT_BUFFER:
    case ERROR_MORE_DATA:
      return 0;
    case ERROR_SUCCESS:
      if (room == 0) return 0;
      *buffer = 0;
      return 1;
    default:
      return -1;
  }
}

}  // namespace orm
