// The blocks that are kept.
#include "gdi/PixelMemory.h"

#include <array>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "gdi/Fork.h"

namespace orm::platform::gdi {
namespace {

// Below this the C library keeps blocks itself.
constexpr std::size_t leastKept = std::size_t{64} << 10;
constexpr std::size_t mostKept = std::size_t{16} << 20;

struct Block {
  std::uint8_t* bytes = nullptr;
  std::size_t capacity = 0;
};

class Store {
 public:
  constexpr Store() = default;

  // The smallest block that is large enough and not more than twice as large as needed; else none.
  Block Take(std::size_t size) {
    const std::lock_guard lock(mLock);
    Block* best = nullptr;
    for (Block& block : mBlocks) {
      const bool fits = block.capacity >= size && block.capacity / 2 <= size;
      if (fits && (best == nullptr || block.capacity < best->capacity)) best = &block;
    }
    if (best == nullptr) return {};
    mKept -= best->capacity;
    return std::exchange(*best, {});
  }

  // False when there is no room for it.
  bool Keep(const Block& block) {
    const std::lock_guard lock(mLock);
    if (block.capacity > mostKept - mKept) return false;
    for (Block& place : mBlocks) {
      if (place.bytes != nullptr) continue;
      place = block;
      mKept += block.capacity;
      return true;
    }
    return false;
  }

  std::mutex& Lock() { return mLock; }

 private:
  std::mutex mLock;
  std::array<Block, 8> mBlocks{};
  std::size_t mKept = 0;
};

constinit Store gStore;

}  // namespace

void LockKeptPixels() {
  gStore.Lock().lock();
}
void UnlockKeptPixels() {
  gStore.Lock().unlock();
}

PixelMemory::PixelMemory(std::size_t size) {
  const Block kept = size < leastKept ? Block{} : gStore.Take(size);
  if (kept.bytes != nullptr) {
    mpBytes = kept.bytes;
    mCapacity = kept.capacity;
  } else {
    // Zeroed by the system as the pages are touched, so that a large bitmap costs nothing before it is drawn
    // on.
    mpBytes = static_cast<std::uint8_t*>(std::calloc(size, 1));
    mCapacity = size;
    mIsZeroed = true;
  }
}

PixelMemory::PixelMemory(PixelMemory&& other) noexcept
    : mpBytes(std::exchange(other.mpBytes, nullptr)),
      mCapacity(other.mCapacity),
      mIsZeroed(other.mIsZeroed) {}

PixelMemory& PixelMemory::operator=(PixelMemory&& other) noexcept {
  std::swap(mpBytes, other.mpBytes);
  std::swap(mCapacity, other.mCapacity);
  std::swap(mIsZeroed, other.mIsZeroed);
  return *this;
}

PixelMemory::~PixelMemory() {
  const bool isKept = mpBytes != nullptr && mCapacity >= leastKept && gStore.Keep({mpBytes, mCapacity});
  if (!isKept) std::free(mpBytes);
}

}  // namespace orm::platform::gdi
