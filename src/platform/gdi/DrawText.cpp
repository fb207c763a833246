// Formatted text: lines, tabs, prefixes, ellipses and alignment in a rectangle.
#include <algorithm>
#include <cstring>

#include "gdi/Text.h"

namespace orm::platform::gdi {
namespace {

constexpr std::size_t noPrefix = SIZE_MAX;
constexpr int defaultTab = 8;  // average characters
constexpr std::u32string_view ellipsis = U"...";

struct Line {
  std::u32string text;
  std::size_t prefix = noPrefix;  // the character that is underlined
  int width = 0;
};

// Breaks a text into lines and measures them.
class Layout {
 public:
  Layout(Font& font, UINT format, int tabLength, int width)
      : mFont(font), mFormat(format), mTab(tabLength * font.Metrics().averageWidth), mWidth(width) {}

  std::vector<Line> Break(const std::u32string& source) {
    const Line text = StripPrefixes(source);
    std::size_t at = 0;
    if (mFormat & DT_SINGLELINE) {
      Emit(text, 0, text.text.size());
    } else {
      while (at < text.text.size()) {
        const std::size_t end = std::min(text.text.find_first_of(U"\r\n", at), text.text.size());
        Wrap(text, at, end);
        at = end + (text.text.compare(end, 2, U"\r\n") == 0 ? 2 : 1);
      }
    }
    Shorten();
    return std::move(mLines);
  }

  // The width of a part of a line that begins at `start` pixels from the line's left edge, which tabs need.
  int Measure(std::u32string_view text, int start = 0) const {
    int x = start;
    for (std::size_t i = 0; i < text.size(); ++i) x = Step(text[i], x);
    return x - start;
  }

  int Step(char32_t character, int x) const {
    if (character == U'\t' && mFormat & DT_EXPANDTABS)
      return mTab > 0 ? SaturatedAdd(std::int64_t{x / mTab} * mTab, mTab) : x;
    return SaturatedAdd(x, mFont.GlyphOf(character).advance);
  }

 private:
  // "&x" underlines x, "&&" is "&". Of several the last counts.
  Line StripPrefixes(const std::u32string& source) const {
    Line line;
    if (mFormat & DT_NOPREFIX) {
      line.text = source;
      return line;
    }
    for (std::size_t i = 0; i < source.size(); ++i) {
      if (source[i] == U'&' && ++i < source.size() && source[i] != U'&') line.prefix = line.text.size();
      if (i < source.size()) line.text += source[i];
    }
    return line;
  }

  void Emit(const Line& text, std::size_t begin, std::size_t end) {
    Line line;
    line.text = text.text.substr(begin, end - begin);
    if (text.prefix != noPrefix && text.prefix >= begin && text.prefix < end)
      line.prefix = text.prefix - begin;
    line.width = Measure(line.text);
    mLines.push_back(std::move(line));
  }

  // One paragraph, without its line end.
  void Wrap(const Line& text, std::size_t begin, std::size_t end) {
    if (!(mFormat & DT_WORDBREAK)) return Emit(text, begin, end);
    do {
      const std::size_t fit = FindBreak(text.text, begin, end);
      Emit(text, begin, fit);
      begin = fit;
      // The blanks at which a line is broken belong to neither line.
      if (begin < end)
        while (begin < end && IsBlank(text.text[begin])) ++begin;
    } while (begin < end);
  }

  static bool IsBlank(char32_t character) { return character == U' ' || character == U'\t'; }
  // Ideographs may be parted anywhere.
  static bool IsIdeograph(char32_t character) {
    return character >= 0x2E80 && character < 0xFB00 && (character < 0xD7B0 || character >= 0xF900);
  }

  // The end of the line that begins at `begin`: as many words as fit, at least one.
  std::size_t FindBreak(const std::u32string& text, std::size_t begin, std::size_t end) const {
    int x = 0;
    std::size_t lastBreak = begin;  // the end of the last word that fits
    for (std::size_t i = begin; i < end; ++i) {
      const bool blank = IsBlank(text[i]);
      if (i > begin && ((blank && !IsBlank(text[i - 1])) || IsIdeograph(text[i]))) lastBreak = i;
      x = Step(text[i], x);
      if (x <= mWidth || blank) continue;
      if (lastBreak > begin) return lastBreak;
      if (mFormat & DT_EDITCONTROL) return std::max(i, begin + 1);
      while (i < end && !IsBlank(text[i])) ++i;  // a word that is too long stands alone
      return i;
    }
    return end;
  }

