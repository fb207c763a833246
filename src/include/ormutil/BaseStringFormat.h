// The formatting operations of BaseString. Included by BaseString.h, never directly.
#pragma once

#include <algorithm>
#include <cstring>
#include <new>

namespace orm {

namespace string_detail {

inline constexpr int kLineMessage = 2402;

}  // namespace string_detail

template <class Traits>
void BaseString<Traits>::FormatArguments(const Char* formatString, ...) {
  va_list arguments;
  va_start(arguments, formatString);
  FormatV(formatString, arguments);
  va_end(arguments);
}

// What is formatted may lie in the present text, which therefore stays as it is until the new one is there.
// Each try has twice the room of the last, so that all tries together cost no more than a few of the last
// one's size; what is too much of it in the end is given back.
template <class Traits>
template <class Write>
void BaseString<Traits>::Rewrite(size_t request, Write write) try {
  BaseString result{Uncounted()};
  if (!IsShared()) request = std::max<size_t>(request, GetCapacity());
  for (bool isFirst = true;; isFirst = false) {
    Char* text = result.PrepareWriting(request, false);
    *text = 0;
    request = size_t{result.GetCapacity()} * 2;
    const int outcome = write(text, result.GetCapacity(), request);
    if (outcome == 0) continue;
    if (outcome < 0) *text = 0;
    const bool hasGrown = outcome > 0 && !isFirst;
    if (hasGrown && string_detail::RoundCapacity(result.GetSize() + sizeof(Char)) < result.GetCapacity()) {
      result = BaseString(result.mpText, result.GetEnd());
    }
    return Swap(result);
  }
} catch (const std::bad_alloc&) {
  Empty();
}

template <class Traits>
void BaseString<Traits>::FormatV(const Char* formatString, va_list arguments) {
  ORM_ASSERT(formatString != nullptr, "formatString != 0", string_detail::kSource, 2295);
  if (!formatString) return Empty();
  const auto write = [&](Char* text, unsigned capacity, size_t& request) {
    va_list copy;
    va_copy(copy, arguments);
    const int length = Traits::FormatV(text, capacity, formatString, copy);
    va_end(copy);
    if (length < 0) return -1;
    // What is missing is known here, and asking for it ends at the capacity that growing by steps would
    // reach.
    request = (static_cast<size_t>(length) + 1) * sizeof(Char);
    return request <= capacity ? 1 : 0;
  };
  Rewrite(Traits::GetSize(formatString) + sizeof(Char), write);
}

template <class Traits>
void BaseString<Traits>::FormatMessage(const Char* format, va_list arguments) {
  if (!format || *format == 0) return Empty();
  const auto write = [&](Char* text, unsigned capacity, size_t&) {
    va_list copy;
    va_copy(copy, arguments);
    const int result = Traits::FormatMessageV(text, format, capacity, reinterpret_cast<char*>(&copy));
    va_end(copy);
    if (result < 0) ORM_FORCED_ASSERT(string_detail::kSource, string_detail::kLineMessage);
    return result;
  };
  Rewrite(Traits::GetSize(format) + sizeof(Char), write);
}

template <class Traits>
auto BaseString<Traits>::FormatMessageText(const Char* format, ...) -> BaseString {
  BaseString result;
  va_list arguments;
  va_start(arguments, format);
  result.FormatMessage(format, arguments);
  va_end(arguments);
  return result;
}

template <class Traits>
auto BaseString<Traits>::FormatCounted(size_t count, const Char* format, ...) -> BaseString {
  BaseString result;
  if (format && string_detail::CountInserts(format) > count) {
    ORM_FORCED_ASSERT(string_detail::kSource, string_detail::kLineMessage);
    return result;
  }
  va_list arguments;
  va_start(arguments, format);
  result.FormatMessage(format, arguments);
  va_end(arguments);
  return result;
}

template <class Traits>
void BaseString<Traits>::SetSystemError(DWORD code, const Char* prefix) {
  const size_t size = prefix ? Traits::GetSize(prefix) : 0;
  const auto write = [&](Char* text, unsigned capacity, size_t&) {
    if (size != 0) std::memcpy(text, prefix, size);
    Char* message = text + size / sizeof(Char);
    *message = 0;
    return Traits::SystemError(message, code, static_cast<unsigned>(capacity - size));
  };
  Rewrite(size + 32, write);
}

}  // namespace orm
