// A counter of what is in progress, for many threads at once.
#pragma once

#include <win32.h>

#include <array>
#include <atomic>

namespace orm {

// Counts beginnings and ends. Threads count in cells of their own, so that they do not take a cache line away
// from each other, which costs more than anything else that a creation does. What begins on one thread may
// end on another. Any thread may call anything.
class SpreadCounter {
 public:
  constexpr SpreadCounter() = default;
  SpreadCounter(const SpreadCounter&) = delete;
  SpreadCounter& operator=(const SpreadCounter&) = delete;

  void Begin() { Add(GetCell().begun); }
  // The caller touches the counter no more.
  void End() { Add(GetCell().ended); }

  // Whether there was a moment during this call when all that had begun had ended. The ends are added up
  // before the beginnings: when both sums agree, nothing was in progress between the two.
  bool IsZero() const {
    DWORD ended = 0;
    for (const Cell& cell : mCells) ended += cell.ended.load(std::memory_order_seq_cst);
    DWORD begun = 0;
    for (const Cell& cell : mCells) begun += cell.begun.load(std::memory_order_seq_cst);
    return begun == ended;
  }

 private:
  static constexpr size_t CELLS = 16;

  struct alignas(64) Cell {
    std::atomic<DWORD> begun{0};
    std::atomic<DWORD> ended{0};
  };

  static void Add(std::atomic<DWORD>& rCount) {
    if (OrmHasOneThread()) {
      rCount.store(rCount.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    } else {
      rCount.fetch_add(1, std::memory_order_seq_cst);
    }
  }
  Cell& GetCell() { return mCells[GetCurrentThreadId() % CELLS]; }

  std::array<Cell, CELLS> mCells{};
};

}  // namespace orm
