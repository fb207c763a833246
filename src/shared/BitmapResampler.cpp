// The resampler, vectorised over the target pixels of a row.
//
// Every target pixel owns the same kinds of pieces: some that end at a source border, where no interpolation
// is needed, and one that ends at its own border. So the pieces of a row are sorted into slots: the n-th
// piece of every pixel makes one array, padded with pieces of weight 0, which add exactly nothing. One vector
// holds as many neighbouring pixels of one channel. Each source row is brought into slots once and used for
// all pieces of area that touch it. The order of additions within a pixel, and so every rounding, is that of
// the plain walk along the row.
#include "BitmapResampler.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace orm {

namespace {

constexpr int CHANNELS = 3;
// Where the walk along one axis stands. `size` is the source's length, `step` the source pixels per target
// pixel.
class AxisWalk {
 public:
  explicit AxisWalk(float step) : mStep(step) {}

  // Takes the next piece; true when it ends at a target border. A source border at the same place comes
  // first.
  bool Next() {
    const float next = static_cast<float>(static_cast<double>(mPosition) + mStep);
    if (mIndex >= std::floor(static_cast<double>(next))) {
      mPosition = next;
      mFraction = static_cast<float>(static_cast<double>(mPosition) - mIndex);
      return true;
    }
    mFraction = 1;
    return false;
  }
  // After a piece that ended at a source border.
  void EnterNextSource() { ++mIndex; }

  int Index() const { return mIndex; }
  float Position() const { return mPosition; }
  float Fraction() const { return mFraction; }  // of the piece's end within the source pixel

 private:
  const float mStep;
  float mPosition = 0;
  float mFraction = 0;
  int mIndex = 0;
};

// The lengths of the pieces of a row, in order.
void MeasurePieces(float step, size_t count, float* pieces) {
  AxisWalk walk(step);
  float sum = 0;
  for (size_t k = 0; k < count; ++k) {
    double end;
    if (walk.Next()) {
      end = walk.Position();
    } else {
      walk.EnterNextSource();
      end = walk.Index();
    }
    pieces[k] = static_cast<float>(end - sum);
    sum = static_cast<float>(static_cast<double>(sum) + pieces[k]);
  }
}

// Pieces that end at a source border: for each target pixel the column whose colour it takes, and its length.
struct BorderSlot {
  std::vector<uint32_t> offsets;  // of the column, in bytes from the row's start
  std::vector<float> lengths;     // 0 for none
};

// The pieces of a row sorted into slots; the same for every row.
struct RowPlan {
  size_t padded;  // target pixels, padded
  std::vector<BorderSlot> borders;
  // The piece that ends at the target pixel's own border.
  std::vector<uint32_t> offsets;
  std::vector<uint32_t> neighbours;
  std::vector<float> fractions;
  std::vector<float> lengths;

