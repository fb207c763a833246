// The way to the library of faces and pictures, and what there is without it.
#include "gdi/Typeface.h"

#include <dlfcn.h>

namespace orm::platform::gdi {
namespace {

// Loaded once and kept: fonts may be used until the very end of the process. Null when it is missing.
const TextLibrary* LoadTextLibrary() {
  void* const library = dlopen("libormtext.so.4", RTLD_NOW | RTLD_LOCAL);
  return library ? static_cast<const TextLibrary*>(dlsym(library, "OrmTextLibrary")) : nullptr;
}

const TextLibrary* TheTextLibrary() {
  static const TextLibrary* const library = LoadTextLibrary();
  return library;
}

}  // namespace

std::unique_ptr<Typeface> Typeface::Open(const LOGFONTA& description) {
  const TextLibrary* library = TheTextLibrary();
  return library ? library->openTypeface(description) : std::unique_ptr<Typeface>(new Typeface);
}

std::vector<std::uint8_t> CompressPng(const std::vector<std::uint8_t>& colors, int width, int height) {
  const TextLibrary* library = TheTextLibrary();
  return library ? library->compressPng(colors, width, height) : std::vector<std::uint8_t>();
}

}  // namespace orm::platform::gdi
