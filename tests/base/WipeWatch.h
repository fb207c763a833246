// Looks at the blocks that are freed: does the text still stand behind the header? And refuses new ones.
#pragma once

#include <atomic>
#include <cstddef>

namespace test {

// How many blocks are left for those who ask for them without an exception.
extern std::atomic<int> blocksLeft;
constexpr int kNoEnd = 0x7FFFFFFF;
// While it is not 0, each freed block with this capacity in its header is counted.
extern std::atomic<size_t> watchedCapacity;
extern std::atomic<int> wipedBlocks, dirtyBlocks;

// Whether a block that was freed while the watch exists holds the text, as 8-bit or as 16-bit characters. New
// blocks are cleared meanwhile, or they might show what the test itself left behind; the text must lie in no
// block.
class TextWatch {
 public:
  explicit TextWatch(const char* asciiText);
  ~TextWatch();
  TextWatch(const TextWatch&) = delete;
  TextWatch& operator=(const TextWatch&) = delete;

  // Blocks with the text since the last call.
  int Take();
};

}  // namespace test
