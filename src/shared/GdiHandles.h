// Owners of drawing handles: each gives back in its destructor what it took.
#pragma once

#include <win32.h>

#include <utility>

namespace orm {

// The device context of the whole screen.
class ScreenContext {
 public:
  ScreenContext() : mContext(GetDC(nullptr)) {}
  ~ScreenContext() {
    if (mContext) ReleaseDC(nullptr, mContext);
  }
  ScreenContext(const ScreenContext&) = delete;
  ScreenContext& operator=(const ScreenContext&) = delete;

  HDC Get() const { return mContext; }
  int GetCaps(int index) const { return GetDeviceCaps(mContext, index); }

 private:
  HDC mContext;
};

// A memory context; null when it could not be made.
class MemoryContext {
 public:
  explicit MemoryContext(HDC like) : mContext(CreateCompatibleDC(like)) {}
  ~MemoryContext() {
    if (mContext) DeleteDC(mContext);
  }
  MemoryContext(const MemoryContext&) = delete;
  MemoryContext& operator=(const MemoryContext&) = delete;

  HDC Get() const { return mContext; }

 private:
  HDC mContext;
};

// An object that is selected for a while.
class SelectedObject {
 public:
  SelectedObject(HDC context, HGDIOBJ object) : mContext(context), mPrevious(SelectObject(context, object)) {}
  ~SelectedObject() {
    if (mPrevious) SelectObject(mContext, mPrevious);
  }
  SelectedObject(const SelectedObject&) = delete;
  SelectedObject& operator=(const SelectedObject&) = delete;

 private:
  HDC mContext;
  HGDIOBJ mPrevious;
};

// A palette that is selected in the foreground for a while; the previous one comes back in the background.
class SelectedPalette {
 public:
  SelectedPalette() = default;
  ~SelectedPalette() {
    if (mPrevious) SelectPalette(mContext, mPrevious, TRUE);
  }
  SelectedPalette(const SelectedPalette&) = delete;
  SelectedPalette& operator=(const SelectedPalette&) = delete;

  // Selects and realises; false when the realisation failed.
  bool Realize(HDC context, HPALETTE palette) {
    mContext = context;
    mPrevious = SelectPalette(context, palette, FALSE);
    return RealizePalette(context) != GDI_ERROR;
  }

 private:
  HDC mContext = nullptr;
  HPALETTE mPrevious = nullptr;
};

// A picture off the screen: a memory context with a bitmap of its own.
class OffScreen {
 public:
  enum Colors { LIKE_DEVICE, MONOCHROME };

  OffScreen(HDC like, LONG width, LONG height, Colors colors = LIKE_DEVICE)
      : mContext(like),
        mBitmap(colors == MONOCHROME ? CreateBitmap(width, height, 1, 1, nullptr)
                                     : CreateCompatibleBitmap(like, width, height)),
        mPrevious(SelectObject(mContext.Get(), mBitmap)) {}
  ~OffScreen() {
    if (mPrevious) SelectObject(mContext.Get(), mPrevious);
    if (mBitmap) DeleteObject(mBitmap);
  }
  OffScreen(const OffScreen&) = delete;
  OffScreen& operator=(const OffScreen&) = delete;

  HDC GetContext() const { return mContext.Get(); }
  // False when it could not be made.
  bool HasBitmap() const { return mBitmap != nullptr; }

 private:
  const MemoryContext mContext;
  const HBITMAP mBitmap;
  const HGDIOBJ mPrevious;
};

}  // namespace orm
