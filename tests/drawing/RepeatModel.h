// What DrawRepeat has to do, pixel by pixel.
#pragma once

#include <algorithm>
#include <vector>

namespace test {

struct RepeatAxis {
  int start, length, period, phase;
};

// The source position of every target position, -1 where nothing is drawn.
inline std::vector<int> ModelRepeat(const RepeatAxis& axis, int size, int target) {
  std::vector<int> from(static_cast<size_t>(target), -1);
  if (target <= size) {
    for (int i = 0; i < target; ++i) from[static_cast<size_t>(i)] = i;
    return from;
  }
  int band = size - 1, width = 1, tail = 0;
  if (axis.start < size && axis.length != 0) {
    band = axis.start;
    width = std::min(size - axis.start, axis.length);
    tail = size - band - width;
  }
  // The tail begins at the first place from where it would end at the edge on, such that this place plus a
  // band is congruent to the phase.
  int tailAt = target - tail;
  while (tail > 0 && tailAt < target &&
         ((tailAt + width - axis.phase) % axis.period + axis.period) % axis.period != 0)
    ++tailAt;
  if (tail == 0) tailAt = target;
  for (int i = 0; i < target; ++i) {
    int& source = from[static_cast<size_t>(i)];
    if (i < band + width)
      source = i;
    else if (i < tailAt)
      source = band + (i - band) % width;
    else
      source = band + width + (i - tailAt);
  }
  return from;
}

}  // namespace test
