// A face that is found through fontconfig and drawn through FreeType. Both libraries are used under one lock
// of the process, which is held wherever a face is made, used or closed.
#pragma once

#include <ft2build.h>
#include FT_FREETYPE_H

#include <memory>
#include <vector>

#include "gdi/Typeface.h"

namespace orm::platform::gdi {

class FreeTypeface final : public Typeface {
 public:
  static std::unique_ptr<Typeface> Open(const LOGFONTA& description);
  ~FreeTypeface() override;
  static void LockLibraries();
  static void UnlockLibraries();

  FontMetrics Metrics() const override { return mMetrics; }
  Glyph Load(char32_t character, bool antialiased) override;

 private:
  struct CloseFace {
    void operator()(FT_Face face) const { FT_Done_Face(face); }
  };
  using Face = std::unique_ptr<FT_FaceRec, CloseFace>;

  struct Match {
    Face face;
    bool makeBold = false;
    bool makeItalic = false;
  };

  FreeTypeface() = default;
  // Their callers hold the lock.
  static Match FindFace(const LOGFONTA& description, char32_t needed);
  void SetSize(const LOGFONTA& description);
  FontMetrics Measure() const;
  const Match& FaceFor(char32_t character);
  Glyph Render(const Match& match, FT_UInt index, bool antialiased) const;

  LOGFONTA mDescription{};
  Match mMain;
  std::vector<Match> mOthers;  // for characters that the main face lacks
  FontMetrics mMetrics;
  FT_UInt mPixelsX = 0;  // of the em
  FT_UInt mPixelsY = 0;
};

}  // namespace orm::platform::gdi
