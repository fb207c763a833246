// The layer's calls have callers in C: no exception leaves them. One that needs memory is a function try
// block
//
//   HANDLE MakeSomething() noexcept try {
//     ...
//   } catch (const std::bad_alloc&) {
//     return NoMemory<HANDLE>(nullptr);
//   }
#pragma once

#include <new>

#include "kernel/ThreadRecord.h"
#include "win32/errors.h"

namespace orm::platform {

// The result of a call that lacked memory; the last error says so.
template <class Result>
Result NoMemory(Result failure) noexcept {
  tlsLastError = ERROR_NOT_ENOUGH_MEMORY;
  return failure;
}

}  // namespace orm::platform
