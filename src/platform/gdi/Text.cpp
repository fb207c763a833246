// Drawing single runs of text: blending glyphs onto surfaces, underlines, and the entry points for one line.
#include "gdi/Text.h"

#include <emmintrin.h>

#include <algorithm>
#include <cstring>

#include "gdi/Transfer.h"
#include "win32/nls.h"

namespace orm::platform::gdi {
namespace {

// Moves a colour towards another by coverage / 255, two channels at a time.
Xrgb Blend(Xrgb under, Xrgb over, std::uint32_t coverage) {
  const std::uint32_t weight = coverage + (coverage >> 7);  // 0..256
  const std::uint32_t rest = 256 - weight;
  const std::uint32_t redBlue = ((under & 0xFF00FF) * rest + (over & 0xFF00FF) * weight) >> 8 & 0xFF00FF;
  const std::uint32_t green = ((under & 0x00FF00) * rest + (over & 0x00FF00) * weight) >> 8 & 0x00FF00;
  return redBlue | green;
}

// The same for four pixels side by side, each with one byte of the coverage: channels of 16 bits, which what
// both colours add up to just fits.
class FourBlender {
 public:
  explicit FourBlender(Xrgb over)
      : mOver(_mm_unpacklo_epi8(_mm_set1_epi32(static_cast<int>(over & 0xFFFFFF)), _mm_setzero_si128())) {}

  void Blend(Xrgb* pixels, std::uint32_t coverage) const {
    const __m128i zero = _mm_setzero_si128();
    auto* const place = reinterpret_cast<__m128i*>(pixels);
    const __m128i under = _mm_and_si128(_mm_loadu_si128(place), _mm_set1_epi32(0xFFFFFF));
    const __m128i each = _mm_cvtsi32_si128(static_cast<int>(coverage));
    const __m128i twice = _mm_unpacklo_epi8(each, each);
    const __m128i channels = _mm_unpacklo_epi8(twice, twice);
    const __m128i low = Mix(_mm_unpacklo_epi8(under, zero), _mm_unpacklo_epi8(channels, zero));
    const __m128i high = Mix(_mm_unpackhi_epi8(under, zero), _mm_unpackhi_epi8(channels, zero));
    _mm_storeu_si128(place, _mm_packus_epi16(low, high));
  }

 private:
  __m128i Mix(__m128i under, __m128i coverage) const {
    const __m128i weight = _mm_add_epi16(coverage, _mm_srli_epi16(coverage, 7));
    const __m128i rest = _mm_sub_epi16(_mm_set1_epi16(256), weight);
    return _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(under, rest), _mm_mullo_epi16(mOver, weight)), 8);
  }

  const __m128i mOver;
};

// Draws glyphs of one colour onto a surface.
class Painter {
 public:
  Painter(Surface& surface, const RECT& clip, Xrgb color)
      : mSurface(surface), mClip(clip), mColor(color), mFour(color), mValue(surface.Nearest(color)) {}

  void Paint(const Glyph& glyph, int penX, int baseline) {
    const int left = penX + glyph.left;
    const int top = baseline - glyph.top;
    const int first = std::max(left, mClip.left);
    const int last = std::min(left + glyph.width, mClip.right);
    if (first >= last) return;
    for (int y = std::max(top, mClip.top); y < std::min(top + glyph.height, mClip.bottom); ++y) {
      const std::ptrdiff_t offset = static_cast<std::ptrdiff_t>(y - top) * glyph.width + (first - left);
      PaintRow(first, y, last - first, glyph.coverage.data() + offset);
    }
  }

 private:
  void PaintRow(int x, int y, int count, const std::uint8_t* coverage) {
    const PixelFormat& format = mSurface.format;
    if (format.plain && format.bits == 32) {
      PaintWords(reinterpret_cast<Xrgb*>(mSurface.Row(y)) + x, count, coverage);
    } else if (format.plain && format.bits == 24) {
      std::uint8_t* pixel = mSurface.Row(y) + 3 * static_cast<std::ptrdiff_t>(x);
      for (int i = 0; i < count; ++i, pixel += 3) {
        const Xrgb blended =
            Blend(pixel[0] | Xrgb{pixel[1]} << 8 | Xrgb{pixel[2]} << 16, mColor, coverage[i]);
        pixel[0] = static_cast<std::uint8_t>(blended);
        pixel[1] = static_cast<std::uint8_t>(blended >> 8);
        pixel[2] = static_cast<std::uint8_t>(blended >> 16);
      }
    } else {
      PaintOther(x, y, count, coverage);
    }
  }

