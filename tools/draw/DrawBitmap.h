// The bitmap half of the command, and what the sheet uses of it.
#pragma once

#include <ormutil/Bitmap.h>

#include <optional>
#include <string>

namespace orm::draw {

struct BitmapOptions {
  std::string file;
  std::string output;
  std::string scale;        // "120/96", "2/1x3/2"
  std::string transparent;  // "first" or RRGGBB
  std::string repeat;       // "WxH", then ":" and up to eight numbers
  bool system = false;
};

// Throws std::runtime_error or std::invalid_argument with the reason.
void DrawBitmapFile(const BitmapOptions& options);

// "RRGGBB"; throws std::invalid_argument.
COLORREF ParseColor(const std::string& text);

}  // namespace orm::draw
