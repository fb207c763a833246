// The enter and leave lines of a traced block.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "TraceFacility.h"

namespace orm::trace_detail {

void ScopeLines::FreeMessage() {
  std::free(mpMessage);
}

void ScopeLines::MakeMessage(const char* format, ...) {
  char buffer[SCOPE_MESSAGE_SIZE];
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(buffer, sizeof buffer, format, arguments);
  va_end(arguments);
  if (length < 0) buffer[0] = 0;
  const size_t size = std::strlen(buffer) + 1;
  mpMessage = static_cast<char*>(std::malloc(size));
  if (mpMessage) std::memcpy(mpMessage, buffer, size);
}

void ScopeLines::WriteEnter() {
  Write(mArea, mLevel, false, mpFile, mLine, "==> %s", mpMessage ? mpMessage : "");
}

void ScopeLines::WriteLeave() {
  const char* message = mpMessage ? mpMessage : "";
  if (!timesBlocks.load(std::memory_order_relaxed)) {
    Write(mArea, mLevel, false, mpFile, mLine, "<== %s", message);
    return;
  }
  const DWORD elapsed = GetTickCount() - mStart;
  Write(mArea, mLevel, false, mpFile, mLine, "<== (%d.%03d) %s", static_cast<int>(elapsed / 1000),
        static_cast<int>(elapsed % 1000), message);
}

}  // namespace orm::trace_detail
