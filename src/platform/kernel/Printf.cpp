// The runtime library's printf into a buffer that may be too small.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "win32/nls.h"

extern "C" {

int _vsnprintf(char* buffer, size_t count, const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(buffer, count, format, arguments);
  const auto size = static_cast<std::size_t>(length);
  if (length >= 0 && size >= count && count > 0) {
    // The C library kept the last byte for a terminator; the whole text is needed to learn it.
    const std::unique_ptr<char[]> whole(new (std::nothrow) char[size + 1]);
    if (whole != nullptr && std::vsnprintf(whole.get(), size + 1, format, again) == length)
      buffer[count - 1] = whole[count - 1];
    if (whole != nullptr) explicit_bzero(whole.get(), size + 1);  // as the caller may do with its own
  }
  va_end(again);
  return length < 0 || size > count ? -1 : length;
}

int _snprintf(char* buffer, size_t count, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = _vsnprintf(buffer, count, format, arguments);
  va_end(arguments);
  return length;
}

}  // extern "C"
