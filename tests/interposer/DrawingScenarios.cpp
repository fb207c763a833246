#include <ormutil/Bitmap.h>
#include <ormutil/Font.h>

#include <algorithm>
#include <memory>
#include <type_traits>

#include "Scenarios.h"
#include "gdi/Canvas.h"
#include "picture.h"

namespace {

// A black surface to draw on.
class Paper {
 public:
  Paper() : mContext(CreateCompatibleDC(nullptr), &DeleteDC) {
    test::DibInfo info(SIDE, SIDE, 24);
    if (mContext) {
      mBitmap.reset(CreateDIBSection(mContext.get(), info.Get(), DIB_RGB_COLORS, &mpBits, nullptr, 0));
    }
    mPrevious = mBitmap ? SelectObject(mContext.get(), mBitmap.get()) : nullptr;
    if (!mPrevious) throw Undone{"the paper"};
  }
  ~Paper() { SelectObject(mContext.get(), mPrevious); }
  Paper(const Paper&) = delete;
  Paper& operator=(const Paper&) = delete;

  HDC GetContext() const { return mContext.get(); }
  bool IsDrawnOn() const {
    const BYTE* const bytes = static_cast<const BYTE*>(mpBits);
    return std::any_of(bytes, bytes + SIDE * SIDE * 3, [](BYTE value) { return value != 0; });
  }

 private:
  static constexpr int SIDE = 64;  // rows without padding
  template <class Handle, class Delete>
  using Owned = std::unique_ptr<std::remove_pointer_t<Handle>, Delete>;

  Owned<HBITMAP, decltype(&DeleteObject)> mBitmap{nullptr, &DeleteObject};
  Owned<HDC, decltype(&DeleteDC)> mContext;
  HGDIOBJ mPrevious = nullptr;
  void* mpBits = nullptr;
};

void CheckDone(bool isDone, const char* what) {
  if (!isDone) throw Undone{what};
}

}  // namespace

void UseFont() {
  orm::Font font;
  CheckDone(font.Create("Tahoma;10;ffffff;700;0;1:1,1,8080ff"), "the descriptor");
  {
    const Paper paper;
    font.Draw(paper.GetContext(), 2, 2, "Ready");
    CheckDone(paper.IsDrawnOn(), "the line");
  }
  const Paper paper;
  font.DrawFormatted(paper.GetContext(), {0, 0, 60, 60}, "Several words on lines", DT_WORDBREAK | DT_CENTER);
  CheckDone(paper.IsDrawnOn(), "the lines");
  const SIZE size = font.GetSize(paper.GetContext(), "Ready");
  CheckDone(size.cx > 20 && size.cy > 8, "the size");
}

void UseBitmap() {
  const HINSTANCE program = GetModuleHandleA(nullptr);
  for (const bool bySystem : {false, true}) {
    orm::Bitmap bitmap;
    CheckDone(bitmap.Load(IDB_PICTURE, program, {3, 2, 2, 3}, bySystem), "the picture");
    CheckDone(bitmap.GetHandle() != nullptr, "the scaled picture");
    const POINT origin{0, 0};
    const SIZE whole{0, 0}, size{50, 50};
    {
      const Paper paper;
      bitmap.Draw(paper.GetContext(), origin, whole, origin);
      CheckDone(paper.IsDrawnOn(), "the copy");
    }
    {
      const Paper paper;
      bitmap.DrawTransparent(paper.GetContext(), origin, orm::Bitmap::TRANS_COLOR, 0x123456, whole, origin);
      CheckDone(paper.IsDrawnOn(), "the transparent copy");
    }
    const Paper paper;
    orm::Bitmap::RepeatInfo bands;
    bands.mStartX = bands.mStartY = 4;
    bands.mLengthX = bands.mLengthY = 4;
    bitmap.DrawRepeat(paper.GetContext(), origin, size, bands, true);
    CheckDone(paper.IsDrawnOn(), "the repeated bands");
  }
}