  void Shorten() {
    if (mFormat & DT_WORD_ELLIPSIS)
      for (Line& line : mLines) CutEnd(line);
    else if (mFormat & DT_PATH_ELLIPSIS)
      for (Line& line : mLines) CutMiddle(line);
    else if (mFormat & DT_END_ELLIPSIS && !mLines.empty())
      CutEnd(mLines.back());
  }

  // How many leading characters fit into a width.
  std::size_t CountFitting(const std::u32string& text, int width) const {
    int x = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
      x = Step(text[i], x);
      if (x > width) return i;
    }
    return text.size();
  }

  void CutEnd(Line& line) const {
    if (line.width <= mWidth) return;
    Replace(line, CountFitting(line.text, mWidth - Measure(ellipsis)), line.text.size());
  }

  // Keeps what follows the last backslash, as far as there is room for it.
  void CutMiddle(Line& line) const {
    if (line.width <= mWidth) return;
    const std::size_t separator = line.text.find_last_of(U'\\');
    if (separator == std::u32string::npos) return CutEnd(line);
    const int tail = Measure(std::u32string_view(line.text).substr(separator)) + Measure(ellipsis);
    if (tail > mWidth) {
      Replace(line, 0, separator);
      const std::size_t fit = CountFitting(line.text, mWidth - Measure(ellipsis));
      if (fit > ellipsis.size()) Replace(line, fit, line.text.size());
      return;
    }
    Replace(line, std::min(CountFitting(line.text, mWidth - tail), separator), separator);
  }

  // Puts the ellipsis in the place of a part of the line.
  void Replace(Line& line, std::size_t begin, std::size_t end) const {
    line.text.replace(begin, end - begin, ellipsis);
    if (line.prefix != noPrefix && line.prefix >= begin)
      line.prefix = line.prefix < end ? noPrefix : line.prefix - (end - begin) + ellipsis.size();
    line.width = Measure(line.text);
  }

  Font& mFont;
  const UINT mFormat;
  const int mTab;
  const int mWidth;
  std::vector<Line> mLines;
};

// Draws the lines of one call.
class LinePainter {
 public:
  LinePainter(Context& context, const Layout& layout, UINT format, const RECT& clip)
      : mContext(context), mLayout(layout), mFormat(format), mClip(clip) {}

  void Paint(const Line& line, POINT corner) {
    if (!(mFormat & DT_PREFIXONLY)) PaintText(line.text, corner);
    if (line.prefix != noPrefix && !(mFormat & DT_HIDEPREFIX)) PaintPrefix(line, corner);
  }

 private:
  // Piece by piece between tabs.
  void PaintText(const std::u32string& text, POINT corner) {
    const std::u32string_view all = text;
    int x = 0;
    std::size_t at = 0;
    while (at < all.size()) {
      std::size_t end = mFormat & DT_EXPANDTABS ? all.find(U'\t', at) : all.size();
      end = std::min(end, all.size());
      DrawRun(mContext, {SaturatedAdd(corner.x, x), corner.y}, all.substr(at, end - at), mClip);
      x += mLayout.Measure(all.substr(at, end - at + (end < all.size() ? 1 : 0)), x);
      at = end + 1;
    }
  }

  void PaintPrefix(const Line& line, POINT corner) {
    const FontMetrics& metrics = mContext.font->Metrics();
    const std::u32string_view text = line.text;
    const int left = SaturatedAdd(corner.x, mLayout.Measure(text.substr(0, line.prefix)));
    const int top = SaturatedAdd(corner.y, metrics.ascent + metrics.underlineTop);
    const RECT mark{left, top, SaturatedAdd(left, mContext.font->GlyphOf(text[line.prefix]).advance),
                    top + metrics.underlineThickness};
    FillColor(mContext, mark, mClip, mContext.textColor);
  }

