// The way to the library of faces and pictures, and what there is without it.
#include "gdi/Typeface.h"

#include <dlfcn.h>

#include <atomic>
#include <memory>
#include <shared_mutex>
#include <string>
#include <string_view>

#include "gdi/Fork.h"

namespace orm::platform::gdi {
namespace {

// Beside this library. The loader would look there for a plain name as well, unless a tool that stands
// between (a sanitizer, a preloaded library) makes the call in our place.
std::string PathOfTextLibrary() {
  std::string name = "libormtext.so.4";
  Dl_info self;
  if (dladdr(reinterpret_cast<void*>(&PathOfTextLibrary), &self) == 0 || self.dli_fname == nullptr)
    return name;
  const std::string_view file = self.dli_fname;
  const std::size_t slash = file.rfind('/');
  return slash == std::string_view::npos ? name : std::string(file.substr(0, slash + 1)) + name;
}

constinit std::shared_mutex gsLoading;  // shared by those who load it; a fork waits for them
constinit std::atomic<void*> gsImage{nullptr};
constinit std::atomic<const TextLibrary*> gsLibrary{nullptr};

// Loaded once and kept: fonts may be used until the very end of the process. Null when it cannot be had,
// which the next font may find different. Two threads that load it get the same one, and neither keeps the
// other from it: one of them may be loading a module, whose start draws.
const TextLibrary* TheTextLibrary() {
  if (const TextLibrary* const library = gsLibrary.load(std::memory_order_acquire)) return library;
  const std::shared_lock lock(gsLoading);
  void* const image = dlopen(PathOfTextLibrary().c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!image) return nullptr;
  const auto* const library = static_cast<const TextLibrary*>(dlsym(image, "OrmTextLibrary"));
  gsImage = image;
  gsLibrary = library;
  return library;
}

}  // namespace

void LoadTextLibrary() {
  static_cast<void>(TheTextLibrary());
}

void LockTextLibrary() {
  gsLoading.lock();
  if (const TextLibrary* const library = gsLibrary) library->lock();
}
void UnlockTextLibrary(bool isChild) {
  if (const TextLibrary* const library = gsLibrary) library->unlock();
  if (isChild)
    std::construct_at(&gsLoading);  // as the lock of the table of objects
  else
    gsLoading.unlock();
}

std::unique_ptr<Typeface> Typeface::Open(const LOGFONTA& description) {
  const TextLibrary* library = TheTextLibrary();
  return library ? library->openTypeface(description) : std::unique_ptr<Typeface>(new Typeface);
}

std::vector<std::uint8_t> CompressPng(const std::vector<std::uint8_t>& colors, int width, int height) {
  const TextLibrary* library = TheTextLibrary();
  return library ? library->compressPng(colors, width, height) : std::vector<std::uint8_t>();
}

}  // namespace orm::platform::gdi
