// Translation of pixel values, raster operations, and transfers without scaling.
#include "gdi/Transfer.h"

#include <cstring>
#include <vector>

namespace orm::platform::gdi {
namespace {

constexpr std::size_t knownCount = 4096;  // a power of two

bool IsMono(const Surface& surface) {
  return surface.format.kind == PixelFormat::Kind::Mono;
}

bool SameValues(const Surface& a, const Surface& b) {
  if (a.format.kind != b.format.kind) return false;
  switch (a.format.kind) {
    case PixelFormat::Kind::Mono:
    case PixelFormat::Kind::Device:
      return true;
    case PixelFormat::Kind::Indexed:
      return a.colors == b.colors;
    case PixelFormat::Kind::Direct:
      break;
  }
  return a.format.SameDirect(b.format);
}

}  // namespace

Translation::Translation(const Surface& source, const Surface& destination, const MonoColors& mono)
    : mSource(source), mDestination(destination) {
  if (SameValues(source, destination)) return;
  if (IsMono(source)) {
    mKind = Kind::Table;
    mTable = {destination.Nearest(mono.zero), destination.Nearest(mono.one)};
  } else if (IsMono(destination)) {
    mKind = Kind::Compare;
    mKey = source.Nearest(mono.sourceOne);
  } else if (source.format.bits <= 8) {
    mKind = Kind::Table;
    mTable.resize(std::size_t{1} << source.format.bits);
    for (std::uint32_t i = 0; i < mTable.size(); ++i) mTable[i] = destination.Nearest(source.ColorOf(i));
  } else {
    mKind = Kind::Convert;
    mKnown.resize(knownCount);
  }
}

void Translation::Apply(std::uint32_t* values, int count) {
  switch (mKind) {
    case Kind::Identity:
      return;
    case Kind::Table:
      if (mTable.size() == 2) {  // without a look-up, so that it is done for many at once
        const std::uint32_t zero = mTable[0];
        const std::uint32_t difference = mTable[0] ^ mTable[1];
        for (int i = 0; i < count; ++i) values[i] = zero ^ (difference & (0 - values[i]));
        return;
      }
      for (int i = 0; i < count; ++i) values[i] = mTable[values[i]];
      return;
    case Kind::Compare: {
      // 32-bit pixels carry a byte that is no colour.
      const PixelFormat& format = mSource.format;
      const std::uint32_t mask = format.kind == PixelFormat::Kind::Direct
                                     ? format.red.mask | format.green.mask | format.blue.mask
                                     : 0xFF;
      for (int i = 0; i < count; ++i) values[i] = (values[i] & mask) == mKey;
      return;
    }
    case Kind::Convert:
      for (int i = 0; i < count; ++i) values[i] = ConvertOne(values[i]);
      return;
  }
}

std::uint32_t Translation::ConvertOne(std::uint32_t value) {
  Known& known = mKnown[(value * 0x9E3779B1u) >> 20 & (knownCount - 1)];
  if (known.key != std::uint64_t{value} + 1)
    known = {std::uint64_t{value} + 1, mDestination.Nearest(mSource.ColorOf(value))};
  return known.result;
}

void RasterOperation::Apply(std::uint32_t pattern, const std::uint32_t* source, std::uint32_t* destination,
                            int count) const {
  // Only operations that use no source are asked for without one.
  // NOLINTBEGIN(clang-analyzer-core.NullDereference)
  const auto each = [&](auto combine) {
    for (int i = 0; i < count; ++i) destination[i] = combine(source[i], destination[i]);
  };
  using Value = std::uint32_t;
  switch (mCode) {
    case 0x33:
      return each([](Value s, Value) { return ~s; });
    case 0x66:
      return each([](Value s, Value d) { return s ^ d; });
    case 0x88:
      return each([](Value s, Value d) { return s & d; });
    case 0xCC:
      return each([](Value s, Value) { return s; });
    case 0xEE:
      return each([](Value s, Value d) { return s | d; });
    default:
      break;
  }
  for (int i = 0; i < count; ++i) {
    const Value s = UsesSource() ? source[i] : 0;
    const Value d = destination[i];
    Value result = 0;
    for (unsigned term = 0; term < 8; ++term)
      if (mCode >> term & 1)
        result |= (term & 4 ? pattern : ~pattern) & (term & 2 ? s : ~s) & (term & 1 ? d : ~d);
    destination[i] = result;
  }
  // NOLINTEND(clang-analyzer-core.NullDereference)
}

namespace {

// Whether a row's memory is the array of its values.
bool HoldsWords(const Surface& surface) {
  const auto places =
      reinterpret_cast<std::uintptr_t>(surface.bits) | static_cast<std::uintptr_t>(surface.stride);
  return surface.format.bits == 32 && places % alignof(std::uint32_t) == 0;
}

std::uint32_t* WordsAt(const Surface& surface, int x, int y) {
  return reinterpret_cast<std::uint32_t*>(surface.Row(y)) + x;
}

// Copies pixels that mean the same in both surfaces and are whole bytes.
void CopyBytes(const Surface& destination, const RECT& target, const Surface& source, POINT from) {
  const std::ptrdiff_t bytes = destination.format.bits / 8;
  const auto length = static_cast<std::size_t>((target.right - target.left) * bytes);
  const int height = target.bottom - target.top;
  const auto line = static_cast<std::int64_t>(length);
  const bool oneBlock =
      destination.stride == line && source.stride == line && destination.bottomUp == source.bottomUp;
  if (oneBlock) {
    const int first = source.bottomUp ? height - 1 : 0;  // in memory
    std::memmove(destination.Row(target.top + first), source.Row(from.y + first),
                 length * static_cast<std::size_t>(height));
    return;
  }
  // From the bottom up when an overlapping source lies above, so that no row is read after it was written.
  const bool upwards = &source == &destination && from.y < target.top;
  for (int i = 0; i < height; ++i) {
    const int row = upwards ? height - 1 - i : i;
    std::memmove(destination.Row(target.top + row) + target.left * bytes,
                 source.Row(from.y + row) + from.x * bytes, length);
  }
}

// Combines monochrome pixels with monochrome ones, 32 in a word. Both begin at a byte, and the surfaces are
// two. Returns how many pixels of each row it has done: a multiple of 32.
int CombineBits(const Surface& destination, const RECT& target, const Surface& source, POINT from,
                RasterOperation operation, std::uint32_t pattern) {
  constexpr int perWord = 32;
  const int words = (target.right - target.left) / perWord;
  const auto bytes = static_cast<std::size_t>(words) * sizeof(std::uint32_t);
  std::vector<std::uint32_t> values(static_cast<std::size_t>(words)), result(values.size());
  for (int row = 0; row < target.bottom - target.top && words > 0; ++row) {
    std::uint8_t* const to = destination.Row(target.top + row) + target.left / 8;
    std::memcpy(values.data(), source.Row(from.y + row) + from.x / 8, bytes);
    std::memcpy(result.data(), to, bytes);
    operation.Apply(pattern & 1 ? ~0u : 0, values.data(), result.data(), words);
    std::memcpy(to, result.data(), bytes);
  }
  return words * perWord;
}

// Transfers row by row. Values of 32-bit surfaces are worked on where they lie; those of other surfaces pass
// through a buffer.
class RowTransfer {
 public:
  RowTransfer(Surface& destination, Surface& source, Translation& translation, RasterOperation operation,
              std::uint32_t pattern, int width)
      : mDestination(destination),
        mSource(source),
        mTranslation(translation),
        mOperation(operation),
        mPattern(pattern),
        mWidth(width),
        mWritesWords(&source != &destination && HoldsWords(destination)),
        mReadsWords(&source != &destination && HoldsWords(source) && translation.IsIdentity()),
        mValues(static_cast<std::size_t>(width)),
        mResult(operation.IsCopy() ? 0 : static_cast<std::size_t>(width)) {}

