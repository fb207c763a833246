// Takes the samples.
#pragma once

#include "Bench.h"

namespace bench {

struct Result {
  double ours, peer;  // median nanoseconds of one operation
  double GetRatio() const { return ours / peer; }
};

Result Measure(const Row& row);

// The median nanoseconds of one operation, of which a multiple of `multiple` is done at a time.
double Measure(const Operation& operation, size_t multiple);

}  // namespace bench
