// Transfers with scaling. Where the picture shrinks, several source pixels meet in one: by the stretching
// mode they are combined by AND (black on white), OR (white on black), the last one stands (colour on
// colour), or they are averaged (halftone). Where it grows, pixels are repeated. Both directions are
// independent.
#include <algorithm>
#include <new>
#include <utility>

#include "gdi/Transfer.h"

namespace orm::platform::gdi {
namespace {

// The source pixels [first, last) that make one target pixel.
struct Range {
  int first, last;
};

// The ranges of the target pixels [begin, end) of one direction, and which of them the source and the clip
// have. Target pixel t counts from the target's edge.
class Axis {
 public:
  Axis(int target, int targetSize, int from, int fromSize, int sourceSize, int clipBegin, int clipEnd) {
    bool mirrored = false;
    Normalize(target, targetSize, mirrored);
    Normalize(from, fromSize, mirrored);
    begin = std::max(target, clipBegin);
    end = static_cast<int>(std::min<std::int64_t>(std::int64_t{target} + targetSize, clipEnd));
    if (targetSize == 0 || fromSize == 0) end = begin;
    while (begin < end && !Place(begin - target, targetSize, from, fromSize, sourceSize, mirrored)) ++begin;
    for (int t = begin + 1; t < end; ++t)
      if (!Place(t - target, targetSize, from, fromSize, sourceSize, mirrored)) end = t;
    for (const Range& range : ranges) {
      low = std::min(low, range.first);
      high = std::max(high, range.last);
    }
  }

  int begin, end;
  int low = INT32_MAX, high = 0;  // all source pixels that are needed
  std::vector<Range> ranges;

 private:
  static void Normalize(int& start, int& size, bool& mirrored) {
    if (size >= 0) return;
    start += size;
    size = -size;
    mirrored = !mirrored;
  }

  bool Place(int t, int targetSize, int from, int fromSize, int sourceSize, bool mirrored) {
    if (mirrored) t = targetSize - 1 - t;
    std::int64_t first, last;
    if (fromSize > targetSize) {
      first = std::int64_t{t} * fromSize / targetSize;
      last = std::int64_t{t + 1} * fromSize / targetSize;
    } else {  // the source pixel under the target pixel's centre
      // NOLINTNEXTLINE(clang-analyzer-core.DivideZero): there is a target pixel, so the size is not 0
      first = (2 * std::int64_t{t} + 1) * fromSize / (2 * std::int64_t{targetSize});
      last = first + 1;
    }
    first += from;
    last += from;
    if (first < 0 || last > sourceSize) return false;
    ranges.push_back({static_cast<int>(first), static_cast<int>(last)});
    return true;
  }
};

// Gathers rows of pixel values of the destination's kind into target rows.
class RowGatherer {
 public:
  RowGatherer(const Surface& destination, const Axis& axis, int mode)
      : mDestination(destination), mAxis(axis), mMode(mode), mRow(axis.ranges.size()) {
    if (mMode == HALFTONE) mSums.resize(3 * mRow.size());
  }

  void Start() {
    mRows = 0;
    std::fill(mSums.begin(), mSums.end(), 0);
  }

  // `values` holds the source row from axis.low on.
  void Add(const std::uint32_t* values) {
    for (std::size_t i = 0; i < mRow.size(); ++i) AddPixel(i, values);
    ++mRows;
  }

  const std::vector<std::uint32_t>& Finish() {
    for (std::size_t i = 0; mMode == HALFTONE && i < mRow.size(); ++i) mRow[i] = Average(i);
    return mRow;
  }

 private:
  void AddPixel(std::size_t i, const std::uint32_t* values) {
    const Range range = mAxis.ranges[i];
    const std::uint32_t* first = values + (range.first - mAxis.low);
    const std::uint32_t* last = values + (range.last - mAxis.low);
    if (mMode == HALFTONE) {
      for (; first != last; ++first) {
        const Xrgb color = mDestination.ColorOf(*first);
        for (std::size_t c = 0; c < 3; ++c) mSums[3 * i + c] += color >> 8 * c & 0xFF;
      }
      return;
    }
    std::uint32_t value = mRows == 0 || mMode == COLORONCOLOR ? *first : mRow[i];
    for (; first != last; ++first)
      value = mMode == BLACKONWHITE ? value & *first : mMode == WHITEONBLACK ? value | *first : *first;
    mRow[i] = value;
  }

  std::uint32_t Average(std::size_t i) const {
    const auto count = static_cast<std::uint64_t>(mAxis.ranges[i].last - mAxis.ranges[i].first) * mRows;
    Xrgb color = 0;
    for (std::size_t c = 0; c < 3; ++c)
      color |= static_cast<Xrgb>((mSums[3 * i + c] + count / 2) / count) << 8 * c;
    return mDestination.Nearest(color);
  }

  const Surface& mDestination;
  const Axis& mAxis;
  const int mMode;
  std::vector<std::uint32_t> mRow;
  std::vector<std::uint64_t> mSums;
  std::uint64_t mRows = 0;
};

}  // namespace

void Stretch(Surface& destination, const Span2D& target, const RECT& clip, Surface& source,
             const Span2D& from, RasterOperation operation, std::uint32_t pattern, const MonoColors& mono,
             int mode) {
  const Axis across(target.x, target.width, from.x, from.width, source.width, clip.left, clip.right);
  const Axis down(target.y, target.height, from.y, from.height, source.height, clip.top, clip.bottom);
  if (across.begin >= across.end || down.begin >= down.end) return;
  if (&source == &destination) {  // scaling onto itself: read from a copy
    Surface copy;
    if (!copy.Allocate(source.format, source.width, source.height, 4, false)) throw std::bad_alloc();
    copy.colors = source.colors;
    Transfer(copy, {0, 0, source.width, source.height}, source, {0, 0}, RasterOperation(SRCCOPY), 0, mono);
    return Stretch(destination, target, clip, copy, from, operation, pattern, mono, mode);
  }
  Translation translation(source, destination, mono);
  RowGatherer gatherer(destination, across, mode);
  const int count = across.end - across.begin;
  std::vector<std::uint32_t> values(static_cast<std::size_t>(across.high - across.low));
  std::vector<std::uint32_t> result(static_cast<std::size_t>(count));
  Range done{-1, -1};
  for (int y = down.begin; y < down.end; ++y) {
    const Range rows = down.ranges[static_cast<std::size_t>(y - down.begin)];
    if (rows.first != done.first || rows.last != done.last) {
      gatherer.Start();
      for (int row = rows.first; row < rows.last; ++row) {
        source.Read(across.low, row, static_cast<int>(values.size()), values.data());
        translation.Apply(values.data(), static_cast<int>(values.size()));
        gatherer.Add(values.data());
      }
      done = rows;
    }
    const std::vector<std::uint32_t>& scaled = gatherer.Finish();
    if (operation.UsesDestination()) destination.Read(across.begin, y, count, result.data());
    operation.Apply(pattern, scaled.data(), result.data(), count);
    destination.Write(across.begin, y, count, result.data());
  }
}

}  // namespace orm::platform::gdi
