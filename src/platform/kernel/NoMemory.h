// The layer's calls have callers in C: no exception leaves them.
#pragma once

#include <new>
#include <utility>

#include "win32/errors.h"
#include "win32/kernel.h"

namespace orm::platform {

// The result of a call that lacked memory; the last error says so.
template <class Result>
Result NoMemory(Result failure) noexcept {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return failure;
}

// What `body()` returns; `failure` when it lacks memory.
template <class Result, class Body>
Result OrNoMemory(Result failure, Body&& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return NoMemory(std::move(failure));
  }
}

}  // namespace orm::platform
