// Lending the entries of the system palette.
#include "gdi/SystemPalette.h"

#include <algorithm>

namespace orm::platform::gdi {
namespace {

constexpr std::uint64_t fixedOwner = UINT64_MAX;

constexpr std::array<Xrgb, 20> fixedColors = {
    0x000000, 0x800000, 0x008000, 0x808000, 0x000080, 0x800080, 0x008080, 0xC0C0C0, 0xC0DCC0, 0xA6CAF0,
    0xFFFBF0, 0xA0A0A4, 0x808080, 0xFF0000, 0x00FF00, 0xFFFF00, 0x0000FF, 0xFF00FF, 0x00FFFF, 0xFFFFFF};

constinit MadeOnce<SystemPalette> gsPalette;

}  // namespace

SystemPalette& SystemPalette::The() {
  return gsPalette.Get();
}

void LockSystemPalette() {
  gsPalette.Lock([](SystemPalette& palette) { palette.mLock.lock(); });
}
void UnlockSystemPalette() {
  gsPalette.Unlock([](SystemPalette& palette) { palette.mLock.unlock(); });
}

Xrgb SystemPalette::FixedColor(std::uint32_t index) {
  if (index < fixedAtEachEnd) return fixedColors[index];
  if (index >= 256 - fixedAtEachEnd) return fixedColors[index - (256 - 2 * fixedAtEachEnd)];
  return 0;
}

SystemPalette::SystemPalette() {
  for (std::uint32_t i = 0; i < 256; ++i) {
    mColors[i] = FixedColor(i);
    if (i < fixedAtEachEnd || i >= 256 - fixedAtEachEnd) mOwners[i] = fixedOwner;
  }
}

Xrgb SystemPalette::ColorAt(std::uint32_t index) {
  std::lock_guard lock(mLock);
  return mColors[index];
}

std::uint32_t SystemPalette::Nearest(Xrgb color) {
  std::lock_guard lock(mLock);
  return NearestLocked(color);
}

// Unused entries are black, as is the first fixed one, so they never come nearer than it.
std::uint32_t SystemPalette::NearestLocked(Xrgb color) const {
  return NearestColor(mColors.data(), mColors.size(), color);
}

std::vector<Xrgb> SystemPalette::Colors() {
  std::lock_guard lock(mLock);
  return {mColors.begin(), mColors.end()};
}

std::vector<std::uint8_t> SystemPalette::Realize(const std::vector<Xrgb>& wanted, std::uint64_t owner,
                                                 bool background) {
  // All memory first, so that want of it leaves the palette as it was.
  std::vector<std::uint8_t> entries(wanted.size());
  std::vector<int> places(wanted.size(), -1);
  std::vector<std::uint32_t> candidates;
  candidates.reserve(mOwners.size());
  std::lock_guard lock(mLock);
  const std::array<std::uint64_t, 256> before = mOwners;
  std::array<bool, 256> taken{};  // for this palette, in this call
  const auto has = [&](std::uint32_t i, Xrgb color) { return mOwners[i] != 0 && mColors[i] == color; };
  // What this palette holds already stays in its place, so that pictures drawn with it keep their colours.
  for (std::size_t n = 0; n < wanted.size(); ++n)
    for (std::uint32_t i = 0; i < 256 && places[n] < 0; ++i)
      if (has(i, wanted[n])) {
        places[n] = static_cast<int>(i);
        taken[i] = true;
      }
  // Unused entries first: taking another palette's changes pictures that are already shown.
  for (std::uint32_t i = 0; i < 256; ++i)
    if (before[i] == 0) candidates.push_back(i);
  for (std::uint32_t i = 0; i < 256 && !background; ++i)
    if (before[i] != 0 && before[i] != fixedOwner && !taken[i]) candidates.push_back(i);
  auto candidate = candidates.begin();
  for (std::size_t n = 0; n < wanted.size(); ++n) {
    for (std::uint32_t i = 0; i < 256 && places[n] < 0; ++i)  // a colour that this call has just placed
      if (taken[i] && mColors[i] == wanted[n]) places[n] = static_cast<int>(i);
    if (places[n] >= 0 || candidate == candidates.end()) continue;
    const std::uint32_t entry = *candidate++;
    mColors[entry] = wanted[n];
    mOwners[entry] = owner;
    taken[entry] = true;
    places[n] = static_cast<int>(entry);
  }
  for (std::size_t n = 0; n < wanted.size(); ++n)
    entries[n] = static_cast<std::uint8_t>(places[n] >= 0 ? static_cast<std::uint32_t>(places[n])
                                                          : NearestLocked(wanted[n]));
  return entries;
}

}  // namespace orm::platform::gdi
