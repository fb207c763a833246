// Translation of pixel values, raster operations, and transfers without scaling.
#include "gdi/Transfer.h"

#include <cstring>

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
}

void Transfer(Surface& destination, const RECT& target, Surface& source, POINT from,
              RasterOperation operation, std::uint32_t pattern, const MonoColors& mono) {
  const int width = target.right - target.left;
  const int height = target.bottom - target.top;
  if (width <= 0 || height <= 0) return;
  Translation translation(source, destination, mono);
  // From the bottom up when an overlapping source lies above, so that no row is read after it was written.
  const bool upwards = &source == &destination && from.y < target.top;
  const int bits = destination.format.bits;
  const bool bytes =
      operation.IsCopy() && translation.IsIdentity() && bits >= 8 && bits == source.format.bits;
  std::vector<std::uint32_t> values(bytes ? 0 : static_cast<std::size_t>(width));
  std::vector<std::uint32_t> result(bytes || operation.IsCopy() ? 0 : static_cast<std::size_t>(width));
  for (int i = 0; i < height; ++i) {
    const int row = upwards ? height - 1 - i : i;
    if (bytes) {
      std::memmove(destination.Row(target.top + row) + static_cast<std::ptrdiff_t>(target.left) * bits / 8,
                   source.Row(from.y + row) + static_cast<std::ptrdiff_t>(from.x) * bits / 8,
                   static_cast<std::size_t>(width) * static_cast<std::size_t>(bits) / 8);
      continue;
    }
    source.Read(from.x, from.y + row, width, values.data());
    translation.Apply(values.data(), width);
    if (operation.IsCopy()) {
      destination.Write(target.left, target.top + row, width, values.data());
      continue;
    }
    if (operation.UsesDestination()) destination.Read(target.left, target.top + row, width, result.data());
    operation.Apply(pattern, values.data(), result.data(), width);
    destination.Write(target.left, target.top + row, width, result.data());
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
