// Finding faces, sizing them by the platform's rules, and rendering characters.
#include "gdi/text/FreeTypeface.h"

#include <fontconfig/fontconfig.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <mutex>
#include <new>

#include FT_BITMAP_H
#include FT_OUTLINE_H
#include FT_TRUETYPE_TABLES_H

#include "kernel/CodePage.h"

namespace orm::platform::gdi {
namespace {

constexpr int mostPixels = 4096;    // beyond that a height is taken as this one
constexpr FT_Fixed slant = 0x3800;  // horizontal shift for each unit of height of a made italic: 0.22

// One for the process; never closed, since fonts may be deleted by other modules' exit actions.
struct Libraries {
  std::mutex lock;
  FT_Library freeType = nullptr;
  FcConfig* config = nullptr;

  // Under the lock. False when they cannot be had, which the next font may find different.
  bool Open() {
    if (!freeType && FT_Init_FreeType(&freeType) != 0) freeType = nullptr;
    if (!config) config = FcInitLoadConfigAndFonts();
    return freeType && config;
  }
};

constinit Libraries gsLibraries;

struct DestroyPattern {
  void operator()(FcPattern* pattern) const { FcPatternDestroy(pattern); }
};
using Pattern = std::unique_ptr<FcPattern, DestroyPattern>;

// The language whose characters a character set stands for; null for those that every face serves.
const char* LanguageOf(BYTE charset) {
  switch (charset) {
    case SHIFTJIS_CHARSET:
      return "ja";
    case HANGUL_CHARSET:
      return "ko";
    case GB2312_CHARSET:
      return "zh-cn";
    case CHINESEBIG5_CHARSET:
      return "zh-tw";
    case GREEK_CHARSET:
      return "el";
    case TURKISH_CHARSET:
      return "tr";
    case HEBREW_CHARSET:
      return "he";
    case ARABIC_CHARSET:
      return "ar";
    case RUSSIAN_CHARSET:
      return "ru";
    case THAI_CHARSET:
      return "th";
    default:
      return nullptr;
  }
}

const char* GenericFamily(const LOGFONTA& description) {
  if ((description.lfPitchAndFamily & 3) == FIXED_PITCH || (description.lfPitchAndFamily & 0xF0) == FF_MODERN)
    return "monospace";
  return (description.lfPitchAndFamily & 0xF0) == FF_ROMAN ? "serif" : "sans-serif";
}

int WantedWeight(const LOGFONTA& description) {
  return description.lfWeight <= 0 ? FW_NORMAL : std::min<int>(description.lfWeight, 1000);
}

Pattern Describe(const LOGFONTA& description, char32_t needed) {
  Pattern pattern(FcPatternCreate());
  if (!pattern) throw std::bad_alloc();
  const std::string face = Utf8FromAnsi(
      {description.lfFaceName,
       static_cast<std::size_t>(std::find(description.lfFaceName, std::end(description.lfFaceName), '\0') -
                                description.lfFaceName)});
  const auto text = [](const char* utf8) { return reinterpret_cast<const FcChar8*>(utf8); };
  if (!face.empty()) FcPatternAddString(pattern.get(), FC_FAMILY, text(face.c_str()));
  FcPatternAddString(pattern.get(), FC_FAMILY, text(GenericFamily(description)));
  FcPatternAddInteger(pattern.get(), FC_WEIGHT, FcWeightFromOpenType(WantedWeight(description)));
  FcPatternAddInteger(pattern.get(), FC_SLANT, description.lfItalic ? FC_SLANT_ITALIC : FC_SLANT_ROMAN);
  FcPatternAddBool(pattern.get(), FC_SCALABLE, FcTrue);
  if (const char* language = LanguageOf(description.lfCharSet))
    FcPatternAddString(pattern.get(), FC_LANG, text(language));
  if (needed) {
    FcCharSet* characters = FcCharSetCreate();
    if (!characters) throw std::bad_alloc();
    FcCharSetAddChar(characters, needed);
    FcPatternAddCharSet(pattern.get(), FC_CHARSET, characters);
    FcCharSetDestroy(characters);
  }
  return pattern;
}

// Font units to pixels, rounded to the nearest.
int Scale(FT_Face face, int units, FT_UInt pixels) {
  if (!face || face->units_per_EM == 0) return 0;
  return static_cast<int>(std::lround(static_cast<double>(units) * pixels / face->units_per_EM));
}

// The extent of the character cell above and below the baseline, in font units.
struct Cell {
  int ascent = 0;
  int descent = 0;
};

Cell CellOf(FT_Face face) {
  const auto* os2 = static_cast<const TT_OS2*>(FT_Get_Sfnt_Table(face, FT_SFNT_OS2));
  if (os2 && os2->usWinAscent + os2->usWinDescent > 0) return {os2->usWinAscent, os2->usWinDescent};
  return {face->ascender, -face->descender};
}

// The em in pixels for a height: a negative one is the em itself, a positive one the cell.
FT_UInt EmFor(FT_Face face, LONG height, int defaultPixels) {
  if (height == 0) height = defaultPixels;
  const double wanted = std::min(std::fabs(static_cast<double>(height)), static_cast<double>(mostPixels));
  const Cell cell = CellOf(face);
  const double em =
      height < 0 ? wanted : wanted * face->units_per_EM / std::max(1, cell.ascent + cell.descent);
  return static_cast<FT_UInt>(std::max(1L, std::lround(em)));
}

}  // namespace

void FreeTypeface::LockLibraries() {
  gsLibraries.lock.lock();
}
void FreeTypeface::UnlockLibraries() {
  gsLibraries.lock.unlock();
}

FreeTypeface::~FreeTypeface() {
  std::lock_guard lock(gsLibraries.lock);
  mOthers.clear();
  mMain.face.reset();
}

// Without a face when none can be had.
FreeTypeface::Match FreeTypeface::FindFace(const LOGFONTA& description, char32_t needed) {
  Libraries& libraries = gsLibraries;
  if (!libraries.Open()) return {};
  const Pattern wanted = Describe(description, needed);
  FcConfigSubstitute(libraries.config, wanted.get(), FcMatchPattern);
  FcDefaultSubstitute(wanted.get());
  FcResult result = FcResultNoMatch;
  const Pattern found(FcFontMatch(libraries.config, wanted.get(), &result));
  FcChar8* file = nullptr;
  if (!found || FcPatternGetString(found.get(), FC_FILE, 0, &file) != FcResultMatch) return {};
  int index = 0;
  FcPatternGetInteger(found.get(), FC_INDEX, 0, &index);
  FT_Face face = nullptr;
  if (FT_New_Face(libraries.freeType, reinterpret_cast<const char*>(file), index, &face) != 0) return {};
  Match match;
  match.face.reset(face);
  FT_Select_Charmap(face, FT_ENCODING_UNICODE);
  int weight = FC_WEIGHT_NORMAL;
  int slope = FC_SLANT_ROMAN;
  FcPatternGetInteger(found.get(), FC_WEIGHT, 0, &weight);
  FcPatternGetInteger(found.get(), FC_SLANT, 0, &slope);
  // The library's usual configuration asks for made styles by these two and then calls the face what was
  // wanted.
  FcBool embolden = FcFalse;
  FcMatrix* shear = nullptr;
  FcPatternGetBool(found.get(), FC_EMBOLDEN, 0, &embolden);
  FcPatternGetMatrix(found.get(), FC_MATRIX, 0, &shear);
  match.makeBold = WantedWeight(description) >= 600 && (embolden || weight < FC_WEIGHT_DEMIBOLD);
  match.makeItalic = description.lfItalic && (shear || slope == FC_SLANT_ROMAN);
  return match;
}

std::unique_ptr<Typeface> FreeTypeface::Open(const LOGFONTA& description) {
  auto typeface = std::unique_ptr<FreeTypeface>(new FreeTypeface);
  typeface->mDescription = description;
  std::lock_guard lock(gsLibraries.lock);
  typeface->mMain = FindFace(description, 0);
  if (!typeface->mMain.face) {
    typeface->mMetrics = typeface->Typeface::Metrics();
    return typeface;
  }
  if (const char* family = typeface->mMain.face->family_name) typeface->mName = family;
  typeface->SetSize(description);
  typeface->mMetrics = typeface->Measure();
  return typeface;
}

void FreeTypeface::SetSize(const LOGFONTA& description) {
  FT_Face face = mMain.face.get();
  mPixelsX = mPixelsY = EmFor(face, description.lfHeight, defaultPixels);
  FT_Set_Pixel_Sizes(face, mPixelsX, mPixelsY);
  const int average = Measure().averageWidth;
  if (description.lfWidth == 0 || average == 0) return;
  const std::int64_t width = std::min<std::int64_t>(std::llabs(description.lfWidth), mostPixels);
  mPixelsX = static_cast<FT_UInt>(std::clamp<std::int64_t>(mPixelsY * width / average, 1, mostPixels));
  FT_Set_Pixel_Sizes(face, mPixelsX, mPixelsY);
}

FontMetrics FreeTypeface::Measure() const {
  FT_Face face = mMain.face.get();
  FontMetrics metrics;
  const Cell cell = CellOf(face);
  const auto* os2 = static_cast<const TT_OS2*>(FT_Get_Sfnt_Table(face, FT_SFNT_OS2));
  const auto* horizontal = static_cast<const TT_HoriHeader*>(FT_Get_Sfnt_Table(face, FT_SFNT_HHEA));
  metrics.ascent = Scale(face, cell.ascent, mPixelsY);
  metrics.descent = Scale(face, cell.descent, mPixelsY);
  metrics.internalLeading = std::max(0, metrics.Height() - static_cast<int>(mPixelsY));
  if (horizontal) {
    const int spread = cell.ascent + cell.descent - (horizontal->Ascender - horizontal->Descender);
    metrics.externalLeading = Scale(face, std::max(0, horizontal->Line_Gap - spread), mPixelsY);
  }
  metrics.averageWidth =
      std::max(1, Scale(face, os2 ? os2->xAvgCharWidth : face->max_advance_width / 2, mPixelsX));
  metrics.maximumWidth = Scale(face, static_cast<int>(face->bbox.xMax - face->bbox.xMin), mPixelsX);
  metrics.underlineThickness = std::max(1, Scale(face, face->underline_thickness, mPixelsY));
  metrics.underlineTop =
      std::max(1, Scale(face, -face->underline_position - face->underline_thickness / 2, mPixelsY));
  metrics.strikeThickness =
      os2 ? std::max(1, Scale(face, os2->yStrikeoutSize, mPixelsY)) : metrics.underlineThickness;
  metrics.strikeTop = os2 ? Scale(face, os2->yStrikeoutPosition, mPixelsY) : metrics.ascent / 3;
  metrics.weight = mMain.makeBold ? FW_BOLD : os2 ? os2->usWeightClass : FW_NORMAL;
  metrics.fixedPitch = FT_IS_FIXED_WIDTH(face) != 0;
  return metrics;
}

// The main face; another one when that lacks the character and the other has it. Valid until the next call.
const FreeTypeface::Match& FreeTypeface::FaceFor(char32_t character) {
  if (FT_Get_Char_Index(mMain.face.get(), character) != 0) return mMain;
  for (const Match& other : mOthers)
    if (FT_Get_Char_Index(other.face.get(), character) != 0) return other;
  Match match = FindFace(mDescription, character);
  if (!match.face || FT_Get_Char_Index(match.face.get(), character) == 0) return mMain;
  FT_Set_Pixel_Sizes(match.face.get(), mPixelsX, mPixelsY);
  return mOthers.emplace_back(std::move(match));
}

Glyph FreeTypeface::Load(char32_t character, bool antialiased) {
  if (!mMain.face) return Typeface::Load(character, antialiased);
  std::lock_guard lock(gsLibraries.lock);
  const bool control = character < 0x20 || (character >= 0x7F && character < 0xA0);
  const Match& match = FaceFor(control ? U' ' : character);
  return Render(match, FT_Get_Char_Index(match.face.get(), control ? U' ' : character), antialiased);
}

Glyph FreeTypeface::Render(const Match& match, FT_UInt index, bool antialiased) const {
  Glyph glyph;
  FT_Face face = match.face.get();
  const FT_Int32 target = antialiased ? FT_LOAD_TARGET_NORMAL : FT_LOAD_TARGET_MONO;
  if (FT_Load_Glyph(face, index, target | FT_LOAD_NO_BITMAP) != 0) return glyph;
  FT_GlyphSlot slot = face->glyph;
  glyph.advance = static_cast<int>((slot->advance.x + 32) >> 6);
  if (slot->format == FT_GLYPH_FORMAT_OUTLINE) {
    if (match.makeBold) {
      FT_Outline_EmboldenXY(&slot->outline, std::max<FT_Pos>(64, static_cast<FT_Pos>(mPixelsX) * 64 / 24), 0);
      ++glyph.advance;
    }
    if (match.makeItalic) {
      const FT_Matrix shear{0x10000, slant, 0, 0x10000};
      FT_Outline_Transform(&slot->outline, &shear);
    }
  }
  if (FT_Render_Glyph(slot, antialiased ? FT_RENDER_MODE_NORMAL : FT_RENDER_MODE_MONO) != 0) return glyph;
  const FT_Bitmap& bitmap = slot->bitmap;
  glyph.left = slot->bitmap_left;
  glyph.top = slot->bitmap_top;
  glyph.width = static_cast<int>(bitmap.width);
  glyph.height = static_cast<int>(bitmap.rows);
  glyph.coverage.resize(std::size_t{bitmap.width} * bitmap.rows);
  for (std::size_t y = 0; y < bitmap.rows; ++y) {
    const std::uint8_t* row = bitmap.buffer + static_cast<std::ptrdiff_t>(y) * bitmap.pitch;
    for (std::size_t x = 0; x < bitmap.width; ++x)
      glyph.coverage[y * bitmap.width + x] =
          antialiased ? row[x] : static_cast<std::uint8_t>(row[x / 8] >> (7 - x % 8) & 1 ? 255 : 0);
  }
  return glyph;
}

}  // namespace orm::platform::gdi
