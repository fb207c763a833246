// FormatMessageA and FormatMessageW: where the text comes from and where the result goes.
#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "kernel/MessageFormat.h"
#include "kernel/SystemMessages.h"
#include "win32/kernel.h"
#include "win32/nls.h"

namespace orm::platform {
namespace {

DWORD Fail(DWORD error) {
  SetLastError(error);
  return 0;
}

bool IsEnglish(DWORD language) {
  constexpr DWORD primaryMask = 0x3FF;
  constexpr DWORD english = 9;
  return language == 0 || language == english || language == 0x409 ||
         ((language & primaryMask) == 0);  // the neutral language in any of its forms
}

// The terminated text that the flags and the message number name, or an error.
template <typename Char>
DWORD FindText(DWORD flags, LPCVOID source, DWORD messageId, DWORD language,
               std::basic_string<Char>& systemText, const Char*& text) {
  if ((flags & FORMAT_MESSAGE_FROM_STRING) != 0) {
    text = static_cast<const Char*>(source);
    return source != nullptr ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
  }
  if ((flags & FORMAT_MESSAGE_FROM_SYSTEM) == 0)
    return (flags & FORMAT_MESSAGE_FROM_HMODULE) != 0 ? ERROR_RESOURCE_TYPE_NOT_FOUND
                                                      : ERROR_INVALID_PARAMETER;
  if (!IsEnglish(language)) return ERROR_RESOURCE_LANG_NOT_FOUND;
  const char* message = FindSystemMessage(messageId);
  if (message == nullptr) return ERROR_MR_MID_NOT_FOUND;
  for (; *message != '\0'; ++message) systemText.push_back(static_cast<Char>(*message));
  systemText.push_back('\r');
  systemText.push_back('\n');
  text = systemText.c_str();
  return ERROR_SUCCESS;
}

template <typename Char>
DWORD Format(DWORD flags, const Char* text, va_list* arguments, MessageSink<Char>& sink) {
  const MessageOptions options{.ignoreInserts = (flags & FORMAT_MESSAGE_IGNORE_INSERTS) != 0,
                               .joinLines = (flags & FORMAT_MESSAGE_MAX_WIDTH_MASK) != 0};
  MessageArguments inserts(arguments, (flags & FORMAT_MESSAGE_ARGUMENT_ARRAY) != 0);
  const DWORD error = FormatMessageText(text, options, inserts, sink);
  if (error != ERROR_SUCCESS) return error;
  if (!sink.Terminate()) return sink.IsOutOfMemory() ? ERROR_NOT_ENOUGH_MEMORY : ERROR_INSUFFICIENT_BUFFER;
  return ERROR_SUCCESS;
}

// Formats into memory for the caller to free, of at least `size` units.
template <typename Char>
DWORD FormatAllocated(DWORD flags, const Char* text, Char** result, std::size_t size, va_list* arguments,
                      DWORD& length) {
  MessageSink<Char> sink(flags & FORMAT_MESSAGE_MAX_WIDTH_MASK, size);
  const DWORD error = Format(flags, text, arguments, sink);
  if (error != ERROR_SUCCESS) return error;
  length = static_cast<DWORD>(sink.Size());
  *result = sink.Release();
  return ERROR_SUCCESS;
}

template <typename Char>
DWORD FormatMessageOf(DWORD flags, LPCVOID source, DWORD messageId, DWORD language, Char* buffer, DWORD size,
                      va_list* arguments) try {
  if (buffer == nullptr) return Fail(ERROR_INVALID_PARAMETER);
  const bool allocate = (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0;
  if (allocate) *reinterpret_cast<Char**>(buffer) = nullptr;
  if (!allocate && size == 0) return Fail(ERROR_INSUFFICIENT_BUFFER);
  std::basic_string<Char> systemText;
  const Char* text = nullptr;
  DWORD error = FindText(flags, source, messageId, language, systemText, text);
  DWORD length = 0;
  if (error == ERROR_SUCCESS && allocate) {
    error = FormatAllocated(flags, text, reinterpret_cast<Char**>(buffer), size, arguments, length);
  } else if (error == ERROR_SUCCESS) {
    MessageSink<Char> sink(buffer, size, flags & FORMAT_MESSAGE_MAX_WIDTH_MASK);
    error = Format(flags, text, arguments, sink);
    length = static_cast<DWORD>(sink.Size());
  }
  // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): it forgets that a sink into a buffer owns nothing
  if (error != ERROR_SUCCESS) {
    if (!allocate) buffer[0] = 0;  // half a message is none
    return Fail(error);
  }
  if (length == 0) SetLastError(ERROR_SUCCESS);
  return length;
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY);
}

}  // namespace
}  // namespace orm::platform

extern "C" {

DWORD WINAPI FormatMessageA(DWORD flags, LPCVOID source, DWORD messageId, DWORD language, LPSTR buffer,
                            DWORD size, va_list* arguments) {
  return orm::platform::FormatMessageOf(flags, source, messageId, language, buffer, size, arguments);
}

DWORD WINAPI FormatMessageW(DWORD flags, LPCVOID source, DWORD messageId, DWORD language, LPWSTR buffer,
                            DWORD size, va_list* arguments) {
  return orm::platform::FormatMessageOf(flags, source, messageId, language, buffer, size, arguments);
}

HLOCAL WINAPI LocalFree(HLOCAL memory) {
  if (memory != nullptr) explicit_bzero(memory, malloc_usable_size(memory));
  std::free(memory);
  return nullptr;
}

}  // extern "C"
