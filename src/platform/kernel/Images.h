// What the system's loader knows of the images that are mapped. A module handle is the base address of an
// image, which the loader counts under a handle of its own.
#pragma once

#include <dlfcn.h>

#include <memory>

#include "win32/modules.h"

namespace orm::platform {

struct CloseLoaderHandle {
  void operator()(void* handle) const { dlclose(handle); }
};
// One count of the loader's.
using LoaderHandle = std::unique_ptr<void, CloseLoaderHandle>;

// The image that an address lies in; null when there is none.
HMODULE BaseOf(const void* address) noexcept;
// The image behind a handle of the loader.
HMODULE BaseOfHandle(void* loaderHandle) noexcept;

// Which library of the platform a plain name stands for; null for other names, and for the drawing half when
// it cannot be had. They never go.
HMODULE PlatformModule(const char* name);
bool IsPlatformModule(HMODULE module);

// Whether a name says in which folder the library is; others are looked for.
bool HasFolder(const char* name);

}  // namespace orm::platform
