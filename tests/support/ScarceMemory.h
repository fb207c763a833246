// Memory that runs out, and blocks that are counted, for the whole of a test program that is built with
// ScarceMemory.cpp.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <new>

namespace test {

// The allocation that finds 0 here is refused, those after it are not again; below 0 none is.
extern std::atomic<long> allocationsLeft;
// While it is not 0, requests for at least so many bytes are refused.
extern std::atomic<size_t> refusedSize;
// Blocks that are allocated now.
extern std::atomic<long> liveBlocks;

// Does the operation with its at-th allocation (from 0) refused. `rIsRefused` tells whether std::bad_alloc
// came of that; false when there is no such allocation.
template <class Operation>
bool RefuseAllocation(long at, Operation operation, bool& rIsRefused) {
  rIsRefused = false;
  allocationsLeft = at;
  try {
    operation();
  } catch (const std::bad_alloc&) {
    rIsRefused = true;
  }
  return allocationsLeft.exchange(-1) < 0;
}

// Does it once for each of its allocations, and returns how often std::bad_alloc came of it. After each time
// `check` looks whether all is as it was, and no block may be left over.
template <class Operation, class Check>
int RefuseEachAllocation(Operation operation, Check check) {
  int refusals = 0;
  bool isRefused = false;
  for (long at = 0;; ++at) {
    long blocks = 0;
    // The last time is looked at: an assertion's line remembers what it asks the registry after a few.
    for (int time = 0; time < 3; ++time) {
      blocks = liveBlocks;
      if (!RefuseAllocation(at, operation, isRefused)) return refusals;
      check();
    }
    EXPECT_EQ(liveBlocks, blocks) << "allocation " << at;
    refusals += isRefused;
  }
}

}  // namespace test
