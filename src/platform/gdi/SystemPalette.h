// The colours that an 8-bit screen can show at one time: 20 fixed ones at both ends, the rest lent to the
// palettes that contexts realise.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <vector>

#include "gdi/Fork.h"
#include "gdi/MadeOnce.h"
#include "gdi/Surface.h"

namespace orm::platform::gdi {

class SystemPalette {
 public:
  static SystemPalette& The();

  // The fixed colour of an entry, 0 for the entries between them.
  static Xrgb FixedColor(std::uint32_t index);

  Xrgb ColorAt(std::uint32_t index);
  // The nearest colour among the fixed entries and those in use.
  std::uint32_t Nearest(Xrgb color);
  std::vector<Xrgb> Colors();

  // Finds a place for each of a palette's colours: an entry that has it, one that may be taken (in the
  // foreground any that another palette holds, in the background only an unused one), or the nearest.
  // `owner` names the palette. Returns the entry of every colour.
  std::vector<std::uint8_t> Realize(const std::vector<Xrgb>& wanted, std::uint64_t owner, bool background);

 private:
  static constexpr std::uint32_t fixedAtEachEnd = 10;
  friend class MadeOnce<SystemPalette>;
  friend void LockSystemPalette();
  friend void UnlockSystemPalette();
  SystemPalette();
  std::uint32_t NearestLocked(Xrgb color) const;

  std::mutex mLock;
  std::array<Xrgb, 256> mColors{};
  std::array<std::uint64_t, 256> mOwners{};  // 0 unused; the fixed entries have an owner of their own
};

}  // namespace orm::platform::gdi
