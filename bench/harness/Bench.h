// Benchmark rows, each measured beside a peer in the same run.
//
//   void AddStringRows(bench::Table& table) {
//     table.Add({.name = "copy and drop a 64-byte string", .peer = "std::string", .goal = 0.4,
//                .ours = [](size_t n) { while (n--) ...; }, .theirs = [](size_t n) { ... }});
//   }
//
// A row's two functions do their operation n times. The harness calibrates n so that a sample takes some
// milliseconds, samples ours and the peer's in turn at least nine times and reports the medians and their
// ratio.
#pragma once

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

struct Row {
  std::string name;
  std::string peer;
  double goal = 1.0;  // ours / peer must not exceed it
  std::function<void(size_t n)> ours;
  std::function<void(size_t n)> theirs;
  std::string note{};  // what a reader must know to judge the ratio
  bool heavy = false;  // one call takes milliseconds or more: n is not calibrated, it stays 1
};

// A cost against a size, printed and written without a verdict.
struct Growth {
  std::string name;
  std::vector<size_t> sizes;
  std::function<std::function<void(size_t n)>(size_t size)> prepare;  // makes the operation for one size
};

class Table {
 public:
  void Add(Row row) { mRows.push_back(std::move(row)); }
  void Add(Growth growth) { mGrowths.push_back(std::move(growth)); }

  const std::vector<Row>& GetRows() const { return mRows; }
  const std::vector<Growth>& GetGrowths() const { return mGrowths; }

 private:
  std::vector<Row> mRows;
  std::vector<Growth> mGrowths;
};

}  // namespace bench
