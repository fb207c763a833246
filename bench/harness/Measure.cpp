// Sampling: calibration, pairs, medians.
#include "Measure.h"

#include <algorithm>
#include <stdexcept>

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int SAMPLES = 15;
constexpr int HEAVY_SAMPLES = 9;
constexpr double SAMPLE_NS = 8e6;

double correction = 0;

double Time(const Operation& operation, size_t n) {
  correction = 0;
  const auto start = Clock::now();
  operation(n);
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count() + correction;
}

// The least of three, by the time that passes, corrected or not: an operation with long preparations is not
// repeated for hours.
double TimeRoughly(const Operation& operation, size_t n) {
  double least = 0;
  for (int i = 0; i < 3; ++i) {
    const auto start = Clock::now();
    operation(n);
    const double time = std::chrono::duration<double, std::nano>(Clock::now() - start).count();
    if (i == 0 || time < least) least = time;
    if (least > 4 * SAMPLE_NS) break;
  }
  return least;
}

size_t Calibrate(const Operation& operation) {
  operation(1);  // what the first call makes for all others would count for the rest
  for (size_t n = 1;;) {
    const double time = TimeRoughly(operation, n);
    if (time >= SAMPLE_NS / 4) {
      return std::max<size_t>(1, static_cast<size_t>(static_cast<double>(n) * SAMPLE_NS / time));
    }
    n *= time < SAMPLE_NS / 64 ? 8 : 2;
  }
}

double GetMedian(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<long>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

template <class Entry>
void AddUnique(std::vector<Entry>& entries, Entry entry) {
  for (const Entry& other : entries) {
    if (other.name == entry.name) throw std::logic_error("two rows are named " + entry.name);
  }
  entries.push_back(std::move(entry));
}

}  // namespace

void Table::Add(Row row) {
  AddUnique(mRows, std::move(row));
}
void Table::Add(Growth growth) {
  AddUnique(mGrowths, std::move(growth));
}

void AddTime(double nanoseconds) {
  correction += nanoseconds;
}

Result Measure(const Row& row) {
  const Sides sides = row.prepare ? row.prepare() : Sides{row.ours, row.theirs};
  const size_t nOurs = row.heavy ? 1 : Calibrate(sides.ours);
  const size_t nPeer = row.heavy ? 1 : Calibrate(sides.theirs);
  std::vector<double> ours, peer;
  for (int i = 0; i < (row.heavy ? HEAVY_SAMPLES : SAMPLES); ++i) {
    ours.push_back(Time(sides.ours, nOurs) / static_cast<double>(nOurs));
    peer.push_back(Time(sides.theirs, nPeer) / static_cast<double>(nPeer));
  }
  return {GetMedian(ours), GetMedian(peer)};
}

double Measure(const Operation& operation, size_t multiple) {
  const size_t n = (Calibrate(operation) + multiple - 1) / multiple * multiple;
  std::vector<double> times;
  for (int i = 0; i < HEAVY_SAMPLES; ++i) times.push_back(Time(operation, n) / static_cast<double>(n));
  return GetMedian(times);
}

}  // namespace bench
