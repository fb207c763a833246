// The area-weighted resampler for rows of 24-bit pixels.
//
// Both axes are cut at every source pixel border and at every target pixel border. Each piece of area
// contributes the colour that is interpolated at the piece's far corner, weighted by its area. Positions,
// lengths and sums are kept as 32-bit floating values between the steps, everything in between is calculated
// with 64 bits; the outcome is the same to the byte whatever vector width the processor has.
#pragma once

#include <win32.h>

#include <cstddef>
#include <cstdint>

namespace orm {

struct ResampleJob {
  // Bytes that have to be readable after the last source row.
  static constexpr size_t SOURCE_SPARE = 4;
  // Arrays of one value for each target pixel are padded to the widest vector.
  static constexpr size_t Pad(size_t count) { return (count + 7) / 8 * 8; }

  const BYTE* source;
  int sourceWidth;
  int sourceHeight;
  int64_t sourceStride;
  BYTE* target;
  int targetWidth;
  int targetHeight;
  int64_t targetStride;
  float* sums;    // Pad(targetWidth) * 3 zeros: the sums of one target row, channel by channel
  float* pieces;  // sourceWidth + targetWidth values: the lengths of the pieces of a row
};

// Fills the target's rows; the bytes between them stay. All sizes are at least 1. Needs working memory of a
// few rows beside the job's; throws std::bad_alloc without it. Vectors are as wide as the processor has them,
// but at most `mostLanes` doubles (2, 4 or 8), which only tests and measurements limit.
void Resample(const ResampleJob& rJob, size_t mostLanes = 8);

}  // namespace orm
