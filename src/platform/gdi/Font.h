// A logical font and what it becomes: a face at a size, and the pictures of its characters.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "gdi/Object.h"

namespace orm::platform::gdi {

class Typeface;

// The picture of one character, to be placed relative to the pen on the baseline.
struct Glyph {
  int left = 0;  // from the pen to the picture's left edge
  int top = 0;   // from the baseline up to its top edge
  int width = 0;
  int height = 0;
  int advance = 0;
  std::vector<std::uint8_t> coverage;  // 0..255, row by row, top row first
};

// All in pixels, of the face at its size.
struct FontMetrics {
  int ascent = 0;
  int descent = 0;
  int internalLeading = 0;
  int externalLeading = 0;
  int averageWidth = 0;
  int maximumWidth = 0;
  int underlineTop = 0;  // below the baseline
  int underlineThickness = 1;
  int strikeTop = 0;  // above the baseline
  int strikeThickness = 1;
  int weight = FW_NORMAL;
  bool fixedPitch = false;
  int Height() const { return ascent + descent; }
};

class Font final : public Object {
 public:
  static constexpr Kind objectKind = Kind::Font;

  explicit Font(const LOGFONTA& description);
  ~Font() override;
  std::mutex* Lock() noexcept override { return &mLock; }

  const LOGFONTA& Description() const { return mDescription; }
  const FontMetrics& Metrics() const { return mMetrics; }
  // The name of the face that is used, UTF-8.
  const std::string& FaceName() const;
  bool IsAntialiased() const { return mDescription.lfQuality != NONANTIALIASED_QUALITY; }

  // Any thread; the glyph lives as long as the font.
  const Glyph& GlyphOf(char32_t character);
  // Those of a run, in order.
  std::vector<const Glyph*> GlyphsOf(std::u32string_view text);

 private:
  const Glyph& GlyphLocked(char32_t character);
  Glyph Load(char32_t character) const;

  const LOGFONTA mDescription;
  std::unique_ptr<Typeface> mpTypeface;
  FontMetrics mMetrics;
  std::mutex mLock;
  std::unordered_map<char32_t, std::unique_ptr<const Glyph>> mGlyphs;
  const Glyph* mQuick[128] = {};  // the ASCII characters among them
};

}  // namespace orm::platform::gdi
