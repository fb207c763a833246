// Copying and combining pixels from surface to surface: translation of pixel values, raster operations, and
// scaling. Coordinates are surface coordinates; the callers hold the surfaces' locks.
#pragma once

#include <cstdint>
#include <vector>

#include "gdi/Context.h"
#include "gdi/Surface.h"

namespace orm::platform::gdi {

// What the colours of monochrome pixels depend on.
struct MonoColors {
  Xrgb zero = 0;              // what a 0 becomes on a colour surface (the destination's text colour)
  Xrgb one = 0xFFFFFF;        // and a 1 (its background colour)
  Xrgb sourceOne = 0xFFFFFF;  // the colour that becomes a 1 on a monochrome surface (the source's background)
};

// Turns pixel values of one surface into those of another.
class Translation {
 public:
  Translation(const Surface& source, const Surface& destination, const MonoColors& mono);

  bool IsIdentity() const { return mKind == Kind::Identity; }
  void Apply(std::uint32_t* values, int count);

 private:
  enum class Kind : std::uint8_t { Identity, Table, Compare, Convert };
  std::uint32_t ConvertOne(std::uint32_t value);

  const Surface& mSource;
  const Surface& mDestination;
  Kind mKind = Kind::Identity;
  std::vector<std::uint32_t> mTable;
  std::uint32_t mKey = 0;
  struct Known {
    std::uint64_t key;  // value + 1
    std::uint32_t result;
  };
  std::vector<Known> mKnown;  // results of Convert, by a hash of the value
};

// One of the 256 ways to combine pattern, source and destination: bit (pattern * 4 + source * 2 +
// destination) of the code is the result.
class RasterOperation {
 public:
  explicit RasterOperation(DWORD operation) : mCode(static_cast<std::uint8_t>(operation >> 16)) {}

  bool UsesSource() const { return ((mCode >> 2 ^ mCode) & 0x33) != 0; }
  bool UsesPattern() const { return ((mCode >> 4 ^ mCode) & 0x0F) != 0; }
  bool UsesDestination() const { return ((mCode >> 1 ^ mCode) & 0x55) != 0; }
  bool IsCopy() const { return mCode == 0xCC; }
  // destination[i] becomes the combination; a source that is not used may be null.
  void Apply(std::uint32_t pattern, const std::uint32_t* source, std::uint32_t* destination, int count) const;

 private:
  std::uint8_t mCode;
};

// Combines the rectangle `target` of the destination with the source's pixels from `from` on. Both lie within
// their surfaces; they may be one surface and overlap.
void Transfer(Surface& destination, const RECT& target, Surface& source, POINT from,
              RasterOperation operation, std::uint32_t pattern, const MonoColors& mono);

// Combines a rectangle with the pattern alone.
void Fill(Surface& destination, const RECT& target, RasterOperation operation, std::uint32_t pattern);

// A rectangle that may be mirrored: width and height may be negative.
struct Span2D {
  int x, y, width, height;
};

// Combines with a scaled source. Pixels outside `clip` and those that the source does not have stay.
void Stretch(Surface& destination, const Span2D& target, const RECT& clip, Surface& source,
             const Span2D& from, RasterOperation operation, std::uint32_t pattern, const MonoColors& mono,
             int mode);

}  // namespace orm::platform::gdi
