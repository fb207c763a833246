// Font objects: making them, and their metrics.
#include "gdi/Font.h"

#include <algorithm>
#include <cstring>

#include "gdi/Context.h"
#include "gdi/Screen.h"
#include "gdi/Typeface.h"
#include "kernel/CodePage.h"

namespace orm::platform::gdi {

Font::Font(const LOGFONTA& description)
    : Object(objectKind),
      mDescription(description),
      mpTypeface(Typeface::Open(description)),
      mMetrics(mpTypeface->Metrics()) {}

Font::~Font() = default;

const std::string& Font::FaceName() const {
  return mpTypeface->Name();
}

const Glyph& Font::GlyphOf(char32_t character) {
  std::lock_guard lock(mLock);
  return GlyphLocked(character);
}

std::vector<const Glyph*> Font::GlyphsOf(std::u32string_view text) {
  std::vector<const Glyph*> glyphs;
  glyphs.reserve(text.size());
  std::lock_guard lock(mLock);
  for (const char32_t character : text) glyphs.push_back(&GlyphLocked(character));
  return glyphs;
}

const Glyph& Font::GlyphLocked(char32_t character) {
  if (character < std::size(mQuick) && mQuick[character]) return *mQuick[character];
  auto& glyph = mGlyphs[character];
  if (!glyph) glyph = std::make_unique<const Glyph>(mpTypeface->Load(character, IsAntialiased()));
  if (character < std::size(mQuick)) mQuick[character] = glyph.get();
  return *glyph;
}

}  // namespace orm::platform::gdi

using namespace orm::platform::gdi;

extern "C" {

HFONT WINAPI CreateFontIndirectA(const LOGFONTA* description) noexcept {
  return OrNoMemory<HFONT>(nullptr, [&]() -> HFONT {
    if (!description) {
      Fail(ERROR_INVALID_PARAMETER);
      return nullptr;
    }
    return static_cast<HFONT>(Make<Font>(*description));
  });
}

BOOL WINAPI GetTextMetricsA(HDC handle, TEXTMETRICA* result) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    const auto context = Require<Context>(handle);
    if (!context || !result) return FALSE;
    const int dotsPerInch = Screen::The().settings.dotsPerInch;
    const LOGFONTA& description = context->font->Description();
    const FontMetrics& metrics = context->font->Metrics();
    constexpr BYTE vector = 2, trueType = 4, notFixed = 1;
    *result = {};
    result->tmHeight = metrics.Height();
    result->tmAscent = metrics.ascent;
    result->tmDescent = metrics.descent;
    result->tmInternalLeading = metrics.internalLeading;
    result->tmExternalLeading = metrics.externalLeading;
    result->tmAveCharWidth = metrics.averageWidth;
    result->tmMaxCharWidth = metrics.maximumWidth;
    result->tmWeight = metrics.weight;
    result->tmDigitizedAspectX = result->tmDigitizedAspectY = dotsPerInch;
    result->tmFirstChar = ' ';
    result->tmLastChar = 255;
    result->tmDefaultChar = '?';
    result->tmBreakChar = ' ';
    result->tmItalic = description.lfItalic != 0;
    result->tmUnderlined = description.lfUnderline != 0;
    result->tmStruckOut = description.lfStrikeOut != 0;
    result->tmPitchAndFamily = static_cast<BYTE>((description.lfPitchAndFamily & 0xF0) | vector | trueType |
                                                 (metrics.fixedPitch ? 0 : notFixed));
    result->tmCharSet = description.lfCharSet == DEFAULT_CHARSET ? ANSI_CHARSET : description.lfCharSet;
    return TRUE;
  });
}

int WINAPI GetTextFaceA(HDC handle, int size, char* name) noexcept {
  return OrNoMemory<int>(0, [&]() -> int {
    const auto context = Require<Context>(handle);
    if (!context) return 0;
    const std::string face = orm::platform::AnsiFromUtf8(context->font->FaceName());
    const int needed = static_cast<int>(face.size()) + 1;
    if (!name) return needed;
    if (size <= 0) return 0;
    const int copied = std::min(size, needed);
    std::memcpy(name, face.c_str(), static_cast<std::size_t>(copied));
    name[copied - 1] = 0;
    return copied;
  });
}

}  // extern "C"
