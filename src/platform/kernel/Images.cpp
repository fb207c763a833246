// Images and the platform's own among them.
#include "kernel/Images.h"

#include <link.h>
#include <strings.h>

#include <string>
#include <string_view>

#include "kernel/CodePage.h"
#include "win32/nls.h"

namespace orm::platform {

namespace {

constexpr const char* kDrawingLibrary = "libormgdi.so.4";

const char gsAnchor = 0;

HMODULE ThisLibrary() {
  return BaseOf(&gsAnchor);
}

LoaderHandle LoadedDrawingLibrary() {
  return LoaderHandle(dlopen(kDrawingLibrary, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE));
}

// It lies beside this library, which is not where the loader would look on behalf of every program.
LoaderHandle DrawingLibrary() {
  if (LoaderHandle loaded = LoadedDrawingLibrary()) return loaded;
  Dl_info self;
  if (dladdr(&gsAnchor, &self) == 0) return nullptr;
  const std::string_view file = self.dli_fname;
  const std::string path = std::string(file.substr(0, file.rfind('/') + 1)) + kDrawingLibrary;
  return LoaderHandle(dlopen(path.c_str(), RTLD_LAZY | RTLD_NODELETE));
}

}  // namespace

HMODULE BaseOf(const void* address) noexcept {
  Dl_info info;
  return dladdr(address, &info) != 0 ? static_cast<HMODULE>(info.dli_fbase) : nullptr;
}

HMODULE BaseOfHandle(void* loaderHandle) noexcept {
  link_map* map = nullptr;
  if (dlinfo(loaderHandle, RTLD_DI_LINKMAP, &map) != 0 || map->l_ld == nullptr) return nullptr;
  return BaseOf(map->l_ld);
}

HMODULE PlatformModule(const char* name) {
  for (const char* own : {"USER32", "KERNEL32", "USER32.DLL", "KERNEL32.DLL"}) {
    if (strcasecmp(name, own) == 0) return ThisLibrary();
  }
  for (const char* own : {"GDI32", "GDI32.DLL"}) {
    if (strcasecmp(name, own) != 0) continue;
    const LoaderHandle drawing = DrawingLibrary();
    return drawing ? BaseOfHandle(drawing.get()) : nullptr;
  }
  return nullptr;
}

bool IsPlatformModule(HMODULE module) {
  if (module == nullptr) return false;
  const LoaderHandle drawing = LoadedDrawingLibrary();
  return module == ThisLibrary() || (drawing && module == BaseOfHandle(drawing.get()));
}

bool HasFolder(const char* name) {
  AnsiCodePage();  // what follows cannot tell that there is no memory for its first use
  const auto bytes = [](const char* text) { return reinterpret_cast<const unsigned char*>(text); };
  return _mbspbrk(bytes(name), bytes("/\\:")) != nullptr;
}

}  // namespace orm::platform