  void Do(int x, int y, int fromX, int fromY) {
    if (mOperation.IsCopy())
      Copy(x, y, fromX, fromY);
    else
      Combine(x, y, fromX, fromY);
  }

 private:
  void Copy(int x, int y, int fromX, int fromY) {
    std::uint32_t* const values = mWritesWords ? WordsAt(mDestination, x, y) : mValues.data();
    mSource.Read(fromX, fromY, mWidth, values);
    mTranslation.Apply(values, mWidth);
    if (!mWritesWords) mDestination.Write(x, y, mWidth, values);
  }

  void Combine(int x, int y, int fromX, int fromY) {
    const std::uint32_t* values = mReadsWords ? WordsAt(mSource, fromX, fromY) : mValues.data();
    if (!mReadsWords) {
      mSource.Read(fromX, fromY, mWidth, mValues.data());
      mTranslation.Apply(mValues.data(), mWidth);
    }
    if (mWritesWords) return mOperation.Apply(mPattern, values, WordsAt(mDestination, x, y), mWidth);
    if (mOperation.UsesDestination()) mDestination.Read(x, y, mWidth, mResult.data());
    mOperation.Apply(mPattern, values, mResult.data(), mWidth);
    mDestination.Write(x, y, mWidth, mResult.data());
  }

  Surface& mDestination;
  Surface& mSource;
  Translation& mTranslation;
  const RasterOperation mOperation;
  const std::uint32_t mPattern;
  const int mWidth;
  const bool mWritesWords, mReadsWords;
  std::vector<std::uint32_t> mValues, mResult;
};

}  // namespace

void Transfer(Surface& destination, const RECT& target, Surface& source, POINT from,
              RasterOperation operation, std::uint32_t pattern, const MonoColors& mono) {
  const int width = target.right - target.left;
  const int height = target.bottom - target.top;
  if (width <= 0 || height <= 0) return;
  Translation translation(source, destination, mono);
  const int bits = destination.format.bits;
  if (translation.IsIdentity() && bits == source.format.bits) {
    if (operation.IsCopy() && bits >= 8) return CopyBytes(destination, target, source, from);
    if (bits == 1 && &source != &destination && target.left % 8 == 0 && from.x % 8 == 0) {
      const int done = CombineBits(destination, target, source, from, operation, pattern);
      if (done > 0)
        return Transfer(destination, {target.left + done, target.top, target.right, target.bottom}, source,
                        {from.x + done, from.y}, operation, pattern, mono);
    }
  }
  RowTransfer rows(destination, source, translation, operation, pattern, width);
  const bool upwards = &source == &destination && from.y < target.top;
  for (int i = 0; i < height; ++i) {
    const int row = upwards ? height - 1 - i : i;
    rows.Do(target.left, target.top + row, from.x, from.y + row);
  }
}

void Fill(Surface& destination, const RECT& target, RasterOperation operation, std::uint32_t pattern) {
  const int width = target.right - target.left;
  if (width <= 0) return;
  std::vector<std::uint32_t> values(static_cast<std::size_t>(width));
  if (!operation.UsesDestination()) operation.Apply(pattern, nullptr, values.data(), width);
  for (int y = target.top; y < target.bottom; ++y) {
    if (operation.UsesDestination()) {
      destination.Read(target.left, y, width, values.data());
      operation.Apply(pattern, nullptr, values.data(), width);
    }
    destination.Write(target.left, y, width, values.data());
  }
}

}  // namespace orm::platform::gdi
