// A bitmap object: a surface, and whether it is a section that shares its pixels with the caller.
#pragma once

#include "gdi/Object.h"
#include "gdi/Surface.h"

namespace orm::platform::gdi {

class Bitmap final : public Object {
 public:
  static constexpr Kind objectKind = Kind::Bitmap;

  Bitmap() : Object(objectKind) {}

  bool IsSection() const { return mHeader.biSize != 0; }
  void MakeSection(const BITMAPINFOHEADER& header) { mHeader = header; }

  BITMAP Describe() const;
  DIBSECTION DescribeSection() const;

  Surface surface;

 private:
  BITMAPINFOHEADER mHeader{};  // as the section was made from
};

// A zeroed bitmap of the screen's format, or null when the size is not positive or too large.
std::shared_ptr<Bitmap> MakeDeviceBitmap(int width, int height);
// A zeroed bitmap of `bits` per pixel with the standard colours; 1 bit is monochrome.
std::shared_ptr<Bitmap> MakePlainBitmap(int width, int height, int bits);

}  // namespace orm::platform::gdi
