// The registry's functions have callers in C: no exception leaves them.
#pragma once

#include <new>

#include "win32/errors.h"
#include "win32/registry.h"

namespace orm::platform {

// What `body()` returns, an error number; ERROR_NOT_ENOUGH_MEMORY when it lacks memory.
template <class Body>
LSTATUS Guarded(Body&& body) {
  try {
    return static_cast<LSTATUS>(body());
  } catch (const std::bad_alloc&) {
    return ERROR_NOT_ENOUGH_MEMORY;
  }
}

}  // namespace orm::platform
