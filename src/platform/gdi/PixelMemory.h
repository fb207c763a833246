// Memory for pixels. Drawing off-screen makes and drops bitmaps of the same few sizes all the time,
// and pages that are fresh from the system cost several times what drawing on them costs; so some large
// blocks are kept for whoever comes next.
#pragma once

#include <cstddef>
#include <cstdint>

namespace orm::platform::gdi {

// Owns one block. Allocating and freeing may be done by any thread.
class PixelMemory {
 public:
  PixelMemory() = default;
  // Null when there is not so much.
  explicit PixelMemory(std::size_t size);
  PixelMemory(PixelMemory&& other) noexcept;
  PixelMemory& operator=(PixelMemory&& other) noexcept;
  ~PixelMemory();

  [[nodiscard]] std::uint8_t* Get() const { return mpBytes; }
  // False for one of the blocks that were kept.
  [[nodiscard]] bool IsZeroed() const { return mIsZeroed; }

 private:
  std::uint8_t* mpBytes = nullptr;
  std::size_t mCapacity = 0;
  bool mIsZeroed = false;
};

}  // namespace orm::platform::gdi
