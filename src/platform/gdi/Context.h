// A device context: a surface to draw on, where and how. The screen's and the windows' contexts draw onto the
// screen's surface, memory contexts onto the bitmap that is selected.
#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

#include "gdi/Bitmap.h"
#include "gdi/Font.h"
#include "gdi/Object.h"
#include "gdi/Palette.h"

namespace orm::platform::gdi {

// The object that a context holds for one purpose. It keeps the count of selections, so that a selected
// object cannot be deleted.
template <class T>
class Selection {
 public:
  Selection() = default;
  ~Selection() {
    if (mObject) --mObject->selections;
  }
  Selection(const Selection&) = delete;
  Selection& operator=(const Selection&) = delete;

  // Returns the handle that was selected before.
  HGDIOBJ Select(HGDIOBJ handle, std::shared_ptr<T> object) {
    if (object) ++object->selections;
    if (mObject) --mObject->selections;
    mObject = std::move(object);
    return std::exchange(mHandle, handle);
  }

  HGDIOBJ Handle() const { return mHandle; }
  T& operator*() const { return *mObject; }
  T* operator->() const { return mObject.get(); }

 private:
  HGDIOBJ mHandle = nullptr;
  std::shared_ptr<T> mObject;
};

class Context final : public Object {
 public:
  static constexpr Kind objectKind = Kind::Context;

  // How a context came to be, and so how it has to be given back.
  enum class Origin : std::uint8_t { Memory, Screen, Paint };

  explicit Context(Origin contextOrigin);

  Surface& Target() const { return bitmap->surface; }
  // The screen has 8 bits per pixel, and this context's device is the screen's.
  bool IsPaletteDevice() const;

  // The part of the surface that may be drawn on, in surface coordinates.
  RECT Clip() const;
  void Narrow(const RECT& rect);

  // The colour that a COLORREF stands for here: a palette index is looked up in the selected palette.
  Xrgb Resolve(COLORREF color) const;

  const Origin origin;
  HWND window = nullptr;
  POINT offset{0, 0};  // of the context's 0,0 on the surface
  Selection<Bitmap> bitmap;
  Selection<Font> font;
  Selection<Brush> brush;
  Selection<Palette> palette;
  bool backgroundPalette = true;
  COLORREF textColor = 0;
  COLORREF bkColor = 0xFFFFFF;
  int bkMode = OPAQUE;
  UINT textAlign = TA_LEFT | TA_TOP;
  int stretchMode = BLACKONWHITE;

 private:
  RECT mClip;
};

RECT Intersect(const RECT& a, const RECT& b);
inline bool IsEmpty(const RECT& rect) {
  return rect.left >= rect.right || rect.top >= rect.bottom;
}
// The sum, kept within what fits; rectangles come from outside.
inline LONG SaturatedAdd(std::int64_t a, std::int64_t b) {
  return static_cast<LONG>(std::clamp<std::int64_t>(a + b, INT32_MIN / 2, INT32_MAX / 2));
}

}  // namespace orm::platform::gdi
