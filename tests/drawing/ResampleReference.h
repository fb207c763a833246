// The resampler as a plain walk over all pieces, one after the other: what the vectorised one has to equal.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

namespace test {

struct ResampleInput {
  const std::uint8_t* source;  // rows of 24 bits, bottom row first, padded to 4 bytes
  int W, H;                    // its size
  int w, h;                    // the target's
};

inline int RowStride(int width) {
  return (width * 24 + 31) / 32 * 4;
}

// Where an axis is cut next, with 32-bit values kept from step to step.
struct AxisState {
  float pos = 0;
  int i = 0;
};

inline std::vector<std::uint8_t> ResamplePlainly(const ResampleInput& in) {
  const int W = in.W, H = in.H, w = in.w, h = in.h;
  const float sx = static_cast<float>(static_cast<double>(W) / w);
  const float sy = static_cast<float>(static_cast<double>(H) / h);
  const float norm = static_cast<float>(1.0 / (static_cast<double>(sy) * sx));
  const int sourceStride = RowStride(W), targetStride = RowStride(w);
  std::vector<std::uint8_t> target(static_cast<std::size_t>(targetStride) * static_cast<std::size_t>(h));
  std::vector<float> row(static_cast<std::size_t>(w) * 3);
  std::vector<float> lengths(static_cast<std::size_t>(W) + static_cast<std::size_t>(w));

  AxisState x;
  float sum = 0;
  for (float& length : lengths) {
    const float t = static_cast<float>(static_cast<double>(x.pos) + sx);
    double end;
    if (x.i < std::floor(static_cast<double>(t))) {
      x.i = x.i + 1;
      end = x.i;
    } else {
      x.pos = t;
      end = x.pos;
    }
    length = static_cast<float>(end - sum);
    sum = static_cast<float>(static_cast<double>(sum) + length);
  }

  float posY = 0, sumY = 0;
  int iy = 0;
  for (int done = 0; done < h;) {
    float t = static_cast<float>(static_cast<double>(posY) + sy);
    const bool rowComplete = iy >= std::floor(static_cast<double>(t));
    float fracY, segY;
    if (rowComplete) {
      posY = t;
      fracY = static_cast<float>(static_cast<double>(posY) - iy);
      segY = static_cast<float>(static_cast<double>(posY) - sumY);
    } else {
      fracY = 1;
      segY = static_cast<float>((iy + 1.0) - sumY);
    }
    sumY = static_cast<float>(static_cast<double>(sumY) + segY);
    const int rowA = iy < H ? iy : H - 1;
    const int rowB = iy + 1 < H ? iy + 1 : H - 1;
    const std::uint8_t* A = in.source + static_cast<std::ptrdiff_t>(rowA) * sourceStride;
    const std::uint8_t* B = in.source + static_cast<std::ptrdiff_t>(rowB) * sourceStride;

    float posX = 0;
    int ix = 0, j = 0;
    for (std::size_t k = 0; k < lengths.size() && j < w; ++k) {
      const float weight = static_cast<float>(static_cast<double>(segY) * lengths[k]);
      t = static_cast<float>(static_cast<double>(posX) + sx);
      const bool pixelComplete = ix >= std::floor(static_cast<double>(t));
      float fracX = 1;
      if (pixelComplete) {
        posX = t;
        fracX = static_cast<float>(static_cast<double>(posX) - ix);
      }
      const int column = ix < W ? ix : W - 1;
      const int neighbour = ix >= W - 1 ? W - 1 : ix + 1;
      for (int c = 0; c < 3; ++c) {
        const double value =
            ((1.0 - fracX) * A[column * 3 + c] + static_cast<double>(fracX) * A[neighbour * 3 + c]) *
                (1.0 - fracY) +
            ((1.0 - fracX) * B[column * 3 + c] + static_cast<double>(fracX) * B[neighbour * 3 + c]) * fracY;
        float& accumulator = row[static_cast<std::size_t>(j * 3 + c)];
        accumulator = static_cast<float>(accumulator + value * weight);
      }
      if (pixelComplete)
        ++j;
      else
        ++ix;
    }
    if (rowComplete) {
      std::uint8_t* to = target.data() + static_cast<std::ptrdiff_t>(done) * targetStride;
      for (std::size_t n = 0; n < row.size(); ++n) {
        to[n] = static_cast<std::uint8_t>(static_cast<int>(static_cast<double>(norm) * row[n]));
        row[n] = 0;
      }
      ++done;
    } else {
      ++iy;
    }
  }
  return target;
}

}  // namespace test
