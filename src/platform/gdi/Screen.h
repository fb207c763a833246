// The screen of this process: a surface in memory whose shape is a setting of the machine.
#pragma once

#include <memory>

#include "gdi/Bitmap.h"
#include "gdi/MadeOnce.h"

namespace orm::platform::gdi {

struct ScreenSettings {
  int width = 1024;
  int height = 768;
  int bitsPerPixel = 32;  // 8 (with a palette), 16, 24 or 32
  int dotsPerInch = 96;
};

class Screen {
 public:
  // Made on first use from the settings that stand then.
  static Screen& The();

  const ScreenSettings settings;
  const std::shared_ptr<Bitmap> bitmap;
  PixelFormat Format() const { return bitmap->surface.format; }
  bool HasPalette() const { return settings.bitsPerPixel == 8; }

 private:
  friend class MadeOnce<Screen>;
  Screen();
};

// The machine's settings; what is absent or makes no sense has its default.
ScreenSettings ReadScreenSettings();

// The objects that exist without being made: see GetStockObject.
HGDIOBJ StockObject(int index);
HGDIOBJ StockMonoBitmap();  // what a new memory context holds

}  // namespace orm::platform::gdi
