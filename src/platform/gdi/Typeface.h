// An installed face at a size: found through fontconfig, drawn through FreeType. Both libraries are used
// under one lock of the process.
#pragma once

#include <ft2build.h>
#include FT_FREETYPE_H

#include <memory>
#include <string>
#include <vector>

#include "gdi/Font.h"

namespace orm::platform::gdi {

class Typeface {
 public:
  // The face that comes nearest to the description; never fails as long as any font is installed. Without
  // one, every character is an empty cell.
  static std::unique_ptr<Typeface> Open(const LOGFONTA& description);

  const std::string& Name() const { return mName; }
  FontMetrics Metrics() const;
  Glyph Load(char32_t character, bool antialiased);

 private:
  struct CloseFace {
    void operator()(FT_Face face) const;
  };
  using Face = std::unique_ptr<FT_FaceRec, CloseFace>;

  struct Match {
    Face face;
    bool makeBold = false;
    bool makeItalic = false;
  };

  Typeface() = default;
  static Match FindFace(const LOGFONTA& description, char32_t needed);
  void SetSize(const LOGFONTA& description);
  const Match& FaceFor(char32_t character);
  Glyph Render(const Match& match, FT_UInt index, bool antialiased) const;

  LOGFONTA mDescription{};
  Match mMain;
  std::vector<Match> mOthers;  // for characters that the main face lacks
  std::string mName;
  FT_UInt mPixelsX = 0;  // of the em
  FT_UInt mPixelsY = 0;
};

}  // namespace orm::platform::gdi
