// An owned handle, for tests.
#pragma once

#include <utility>

#include "win32/kernel.h"

namespace orm::test {

class Handle {
 public:
  Handle() = default;
  explicit Handle(HANDLE handle) : mHandle(handle) {}
  Handle(Handle&& other) noexcept : mHandle(std::exchange(other.mHandle, nullptr)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(mHandle, other.mHandle);
    return *this;
  }
  ~Handle() { reset(); }
  HANDLE get() const { return mHandle; }
  HANDLE* put() { return &mHandle; }
  explicit operator bool() const { return mHandle != nullptr; }
  void reset() {
    if (mHandle != nullptr) CloseHandle(std::exchange(mHandle, nullptr));
  }

 private:
  HANDLE mHandle = nullptr;
};

}  // namespace orm::test
