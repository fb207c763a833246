// A rectangle of pixels in memory, its own or a caller's, and the meaning of its pixel values. Everything
// that is drawn, device-independent bits included, is a transfer between two surfaces.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <vector>

#include "gdi/PixelMemory.h"
#include "win32/gdi.h"

namespace orm::platform::gdi {

// A colour as 0x00RRGGBB, which is also how a 32-bit pixel holds it.
using Xrgb = std::uint32_t;

constexpr Xrgb XrgbFromRef(COLORREF color) {
  return (color & 0xFF) << 16 | (color & 0xFF00) | (color >> 16 & 0xFF);
}
constexpr COLORREF RefFromXrgb(Xrgb color) {
  return XrgbFromRef(color);
}

// One colour channel of a direct pixel: a run of bits.
struct Channel {
  std::uint32_t mask = 0;
  int shift = 0;
  int bits = 0;

  static Channel FromMask(std::uint32_t mask);
  std::uint32_t Expand(std::uint32_t pixel) const;  // to 0..255
  std::uint32_t Pack(std::uint32_t value) const;    // from 0..255
};

struct PixelFormat {
  // What a pixel value means: a bit of a monochrome bitmap (drawn in the text and background colours), an
  // index into the surface's colours, an index into the system palette, or the channels themselves.
  enum class Kind : std::uint8_t { Mono, Indexed, Device, Direct };

  Kind kind = Kind::Direct;
  int bits = 32;  // 1, 4, 8, 16, 24 or 32
  Channel red, green, blue;
  bool plain = false;  // the channels of a direct pixel lie as in Xrgb

  static PixelFormat Mono();
  static PixelFormat Indexed(int bits);
  static PixelFormat Device();
  // With the usual channels: 5-5-5 for 16 bits, 8-8-8 for 24 and 32.
  static PixelFormat Direct(int bits);
  // Channels by mask. The masks have to be runs of bits that do not overlap: see ValidMasks.
  static PixelFormat Direct(int bits, std::uint32_t red, std::uint32_t green, std::uint32_t blue);
  static bool ValidMasks(int bits, std::uint32_t red, std::uint32_t green, std::uint32_t blue);

  // Equal values mean equal colours, whatever the tables.
  bool SameDirect(const PixelFormat& other) const;
};

class Surface {
 public:
  // Bytes from row to row when rows are padded to `alignment` bytes.
  static std::int64_t StrideFor(std::int64_t width, int bits, int alignment);

  Surface() = default;

  // Allocates zeroed pixels, top row first unless bottomUp. False when the size is not positive or does not
  // fit into memory.
  bool Allocate(const PixelFormat& pixels, int width, int height, int alignment, bool bottomUp);

  // The same, but zeroing waits until pixels are used: an off-screen picture is mostly covered before it is
  // looked at. Whoever touches the pixels without a SurfaceLock calls Complete before.
  bool AllocateForUse(const PixelFormat& pixels, int width, int height, int alignment, bool bottomUp);

  // A view of a caller's pixels, which have to outlive it and are not written unless the caller draws on it.
  void View(const PixelFormat& pixels, int width, int height, std::int64_t stride, bool bottomUp, void* bits);

  // Zeroes the rows that have not been.
  void Complete();
  // The same, except that rows which the caller is about to write as a whole are left out, when they continue
  // what was written from the top on.
  void Overwrite(const RECT& target);

  std::uint8_t* Row(int y) const { return mpTop + y * mStep; }

  // Reads `count` pixel values from (x, y) on, and writes them; the range lies within the surface.
  void Read(int x, int y, int count, std::uint32_t* values) const;
  void Write(int x, int y, int count, const std::uint32_t* values);

  // The colour that a value of this surface shows, without regard to a context; monochrome as black and
  // white.
  Xrgb ColorOf(std::uint32_t value) const;
  // The value that comes nearest to a colour.
  std::uint32_t Nearest(Xrgb color) const;

  PixelFormat format;
  std::vector<Xrgb> colors;  // Indexed: exactly 2^bits entries
  int width = 0;
  int height = 0;
  std::int64_t stride = 0;
  bool bottomUp = false;
  std::uint8_t* bits = nullptr;  // the first byte in memory
  std::mutex lock;               // held while pixels are transferred

 private:
  PixelMemory mMemory;
  int mFreshRow = 0;  // rows from this one on have not been zeroed
  std::uint8_t* mpTop = nullptr;
  std::int64_t mStep = 0;
};

// Locks one surface or two different ones, whose pixels are complete then.
class SurfaceLock {
 public:
  explicit SurfaceLock(Surface& only) : mFirst(only.lock) { only.Complete(); }
  SurfaceLock(Surface& first, Surface& second) : SurfaceLock(Unprepared{}, first, second) {
    first.Complete();
    second.Complete();
  }
  // For writing every pixel of a rectangle of the first surface without reading there.
  SurfaceLock(Surface& overwritten, const RECT& target, Surface& source)
      : SurfaceLock(Unprepared{}, overwritten, source) {
    source.Complete();
    overwritten.Overwrite(target);
  }

 private:
  struct Unprepared {};
  SurfaceLock(Unprepared, Surface& first, Surface& second);

  std::unique_lock<std::mutex> mFirst;
  std::unique_lock<std::mutex> mSecond;
};

// The nearest of `colors` by the sum of squared differences; the first of equals.
std::uint32_t NearestColor(const Xrgb* colors, std::size_t count, Xrgb color);

// What indexed bitmaps without a table of their own show: the usual 16 colours, and for 8 bits the 20 fixed
// ones of the system palette with the web-like cube between them.
std::vector<Xrgb> StandardColors(int bits);

}  // namespace orm::platform::gdi
