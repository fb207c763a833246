// A picture in memory that is drawn on and then written as a PNG file.
#pragma once

#include <ormutil/BaseString.h>
#include <win32.h>

#include <cstdint>
#include <string>

namespace orm::draw {

// A picture's size; throws std::invalid_argument for sides that are not 1 to 16384 pixels long.
SIZE CheckSize(std::int64_t width, std::int64_t height);

// UTF-8, as the command line has it, in the ANSI code page; throws std::invalid_argument for characters that
// it lacks.
String FromUtf8(const std::string& text);

class Picture {
 public:
  // Throws std::runtime_error when the size is not possible.
  Picture(int width, int height, int bitsPerPixel = 32);
  ~Picture();
  Picture(const Picture&) = delete;
  Picture& operator=(const Picture&) = delete;

  HDC GetContext() const { return mContext; }
  int GetWidth() const { return mWidth; }
  int GetHeight() const { return mHeight; }

  void Fill(const RECT& rect, COLORREF color) const;
  void FillAll(COLORREF color) const { Fill({0, 0, mWidth, mHeight}, color); }
  // Squares of two grays, to show what is transparent.
  void FillCheckered(const RECT& rect) const;

  // Writes the file; throws std::runtime_error with the system's reason.
  void Save(const std::string& path) const;

 private:
  int mWidth;
  int mHeight;
  HDC mContext;
  HBITMAP mBitmap = nullptr;
  HGDIOBJ mPrevious = nullptr;
};

}  // namespace orm::draw
