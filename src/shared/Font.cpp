// Fonts: reading the descriptor, drawing and measuring layered text.
#include <ormutil/Font.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "Areas.h"
#include "GdiHandles.h"

namespace orm {

namespace {

constexpr const char* FILE_NAME = "src/shared/Font";

constexpr LONG POINTS_PER_INCH = 72;

// Reads fields from left to right, the way scanf does: numbers may be preceded by blanks and a sign; what
// does not fit ends the reading. Numbers beyond 32 bits become the nearest ones.
class FieldReader {
 public:
  explicit FieldReader(const char* text) : mpAt(text) {}

  bool Decimal(LONG& value) {
    char* end = nullptr;
    const long long number = std::strtoll(mpAt, &end, 10);
    if (!Advance(end)) return false;
    value = static_cast<LONG>(
        std::clamp<long long>(number, std::numeric_limits<LONG>::min(), std::numeric_limits<LONG>::max()));
    return true;
  }

  bool Hexadecimal(DWORD& value) {
    char* end = nullptr;
    constexpr unsigned long long MOST = std::numeric_limits<DWORD>::max();
    const unsigned long long number = std::strtoull(mpAt, &end, 16);
    if (!Advance(end)) return false;
    // A negative number comes as its complement.
    const bool fits = number <= MOST || number >= ~MOST;
    value = fits ? static_cast<DWORD>(number) : std::numeric_limits<DWORD>::max();
    return true;
  }

  bool Literal(char character) {
    if (*mpAt != character) return false;
    ++mpAt;
    return true;
  }

 private:
  bool Advance(const char* end) {
    if (end == mpAt) return false;
    mpAt = end;
    return true;
  }

  const char* mpAt;
};

// The fields before the first colon.
struct FontFields {
  char face[LF_FACESIZE] = {};
  LONG size = 8;
  COLORREF color = 0;
  LONG weight = FW_NORMAL;
  LONG style = 0;
  LONG charset = DEFAULT_CHARSET;