  // Four at a time. The last four overlap those before, whose coverage is taken as nothing then: that leaves
  // them as they are, and glyphs are seldom a multiple of four wide.
  void PaintWords(Xrgb* pixels, int count, const std::uint8_t* coverage) {
    const auto four = [coverage](int at) {
      std::uint32_t bytes;
      std::memcpy(&bytes, coverage + at, sizeof bytes);
      return bytes;
    };
    if (count < 4) {
      for (int i = 0; i < count; ++i) pixels[i] = Blend(pixels[i], mColor, coverage[i]);
      return;
    }
    int at = 0;
    for (; at + 4 <= count; at += 4) mFour.Blend(pixels + at, four(at));
    const int rest = count - at;
    if (rest > 0) mFour.Blend(pixels + count - 4, four(count - 4) & ~std::uint32_t{0} << 8 * (4 - rest));
  }

  // Colours of a table cannot be mixed: there a character has hard edges.
  void PaintOther(int x, int y, int count, const std::uint8_t* coverage) {
    const bool mix = mSurface.format.kind == PixelFormat::Kind::Direct;
    for (int i = 0; i < count; ++i) {
      if (coverage[i] < (mix ? 1 : 128)) continue;
      std::uint32_t value = mValue;
      if (mix) {
        mSurface.Read(x + i, y, 1, &value);
        value = mSurface.Nearest(Blend(mSurface.ColorOf(value), mColor, coverage[i]));
      }
      mSurface.Write(x + i, y, 1, &value);
    }
  }

  Surface& mSurface;
  const RECT mClip;
  const Xrgb mColor;
  const FourBlender mFour;
  const std::uint32_t mValue;
};

void FillLocked(Surface& surface, const RECT& rect, const RECT& clip, Xrgb color) {
  const RECT target = Intersect(rect, clip);
  if (!IsEmpty(target)) Fill(surface, target, RasterOperation(PATCOPY), surface.Nearest(color));
}

}  // namespace

std::u32string DecodeText(const char* text, std::size_t bytes) {
  std::u32string result(bytes, U'\0');
  bool ascii = true;
  for (std::size_t i = 0; i < bytes; ++i) {
    result[i] = static_cast<unsigned char>(text[i]);
    ascii = ascii && result[i] < 0x80;
  }
  if (ascii || bytes > INT32_MAX) return result;
  std::vector<WCHAR> units(bytes);
  const int count =
      MultiByteToWideChar(CP_ACP, 0, text, static_cast<int>(bytes), units.data(), static_cast<int>(bytes));
  result.clear();
  for (int i = 0; i < count; ++i) {
    const char32_t unit = units[static_cast<std::size_t>(i)];
    const char32_t next = i + 1 < count ? units[static_cast<std::size_t>(i) + 1] : 0;
    if (unit >= 0xD800 && unit < 0xDC00 && next >= 0xDC00 && next < 0xE000) {
      result += static_cast<char32_t>(0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00));
      ++i;
    } else {
      result += unit;
    }
  }
  return result;
}

int MeasureRun(Font& font, std::u32string_view text) {
  std::int64_t width = 0;
  for (const Glyph* glyph : font.GlyphsOf(text)) width += glyph->advance;
  return static_cast<int>(std::min<std::int64_t>(width, INT32_MAX / 4));
}

void DrawRun(Context& context, POINT corner, std::u32string_view text, const RECT& clip,
             const std::vector<int>* advances) {
  Font& font = *context.font;
  const FontMetrics& metrics = font.Metrics();
  const RECT visible = Intersect(clip, context.Clip());
  const std::vector<const Glyph*> glyphs = font.GlyphsOf(text);
  std::vector<LONG> pens{corner.x};
  pens.reserve(glyphs.size() + 1);
  for (std::size_t i = 0; i < glyphs.size(); ++i)
    pens.push_back(SaturatedAdd(pens.back(), advances ? (*advances)[i] : glyphs[i]->advance));
  const LONG right = pens.back();
  const LONG baseline = SaturatedAdd(corner.y, metrics.ascent);
  const Xrgb color = context.Resolve(context.textColor);
  Surface& surface = context.Target();
  const SurfaceLock lock(surface);
  if (context.bkMode == OPAQUE)
    FillLocked(surface, {corner.x, corner.y, right, SaturatedAdd(corner.y, metrics.Height())}, visible,
               context.Resolve(context.bkColor));
  if (IsEmpty(visible)) return;
  Painter painter(surface, visible, color);
  for (std::size_t i = 0; i < glyphs.size(); ++i) painter.Paint(*glyphs[i], pens[i], baseline);
  const LOGFONTA& description = font.Description();
  const auto line = [&](LONG top, LONG thickness) {
    FillLocked(surface, {corner.x, top, right, top + thickness}, visible, color);
  };
  if (description.lfUnderline) line(baseline + metrics.underlineTop, metrics.underlineThickness);
  if (description.lfStrikeOut) line(baseline - metrics.strikeTop, metrics.strikeThickness);
}

