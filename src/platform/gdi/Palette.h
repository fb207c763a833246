// A logical palette: the colours that a picture wants, and where the system palette last put them.
#pragma once

#include <mutex>
#include <vector>

#include "gdi/Object.h"
#include "gdi/Surface.h"

namespace orm::platform::gdi {

class Palette final : public Object {
 public:
  static constexpr Kind objectKind = Kind::Palette;

  explicit Palette(std::vector<PALETTEENTRY> entries);
  std::mutex* Lock() noexcept override { return &mLock; }

  WORD Count() const { return static_cast<WORD>(mEntries.size()); }
  const std::vector<PALETTEENTRY>& Entries() const { return mEntries; }
  const std::vector<Xrgb>& Colors() const { return mColors; }

  // Maps it to the system palette; returns how many of its colours moved or came in.
  UINT Realize(bool background);

 private:
  const std::vector<PALETTEENTRY> mEntries;
  std::vector<Xrgb> mColors;
  const std::uint64_t mOwner;
  std::mutex mLock;
  std::vector<std::uint8_t>
      mPlaces;  // entry of the system palette for each colour; empty before the first time
};

}  // namespace orm::platform::gdi