  RowPlan(const ResampleJob& rJob, float step)
      : padded(ResampleJob::Pad(static_cast<size_t>(rJob.targetWidth))),
        offsets(padded),
        neighbours(padded),
        fractions(padded),
        lengths(padded) {
    const size_t pieces = static_cast<size_t>(rJob.sourceWidth) + static_cast<size_t>(rJob.targetWidth);
    MeasurePieces(step, pieces, rJob.pieces);
    AxisWalk walk(step);
    size_t pixel = 0;
    size_t slot = 0;
    const int last = rJob.sourceWidth - 1;
    for (size_t k = 0; k < pieces && pixel < static_cast<size_t>(rJob.targetWidth); ++k) {
      const bool complete = walk.Next();
      const auto offset = static_cast<uint32_t>(std::min(walk.Index(), last)) * CHANNELS;
      const auto neighbour = static_cast<uint32_t>(std::min(walk.Index() + 1, last)) * CHANNELS;
      if (complete) {
        offsets[pixel] = offset;
        neighbours[pixel] = neighbour;
        fractions[pixel] = walk.Fraction();
        lengths[pixel] = rJob.pieces[k];
        ++pixel;
        slot = 0;
      } else {
        if (slot == borders.size())
          borders.push_back({std::vector<uint32_t>(padded), std::vector<float>(padded)});
        borders[slot].offsets[pixel] = neighbour;
        borders[slot].lengths[pixel] = rJob.pieces[k];
        ++slot;
        walk.EnterNextSource();
      }
    }
  }
};

// The colours that one source row gives to the slots, channel by channel.
struct SlotRow {
  int row = -1;
  std::vector<float> borders;  // [slot][channel][pixel]
  std::vector<double> own;     // [channel][pixel]
};

// How the pieces of one row of area are combined.
struct RowPiece {
  const SlotRow* pA;  // null when the piece ends at a source border: only B counts then
  const SlotRow* pB;
  float fraction;
  float height;
};

// The steps that touch every pixel, compiled for the vectors of one instruction set.
struct Steps {
  void (*fillSlots)(const RowPlan&, const BYTE* source, SlotRow&, uint32_t* words, uint32_t* nextWords);
  void (*addRow)(const RowPlan&, const RowPiece&, float* sums);
  void (*finish)(size_t padded, float norm, float* sums, uint32_t* words);
};

// The compilers widen a whole vector by halves when they are left to it, hence the intrinsics.
namespace baseline {
constexpr size_t LANES = 2;
inline auto Widen(float __attribute__((vector_size(8))) floats) {
  return __builtin_convertvector(floats, double __attribute__((vector_size(16))));
}
#define ORM_RESAMPLER_TARGET
#include "BitmapResamplerKernel.inc"
#undef ORM_RESAMPLER_TARGET
}  // namespace baseline

#if defined(__x86_64__)
namespace avx2 {
constexpr size_t LANES = 4;
[[gnu::target("avx2")]] inline __m256d Widen(__m128 floats) {
  return _mm256_cvtps_pd(floats);
}
#define ORM_RESAMPLER_TARGET [[gnu::target("avx2")]]
#include "BitmapResamplerKernel.inc"
#undef ORM_RESAMPLER_TARGET
}  // namespace avx2

namespace avx512 {
constexpr size_t LANES = 8;
[[gnu::target("avx512f")]] inline __m512d Widen(__m256 floats) {
  return _mm512_maskz_cvtps_pd(0xFF, floats);  // the plain one warns of a value that it does not use
}
#define ORM_RESAMPLER_TARGET [[gnu::target("avx512f")]]
#include "BitmapResamplerKernel.inc"
#undef ORM_RESAMPLER_TARGET
}  // namespace avx512
#endif

const Steps& ChooseSteps(size_t mostLanes) {
#if defined(__x86_64__)
  if (mostLanes >= avx512::LANES && __builtin_cpu_supports("avx512f")) return avx512::STEPS;
  if (mostLanes >= avx2::LANES && __builtin_cpu_supports("avx2")) return avx2::STEPS;
#endif
  return baseline::STEPS;
}

class Resampler {
 public:
  Resampler(const ResampleJob& rJob, size_t mostLanes)
      : mJob(rJob),
        mStepX(static_cast<float>(static_cast<double>(rJob.sourceWidth) / rJob.targetWidth)),
        mStepY(static_cast<float>(static_cast<double>(rJob.sourceHeight) / rJob.targetHeight)),
        mNorm(static_cast<float>(1.0 / (static_cast<double>(mStepY) * mStepX))),
        mSteps(ChooseSteps(mostLanes)),
        mPlan(rJob, mStepX),
        mWords(mPlan.padded),
        mNextWords(mPlan.padded) {
    for (SlotRow& row : mRows) {
      row.borders.resize(mPlan.borders.size() * CHANNELS * mPlan.padded);
      row.own.resize(CHANNELS * mPlan.padded);
    }
  }

  void Run() {
    AxisWalk walk(mStepY);
    float sum = 0;
    for (int done = 0; done < mJob.targetHeight;) {
      const bool complete = walk.Next();
      const double end = complete ? walk.Position() : walk.Index() + 1.0;
      const float height = static_cast<float>(end - sum);
      sum = static_cast<float>(static_cast<double>(sum) + height);
      const int last = mJob.sourceHeight - 1;
      const SlotRow* const pA = complete ? &RowAt(std::min(walk.Index(), last)) : nullptr;
      const SlotRow* const pB = &RowAt(std::min(walk.Index() + 1, last));
      mSteps.addRow(mPlan, {pA, pB, walk.Fraction(), height}, mJob.sums);
      if (complete)
        StoreRow(done++);
      else
        walk.EnterNextSource();
    }
  }

 private:
  // Two neighbouring rows are kept: they have different parities.
  const SlotRow& RowAt(int index) {
    SlotRow& row = mRows[index % 2];
    if (row.row != index) {
      mSteps.fillSlots(mPlan, mJob.source + index * mJob.sourceStride, row, mWords.data(), mNextWords.data());
      row.row = index;
    }
    return row;
  }

  void StoreRow(int index) {
    mSteps.finish(mPlan.padded, mNorm, mJob.sums, mWords.data());
    BYTE* to = mJob.target + index * mJob.targetStride;
    const size_t width = static_cast<size_t>(mJob.targetWidth);
    size_t i = 0;
    for (; i + 1 < width; ++i, to += CHANNELS) std::memcpy(to, &mWords[i], sizeof(uint32_t));
    std::memcpy(to, &mWords[i], CHANNELS);
  }

  const ResampleJob& mJob;
  const float mStepX, mStepY, mNorm;
  const Steps& mSteps;
  const RowPlan mPlan;
  SlotRow mRows[2];
  std::vector<uint32_t> mWords, mNextWords;
};

}  // namespace

void Resample(const ResampleJob& rJob, size_t mostLanes) {
  Resampler(rJob, mostLanes).Run();
}

}  // namespace orm