  Context& mContext;
  const Layout& mLayout;
  const UINT mFormat;
  const RECT mClip;
};

struct Margins {
  int left = 0;
  int right = 0;
};

int LineHeight(const Context& context, UINT format) {
  const FontMetrics& metrics = context.font->Metrics();
  return metrics.Height() + (format & DT_EXTERNALLEADING ? metrics.externalLeading : 0);
}

int WidthOf(const RECT& rect) {
  return static_cast<int>(std::clamp<std::int64_t>(std::int64_t{rect.right} - rect.left, 0, INT32_MAX / 4));
}

void PaintLines(Context& context, const Layout& layout, const std::vector<Line>& lines, const RECT& rect,
                int top, UINT format, const Margins& margins) {
  const POINT offset = context.offset;
  const RECT area{SaturatedAdd(rect.left, offset.x), SaturatedAdd(rect.top, offset.y),
                  SaturatedAdd(rect.right, offset.x), SaturatedAdd(rect.bottom, offset.y)};
  const RECT clip = format & DT_NOCLIP ? RECT{INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX} : area;
  LinePainter painter(context, layout, format, clip);
  const int left = SaturatedAdd(area.left, margins.left);
  const int room = WidthOf({left, 0, SaturatedAdd(area.right, -margins.right), 0});
  int y = SaturatedAdd(top, offset.y);
  for (const Line& line : lines) {
    if (!(format & DT_NOCLIP) && y >= area.bottom) return;
    int x = left;
    if (format & DT_CENTER) x = SaturatedAdd(left, (room - line.width) / 2);
    if (format & DT_RIGHT) x = SaturatedAdd(left, room - line.width);
    painter.Paint(line, {x, y});
    y = SaturatedAdd(y, LineHeight(context, format));
  }
}

int DrawFormatted(Context& context, const std::u32string& text, RECT& rect, UINT format, int tabLength,
                  const Margins& margins) {
  const int room = std::max(0, WidthOf(rect) - margins.left - margins.right);
  Layout layout(*context.font, format, tabLength, room);
  const std::vector<Line> lines = layout.Break(text);
  const auto count = static_cast<std::int64_t>(lines.size());
  const int height =
      static_cast<int>(std::min<std::int64_t>(count * LineHeight(context, format), INT32_MAX / 4));
  std::int64_t down = 0;
  if (format & DT_SINGLELINE && !(format & DT_CALCRECT)) {
    const std::int64_t spare = std::int64_t{rect.bottom} - rect.top - height;
    if (format & DT_VCENTER) down += spare / 2;
    if (format & DT_BOTTOM) down += spare;
  }
  if (!(format & DT_CALCRECT)) {
    PaintLines(context, layout, lines, rect, SaturatedAdd(rect.top, down), format, margins);
  } else {
    int widest = 0;
    for (const Line& line : lines) widest = std::max(widest, line.width);
    rect.right = SaturatedAdd(SaturatedAdd(rect.left, widest), margins.left + margins.right);
    rect.bottom = SaturatedAdd(rect.top, height);
  }
  return SaturatedAdd(down, height);
}

}  // namespace
}  // namespace orm::platform::gdi

using namespace orm::platform::gdi;

extern "C" {

int WINAPI DrawTextExA(HDC handle, char* text, int length, RECT* rect, UINT format,
                       DRAWTEXTPARAMS* parameters) noexcept {
  return OrNoMemory<int>(0, [&]() -> int {
    const auto context = Require<Context>(handle);
    if (!context) return 0;
    if (!rect || !text || length < -1 || (parameters && parameters->cbSize < sizeof *parameters)) {
      Fail(ERROR_INVALID_PARAMETER);
      return 0;
    }
    const std::size_t bytes = length == -1 ? std::strlen(text) : static_cast<std::size_t>(length);
    int tabLength = defaultTab;
    Margins margins;
    if (format & DT_TABSTOP) {  // the second byte of the flags is the tab width then, not flags
      tabLength = static_cast<int>(format >> 8 & 0xFF);
      format &= ~0xFF00u;
    }
    if (parameters) {
      constexpr int most = 4096;
      const int average = context->font->Metrics().averageWidth;
      if (parameters->iTabLength > 0) tabLength = std::min(parameters->iTabLength, most);
      margins.left = std::clamp(parameters->iLeftMargin, 0, most) * average;
      margins.right = std::clamp(parameters->iRightMargin, 0, most) * average;
      parameters->uiLengthDrawn = static_cast<UINT>(bytes);
    }
    return DrawFormatted(*context, DecodeText(text, bytes), *rect, format, tabLength, margins);
  });
}

int WINAPI DrawTextA(HDC handle, const char* text, int length, RECT* rect, UINT format) noexcept {
  return DrawTextExA(handle, const_cast<char*>(text), length, rect, format, nullptr);
}

}  // extern "C"
