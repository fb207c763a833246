// Takes the samples.
#pragma once

#include "Bench.h"

namespace bench {

struct Result {
  double ours, peer;  // median nanoseconds of one operation
  double GetRatio() const { return ours / peer; }
};

Result Measure(const Row& row);

// The median nanoseconds of one operation.
double Measure(const Operation& operation);

}  // namespace bench
