// Random numbers with a seed, so that a failure can be repeated.
#pragma once

#include <random>

class Random {
 public:
  explicit Random(unsigned seed) : mEngine(seed) {}
  unsigned operator()() { return static_cast<unsigned>(mEngine()); }

 private:
  std::mt19937 mEngine;
};