  bool Read(const char* descriptor) {
    const size_t length = std::strcspn(descriptor, ";");
    if (length == 0 || length >= sizeof face) return false;
    std::memcpy(face, descriptor, length);
    FieldReader reader(descriptor + length);
    // Each field is read only when the one before it was there.
    static_cast<void>(reader.Literal(';') && reader.Decimal(size) && reader.Literal(';') &&
                      reader.Hexadecimal(color) && reader.Literal(';') && reader.Decimal(weight) &&
                      reader.Literal(';') && reader.Decimal(style) && reader.Literal(';') &&
                      reader.Decimal(charset));
    return true;
  }
};

LOGFONTA Describe(const FontFields& rFields) {
  LOGFONTA description{};
  const LONG dotsPerInch = ScreenContext().GetCaps(LOGPIXELSY);
  const LONG em = MulDiv(rFields.size, dotsPerInch, POINTS_PER_INCH);
  description.lfHeight = em == INT32_MIN ? INT32_MAX : -em;
  description.lfWeight = rFields.weight;
  description.lfItalic = (rFields.style & 1) != 0;
  description.lfUnderline = (rFields.style & 2) != 0;
  description.lfStrikeOut = (rFields.style & 4) != 0;
  description.lfCharSet = static_cast<BYTE>(rFields.charset);
  description.lfOutPrecision = OUT_TT_ONLY_PRECIS;
  description.lfClipPrecision = CLIP_DEFAULT_PRECIS;
  description.lfQuality = ANTIALIASED_QUALITY;
  description.lfPitchAndFamily = DEFAULT_PITCH | FF_DONTCARE;
  std::memcpy(description.lfFaceName, rFields.face, sizeof description.lfFaceName);
  return description;
}

FontLayer ReadLayer(const String& rToken) {
  FontLayer layer{0, 0, 0};
  FieldReader reader(rToken.GetBegin());
  static_cast<void>(reader.Decimal(layer.x) && reader.Literal(',') && reader.Decimal(layer.y) &&
                    reader.Literal(',') && reader.Hexadecimal(layer.color));
  return layer;
}

std::vector<FontLayer> ReadLayers(const String& rDescriptor, COLORREF textColor) {
  std::vector<FontLayer> layers;
  FontLayer text{0, 0, textColor};
  const char* const end = rDescriptor.GetEnd();
  const char* colon = rDescriptor.Find(':');
  if (colon != end) {
    const char* const second = rDescriptor.Find(':', colon + 1);
    for (const String& token : rDescriptor.Mid(colon + 1, second).Split(";"))
      layers.push_back(ReadLayer(token));
    if (second != end) {
      FieldReader reader(second + 1);
      static_cast<void>(reader.Decimal(text.x) && reader.Literal(',') && reader.Decimal(text.y));
    }
  }
  layers.push_back(text);
  return layers;
}

// Offsets come from descriptors, so their sums may leave 32 bits; they stay at the edge then.
LONG Add(LONG a, int64_t b) {
  return static_cast<LONG>(
      std::clamp<int64_t>(a + b, std::numeric_limits<LONG>::min(), std::numeric_limits<LONG>::max()));
}

RECT Grow(const RECT& rRect, const RECT& rBy) {
  return {Add(rRect.left, rBy.left), Add(rRect.top, rBy.top), Add(rRect.right, rBy.right),
          Add(rRect.bottom, rBy.bottom)};
}

}  // namespace

Font::~Font() {
  if (mFont) DeleteObject(mFont);
}

bool Font::Create(const String& rDescriptor) {
  ORM_ASSERT(mFont == nullptr, "mFont == 0", FILE_NAME, 18);
  if (rDescriptor.IsEmpty()) return true;
  FontFields fields;
  if (!fields.Read(rDescriptor.GetBegin())) return false;
  const LOGFONTA description = Describe(fields);
  // All numbers have 32 bits here, so none of them is a `long` to printf.
  TraceWrite(areaFont, TRACE_TRACE, false, FILE_NAME, 81, "creating new font: %s;%d;%06x;%d;%d;0x%02x",
             fields.face, fields.size, fields.color, fields.weight, fields.style & 7, description.lfCharSet);
  std::vector<FontLayer> layers = ReadLayers(rDescriptor, fields.color);
  if (mFont) DeleteObject(mFont);
  mFont = CreateFontIndirectA(&description);
  ORM_ASSERT(mFont != nullptr, "mFont != 0", FILE_NAME, 83);
  mLayers = std::move(layers);
  return true;
}

void Font::Draw(HDC context, LONG x, LONG y, const String& rText) const {
  Draw(context, x, y, rText, OWN_COLOR);
}

void Font::Draw(HDC context, LONG x, LONG y, const String& rText, COLORREF color) const {
  DrawInternal(context, {x, y, x, y}, rText, 0, color, false);
}

void Font::DrawFormatted(HDC context, const RECT& rTarget, const String& rText, unsigned format) const {
  DrawFormatted(context, rTarget, rText, format, OWN_COLOR);
}

void Font::DrawFormatted(HDC context, const RECT& rTarget, const String& rText, unsigned format,
                         COLORREF color) const {
  DrawInternal(context, rTarget, rText, format, color, true);
}

// The background mode stays transparent and the text colour the last layer's: callers that draw on set both
// anyway.
void Font::DrawInternal(HDC context, const RECT& rTarget, const String& rText, unsigned format,
                        COLORREF color, bool formatted) const {
  if (!mFont) return;
  SetBkMode(context, TRANSPARENT);
  const SelectedObject selected(context, mFont);
  for (const FontLayer& layer : mLayers) {
    const bool isText = &layer == &mLayers.back();
    SetTextColor(context, isText && color != OWN_COLOR ? color : layer.color);
    RECT target = Grow(rTarget, {layer.x, layer.y, layer.x, layer.y});
    if (formatted)
      DrawTextA(context, rText.GetBegin(), -1, &target, format);
    else
      TextOutA(context, target.left, target.top, rText.GetBegin(), static_cast<int>(rText.GetSize()));
  }
}

SIZE Font::GetSize(HDC context, const String& rText) const {
  SIZE size{0, 0};
  if (!mFont) return size;
  const SelectedObject selected(context, mFont);
  if (!GetTextExtentPoint32A(context, rText.GetBegin(), static_cast<int>(rText.GetSize()), &size)) {
    ORM_FORCED_ASSERT(FILE_NAME, 180);
    return size;
  }
  const RECT range = GetLayerRange();
  size.cx = Add(size.cx, int64_t{range.right} - range.left);
  size.cy = Add(size.cy, int64_t{range.bottom} - range.top);
  return size;
}

RECT Font::GetSize(HDC context, const RECT& rBounds, const String& rText, unsigned format) const {
  RECT rect = rBounds;
  if (!mFont) return rect;
  const SelectedObject selected(context, mFont);
  DrawTextA(context, rText.GetBegin(), -1, &rect, format | DT_CALCRECT);
  return Grow(rect, GetLayerRange());
}

RECT Font::GetLayerRange() const {
  RECT range{0, 0, 0, 0};
  for (const FontLayer& layer : mLayers) {
    range.left = std::min(range.left, layer.x);
    range.top = std::min(range.top, layer.y);
    range.right = std::max(range.right, layer.x);
    range.bottom = std::max(range.bottom, layer.y);
  }
  return range;
}

}  // namespace orm
