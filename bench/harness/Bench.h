// Benchmark rows, each measured beside a peer in the same run, and costs against a size.
//
//   void AddStringRows(bench::Table& table) {
//     table.Add({.name = "copy and drop a 64-byte string", .peer = "std::string", .goal = 0.4,
//                .ours = [](size_t n) { while (n--) ...; }, .theirs = [](size_t n) { ... }});
//     table.Add({.name = "copy a bag", .unit = "properties", .sizes = {10, 100, 1000},
//                .prepare = [](size_t size) { return [bag = Make(size)](size_t n) { ... }; }});
//   }
//
// An operation does its work n times. The harness chooses n so that a sample takes some milliseconds, takes
// the samples of ours and of the peer's in turn and reports the medians and their ratio. Nothing may be made
// before it is measured: what a row needs is made by its `prepare` and dies with the operations it returned.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace bench {

// Keeps the optimiser from removing a value.
template <class T>
inline void Keep(const T& value) {
  asm volatile("" : : "r,m"(value) : "memory");
}

using Operation = std::function<void(size_t n)>;

struct Sides {
  Operation ours, theirs;
};

struct Row {
  std::string name;  // unique; what is measured, and the kind of peer when several rows measure the same
  std::string peer;
  double goal = 1.0;  // ours / peer must not exceed it
  Operation ours{}, theirs{};
  std::function<Sides()> prepare{};  // makes the two operations of a row that needs something
  std::string note{};                // what a reader must know to judge the ratio
  bool heavy = false;                // one call takes milliseconds or more: n is not calibrated, it stays 1
};

// A cost against a size, printed and written without a verdict.
struct Growth {
  std::string name;                               // unique
  std::string unit;                               // what the size counts: "classes", "threads"
  std::vector<size_t> sizes;                      // ascending
  std::function<Operation(size_t size)> prepare;  // makes the operation for one size
  std::string operation = "operation";            // what one of n is, as the plot's axis says it
  bool wholePasses = false;                       // n is rounded up to a multiple of the size
};

// Throws std::logic_error for a name that was added before.
class Table {
 public:
  void Add(Row row);
  void Add(Growth growth);

  const std::vector<Row>& GetRows() const { return mRows; }
  const std::vector<Growth>& GetGrowths() const { return mGrowths; }

 private:
  std::vector<Row> mRows;
  std::vector<Growth> mGrowths;
};

// Adds to the time of the sample that is being taken, which may be less than nothing. For an operation that
// was measured elsewhere, such as in a process that it started.
void AddTime(double nanoseconds);

// What happens while one of these lives does not count: preparations between two operations of a sample.
class Untimed {
 public:
  Untimed() = default;
  ~Untimed() { AddTime(-std::chrono::duration<double, std::nano>(Clock::now() - mStart).count()); }
  Untimed(const Untimed&) = delete;
  Untimed& operator=(const Untimed&) = delete;

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point mStart = Clock::now();
};

}  // namespace bench
