// An interlocked 32-bit counter: the reference count of every shared block and counted object.
#pragma once

#include <ormutil/Trace.h>

namespace orm {

// Increments, decrements and assignments are interlocked; a read is a plain load, good only for the question
// whether a block has one holder. A counter must lie on a 4-byte boundary: the platform's interlocked
// operations require it, so each operation checks it first. While the process has one thread, plain
// arithmetic does the same for a tenth of the cost.
class AtomicCounter {
 public:
  // Tags a counter of a block that is built at compile time, before any check could report.
  struct Constant {};

  constexpr AtomicCounter(Constant, LONG value) noexcept : mValue(value) {}
  AtomicCounter(LONG value) {
    Check(118);
    __atomic_store_n(&mValue, value, __ATOMIC_RELAXED);
  }
  AtomicCounter(const AtomicCounter&) = delete;
  AtomicCounter& operator=(const AtomicCounter&) = delete;

  AtomicCounter& operator=(LONG value) {
    Check(124);
    InterlockedExchange(&mValue, value);
    return *this;
  }
  operator LONG() const {
    Check(130);
    return __atomic_load_n(&mValue, __ATOMIC_ACQUIRE);
  }
  // Both yield the new value.
  LONG operator++() {
    Check(136);
    return OrmHasOneThread() ? ++mValue : InterlockedIncrement(&mValue);
  }
  LONG operator--() {
    Check(142);
    return OrmHasOneThread() ? --mValue : InterlockedDecrement(&mValue);
  }

  const LONG* GetAddress() const { return &mValue; }

 private:
  void Check(int line) const {
    auto address = reinterpret_cast<uintptr_t>(&mValue);
    // Where the number came from is hidden: a compiler that takes every object's alignment for granted would
    // drop the question.
    asm("" : "+r"(address));
    ORM_ASSERT(address % 4 == 0, "(((unsigned)&rData) % 4) == 0", "src/include/AtomicCounter", line);
  }

  LONG mValue;
};

}  // namespace orm
