// The values that an open key answered with last. They hold as long as nothing has been committed to the
// store since the transaction in which they were read.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <string_view>
#include <vector>

#include "win32/types.h"

namespace orm::platform {

// Not synchronised: it belongs to the slot of an open key and is used under that slot's lock.
class ValueMemory {
 public:
  static constexpr std::uint64_t noTransaction = ~std::uint64_t{0};

  // One answer, in two cache lines. Longer names and values are not remembered.
  struct Value {
    std::uint64_t txn = noTransaction;
    std::uint32_t hash = 0;
    DWORD type = 0;
    std::uint8_t size = 0;
    std::uint8_t nameSize = 0;
    std::array<char, 46> name;
    std::array<BYTE, 64> data;

    // The texts are not cleared: their sizes say what is there. A defaulted constructor would clear them.
    Value() {}  // NOLINT(modernize-use-equals-default)
    // Empty when the name or the data are too long.
    Value(std::uint64_t txn, std::string_view name, DWORD type, std::string_view data);

    [[nodiscard]] std::string_view Name() const { return {name.data(), nameSize}; }
    [[nodiscard]] std::string_view Data() const { return {reinterpret_cast<const char*>(data.data()), size}; }
  };

  // What the transaction found under exactly this name; null when that is not remembered.
  [[nodiscard]] const Value* Find(std::string_view name, std::uint64_t txn) const;

  // Remembers the value beside those of the same transaction, as many as there is room for.
  void Store(const Value& value);

 private:
  // A value lies in one of this many cells, beginning with the one that its hash names.
  static constexpr std::size_t window = 4;
  static constexpr std::size_t fewestCells = 8, mostCells = 128;

  // The first cell of the value's window that holds nothing of its transaction; null when there is none.
  Value* FreeCell(const Value& value);
  void Grow(std::uint64_t txn);

  std::vector<Value> mValues;  // a power of two, and window - 1 more
  std::size_t mMask = 0;
};

// Whether a memory is worth asking. Who reads more values in turn than there is room for finds none of them,
// and pays for looking and for storing each time. After many misses each thirty-first question goes to the
// memory, so that better times are noticed. Threads may use it at once: what they lose of each other's
// counting does not matter.
class MemoryHabit {
 public:
  bool IsWorthAsking() {
    const unsigned misses = mMisses.load(std::memory_order_relaxed);
    if (misses < many) return true;
    // From there on it counts the questions since the last one that was worth asking.
    mMisses.store(misses + 1 < many + askEvery ? misses + 1 : many, std::memory_order_relaxed);
    return misses == many;
  }
  void Missed() {
    const unsigned misses = mMisses.load(std::memory_order_relaxed);
    if (misses < many) mMisses.store(misses + 1, std::memory_order_relaxed);
  }
  void Hit() {
    const unsigned misses = mMisses.load(std::memory_order_relaxed);
    if (misses != 0)
      mMisses.store(misses < hitWeight ? 0 : std::min(misses, many) - hitWeight, std::memory_order_relaxed);
  }
  void Forget() { mMisses.store(0, std::memory_order_relaxed); }

 private:
  static constexpr unsigned many = 256, askEvery = 31, hitWeight = 3;

  std::atomic<unsigned> mMisses{0};
};

}  // namespace orm::platform
