// A bitmap object: a surface, and whether it is a section that shares its pixels with the caller.
#pragma once

#include "gdi/Object.h"
#include "gdi/Surface.h"

namespace orm::platform::gdi {

class Bitmap final : public Object {
 public:
  static constexpr Kind objectKind = Kind::Bitmap;

  Bitmap() : Object(objectKind) {}
  std::mutex* Lock() noexcept override { return &surface.lock; }

  bool IsSection() const { return mHeader.biSize != 0; }
  void MakeSection(const BITMAPINFOHEADER& header) { mHeader = header; }

  // Of a section with this one's format.
  BITMAPINFOHEADER HeaderFor(int width, int height) const;

  BITMAP Describe();
  DIBSECTION DescribeSection();

  Surface surface;

 private:
  BITMAPINFOHEADER mHeader{};  // as the section was made from
};

// A zeroed bitmap of another one's format and colours, a section when that is one; null when the size is not
// positive or too large.
std::shared_ptr<Bitmap> MakeBitmapLike(const Bitmap& other, int width, int height);
// The same of `bits` per pixel with the standard colours; 1 bit is monochrome.
std::shared_ptr<Bitmap> MakePlainBitmap(int width, int height, int bits);

}  // namespace orm::platform::gdi
