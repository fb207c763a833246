// An installed face at a size, and the library that knows them.
//
// Text and picture files need libraries with many dependencies of their own, which a process that draws
// nothing should not have to load. They are behind libormtext.so, which the first font brings in.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "gdi/Font.h"

namespace orm::platform::gdi {

class Typeface {
 public:
  // The face that comes nearest to the description; never fails as long as any font is installed. Without
  // one, or without the library, every character is an empty cell.
  static std::unique_ptr<Typeface> Open(const LOGFONTA& description);

  virtual ~Typeface() = default;

  const std::string& Name() const { return mName; }
  virtual FontMetrics Metrics() const {
    FontMetrics metrics;
    metrics.ascent = defaultPixels;
    return metrics;
  }
  virtual Glyph Load(char32_t /*character*/, bool /*antialiased*/) {
    Glyph empty;
    empty.advance = defaultPixels / 2;
    return empty;
  }

 protected:
  static constexpr int defaultPixels = 16;

  Typeface() = default;

  std::string mName;  // UTF-8
};

// Loads the library unless it is there; the first font does it otherwise.
void LoadTextLibrary();

// A PNG file of `width` x `height` pixels of three bytes, red first; empty when it cannot be made.
std::vector<std::uint8_t> CompressPng(const std::vector<std::uint8_t>& colors, int width, int height);

// What libormtext.so exports, once, by the name OrmTextLibrary. The two libraries are of one build.
struct TextLibrary {
  std::unique_ptr<Typeface> (*openTypeface)(const LOGFONTA& description);
  std::vector<std::uint8_t> (*compressPng)(const std::vector<std::uint8_t>& colors, int width, int height);
  // Around a fork.
  void (*lock)();
  void (*unlock)();
};

}  // namespace orm::platform::gdi
