// Looks at the blocks that are freed: does the text still stand behind the header? And refuses new ones.
#pragma once

#include <atomic>
#include <cstddef>

namespace test {

// While it is set, blocks are refused to whoever asks for them without an exception.
extern std::atomic<bool> memoryIsOut;
// While it is not 0, each freed block with this capacity in its header is counted.
extern std::atomic<size_t> watchedCapacity;
extern std::atomic<int> wipedBlocks, dirtyBlocks;

}  // namespace test
