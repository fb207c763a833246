// Bitmap resources of any bytes. The first byte chooses the scale and the kind of stretching; what loads is
// drawn in every way.
#include <ormutil/Bitmap.h>

#include <cstdlib>
#include <cstring>

using orm::Bitmap;
using orm::StretchInfo;

namespace {

// Run-length data announce any size with a few bytes; a large picture is only slow, one beyond all limits is
// not.
bool IsSlow(const unsigned char* data, size_t size) {
  BITMAPINFOHEADER header;
  if (size < sizeof header) return false;
  std::memcpy(&header, data, sizeof header);
  const int64_t pixels = int64_t{header.biWidth} * std::abs(int64_t{header.biHeight});
  return header.biCompression != BI_RGB && pixels > 1 << 16 && pixels <= 1 << 27;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
  if (size == 0 || IsSlow(data + 1, size - 1)) return 0;
  constexpr StretchInfo scales[] = {{1, 1, 1, 1}, {120, 96, 120, 96}, {1, 3, 2, 1}, {1, 1, 3, 2}};
  Bitmap bitmap;
  if (!bitmap.LoadData(data + 1, size - 1, scales[data[0] & 3], (data[0] & 4) != 0)) return 0;
  BITMAP description{};
  if (!bitmap.GetHandle() || GetObjectA(bitmap.GetHandle(), sizeof description, &description) == 0) return 0;
  if (description.bmWidth > 512 || description.bmHeight > 512) return 0;  // only slow
  const HDC screen = GetDC(nullptr);
  bitmap.Draw(screen, {5, 5}, {0, 0}, {0, 0});
  bitmap.DrawTransparent(screen, {5, 5}, Bitmap::TRANS_FIRSTPIXEL, 0, {0, 0}, {0, 0});
  bitmap.DrawRepeat(screen, {0, 0}, {description.bmWidth + 9, description.bmHeight + 7},
                    {1, 2, 3, 1, 2, 1, 1, 0}, true);
  ReleaseDC(nullptr, screen);
  return 0;
}
