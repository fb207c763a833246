// An open file of the C library, closed with its owner.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace orm::platform {

class Descriptor {
 public:
  explicit Descriptor(int file = -1) noexcept : mFile(file) {}
  Descriptor(Descriptor&& other) noexcept : mFile(other.Release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    Descriptor(std::move(other)).Swap(*this);
    return *this;
  }
  // Leaves errno alone: whoever gives up for an error tells it afterwards.
  ~Descriptor() {
    const int error = errno;
    if (IsOpen()) close(mFile);
    errno = error;
  }
  void Swap(Descriptor& other) noexcept { std::swap(mFile, other.mFile); }

  [[nodiscard]] bool IsOpen() const noexcept { return mFile >= 0; }
  [[nodiscard]] int Get() const noexcept { return mFile; }
  int Release() noexcept { return std::exchange(mFile, -1); }

 private:
  int mFile;
};

}  // namespace orm::platform
