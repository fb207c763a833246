// Which sanitizers a test is built with (compilers tell it in two ways), and whether memcheck runs it.
#pragma once

#include <cstdlib>
#include <cstring>

namespace test {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool IS_ADDRESS_SANITIZED = true;
#elif defined(__has_feature)
constexpr bool IS_ADDRESS_SANITIZED = __has_feature(address_sanitizer);
#else
constexpr bool IS_ADDRESS_SANITIZED = false;
#endif

#if defined(__SANITIZE_THREAD__)
constexpr bool IS_THREAD_SANITIZED = true;
#elif defined(__has_feature)
constexpr bool IS_THREAD_SANITIZED = __has_feature(thread_sanitizer);
#else
constexpr bool IS_THREAD_SANITIZED = false;
#endif

constexpr bool IS_SANITIZED = IS_ADDRESS_SANITIZED || IS_THREAD_SANITIZED;

// Memcheck runs the programs of every build, with a library of its own in them.
inline bool IsUnderMemcheck() {
  const char* preloaded = std::getenv("LD_PRELOAD");
  return preloaded != nullptr && std::strstr(preloaded, "valgrind") != nullptr;
}

}  // namespace test
