// A font described by one line of text, and text drawn with it as a stack of layers: copies at pixel offsets
// in colours of their own (shadows, outlines), then the text itself.
//
//   Font font;
//   if (!font.Create("Tahoma;10;ffffff;700;0;1:1,1,000000")) ...   // white and bold with a black shadow
//   font.Draw(context, 12, 8, "Ready");
//   SIZE room = font.GetSize(context, "Ready");                    // the shadow's pixel included
//
// The descriptor:
//
//   face;size;colour;weight;style;charset[:layer;layer;...[:x,y]]
//
//   face     the name of the face, 1 to 31 bytes
//   size     points, 8 when missing
//   colour   of the text, hexadecimal 0x00BBGGRR, 0 when missing
//   weight   400 normal (when missing), 700 bold
//   style    1 italic + 2 underline + 4 strike-out, 0 when missing
//   charset  1, the system's default, when missing
//   layer    x,y,colour of one extra copy, in drawing order
//   x,y      offset of the text itself
//
// Everything after the face may be left out from the right. A Font is used by one thread at a time; the
// drawing and measuring operations, which do not change it, may be called by several at once. Nothing throws
// but std::bad_alloc.
#pragma once

#include <ormutil/BaseString.h>
#include <ormutil/Export.h>
#include <win32.h>

#include <vector>

namespace orm {

// One copy of the text.
struct FontLayer {
  LONG x;  // pixels to the right
  LONG y;  // pixels down
  COLORREF color;
};

class ORMUTIL_API Font {
 public:
  // In the place of a colour: the descriptor's.
  static constexpr COLORREF OWN_COLOR = 0xFFFFFFFF;

  Font() = default;
  ~Font();
  Font(const Font&) = delete;
  Font& operator=(const Font&) = delete;

  // Makes the font; false when the descriptor is malformed (no face, or one that is too long), and nothing
  // has changed then. An empty descriptor makes no font: drawing does nothing, sizes are 0. Asserts when
  // there is a font already, which is replaced if execution goes on.
  bool Create(const String& rDescriptor);

  // Draws the text with its upper left corner at a point.
  void Draw(HDC context, LONG x, LONG y, const String& rText) const;
  // The same with another colour for the text itself; the other layers keep theirs.
  void Draw(HDC context, LONG x, LONG y, const String& rText, COLORREF color) const;
  // Draws formatted text into a rectangle; `format` is a combination of DT_ flags.
  void DrawFormatted(HDC context, const RECT& rTarget, const String& rText, unsigned format) const;
  void DrawFormatted(HDC context, const RECT& rTarget, const String& rText, unsigned format,
                     COLORREF color) const;

  // The size of the text on one line, with the room that the layers need.
  SIZE GetSize(HDC context, const String& rText) const;
  // The rectangle that formatted text takes when it starts at the bounds' corner, layers included.
  RECT GetSize(HDC context, const RECT& rBounds, const String& rText, unsigned format) const;

  // The font itself, null without one; it stays this object's.
  HFONT GetHandle() const { return mFont; }
  const std::vector<FontLayer>& GetLayers() const { return mLayers; }

 private:
  void DrawInternal(HDC context, const RECT& rTarget, const String& rText, unsigned format, COLORREF color,
                    bool formatted) const;
  // The smallest and largest offsets of the layers; each range includes 0.
  RECT GetLayerRange() const;

  HFONT mFont = nullptr;
  std::vector<FontLayer> mLayers;  // in drawing order; the last one is the text itself
};

}  // namespace orm
