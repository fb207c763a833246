// What libormtext.so offers to the drawing library.
#include <png.h>

#include "gdi/text/FreeTypeface.h"
#include "win32/types.h"

namespace orm::platform::gdi {
namespace {

std::vector<std::uint8_t> Compress(const std::vector<std::uint8_t>& colors, int width, int height) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(width);
  image.height = static_cast<png_uint_32>(height);
  image.format = PNG_FORMAT_RGB;
  png_alloc_size_t size = 0;
  std::vector<std::uint8_t> file;
  if (!png_image_write_get_memory_size(image, size, 0, colors.data(), 0, nullptr)) return file;
  file.resize(size);
  if (!png_image_write_to_memory(&image, file.data(), &size, 0, colors.data(), 0, nullptr)) size = 0;
  file.resize(size);
  return file;
}

}  // namespace
}  // namespace orm::platform::gdi

extern "C" {
extern ORM_PLATFORM_API const orm::platform::gdi::TextLibrary OrmTextLibrary;
const orm::platform::gdi::TextLibrary OrmTextLibrary = {
    orm::platform::gdi::FreeTypeface::Open, orm::platform::gdi::Compress,
    orm::platform::gdi::FreeTypeface::LockLibraries, orm::platform::gdi::FreeTypeface::UnlockLibraries};
}