void FillColor(Context& context, const RECT& rect, const RECT& clip, COLORREF color) {
  const SurfaceLock lock(context.Target());
  FillLocked(context.Target(), rect, Intersect(clip, context.Clip()), context.Resolve(color));
}

}  // namespace orm::platform::gdi

using namespace orm::platform::gdi;

namespace {

constexpr RECT everywhere{INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX};

// The upper left corner of a run's cell for a reference point and the context's alignment.
POINT AlignedCorner(const Context& context, int x, int y, int width) {
  const FontMetrics& metrics = context.font->Metrics();
  POINT corner{SaturatedAdd(x, context.offset.x), SaturatedAdd(y, context.offset.y)};
  const UINT across = context.textAlign & TA_CENTER;
  if (across == TA_CENTER) corner.x = SaturatedAdd(corner.x, -(width / 2));
  if (across == TA_RIGHT) corner.x = SaturatedAdd(corner.x, -width);
  const UINT down = context.textAlign & TA_BASELINE;
  if (down == TA_BASELINE) corner.y = SaturatedAdd(corner.y, -metrics.ascent);
  if (down == TA_BOTTOM) corner.y = SaturatedAdd(corner.y, -metrics.Height());
  return corner;
}

// Turns distances for bytes into distances for characters: those of a character's bytes are added up.
std::vector<int> CharacterAdvances(const char* text, std::size_t bytes, const int* advances,
                                   std::size_t characters) {
  std::vector<int> result;
  std::size_t at = 0;
  while (at < bytes && result.size() < characters) {
    std::size_t size = 1;
    // The shortest prefix that decodes to whole characters. No page has characters of more than four bytes.
    while (size < 4 && at + size < bytes &&
           MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, text + at, static_cast<int>(size), nullptr, 0) ==
               0)
      ++size;
    int sum = 0;
    for (std::size_t i = 0; i < size; ++i) sum = SaturatedAdd(sum, advances[at + i]);
    result.push_back(sum);
    at += size;
  }
  result.resize(characters, 0);
  return result;
}

}  // namespace

extern "C" {

BOOL WINAPI GetTextExtentPoint32A(HDC handle, const char* text, int length, SIZE* size) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    const auto context = Require<Context>(handle);
    if (!context) return FALSE;
    if (!size || length < 0 || (!text && length > 0)) {
      Fail(ERROR_INVALID_PARAMETER);
      return FALSE;
    }
    Font& font = *context->font;
    *size = {MeasureRun(font, DecodeText(text, static_cast<std::size_t>(length))), font.Metrics().Height()};
    return TRUE;
  });
}

BOOL WINAPI TextOutA(HDC handle, int x, int y, const char* text, int length) noexcept {
  if (length < 0) {
    Fail(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  return ExtTextOutA(handle, x, y, 0, nullptr, text, static_cast<UINT>(length), nullptr);
}

BOOL WINAPI ExtTextOutA(HDC handle, int x, int y, UINT options, const RECT* rect, const char* text,
                        UINT length, const int* advances) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    const auto context = Require<Context>(handle);
    if (!context) return FALSE;
    if (!text && length > 0) {
      Fail(ERROR_INVALID_PARAMETER);
      return FALSE;
    }
    RECT clip = everywhere;
    if (rect) {
      const POINT offset = context->offset;
      const RECT area{SaturatedAdd(rect->left, offset.x), SaturatedAdd(rect->top, offset.y),
                      SaturatedAdd(rect->right, offset.x), SaturatedAdd(rect->bottom, offset.y)};
      if (options & ETO_OPAQUE) FillColor(*context, area, everywhere, context->bkColor);
      if (options & ETO_CLIPPED) clip = area;
    }
    if (length == 0) return TRUE;
    const std::u32string characters = DecodeText(text, length);
    if (!advances) {
      const int width = context->textAlign & TA_CENTER ? MeasureRun(*context->font, characters) : 0;
      DrawRun(*context, AlignedCorner(*context, x, y, width), characters, clip);
      return TRUE;
    }
    const std::vector<int> steps = CharacterAdvances(text, length, advances, characters.size());
    int width = 0;
    for (const int step : steps) width = SaturatedAdd(width, step);
    DrawRun(*context, AlignedCorner(*context, x, y, width), characters, clip, &steps);
    return TRUE;
  });
}

}  // extern "C"
