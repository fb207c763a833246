// Looking for modules that are loaded, and what is asked of one: its exports and its path.
#include <link.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kernel/CodePage.h"
#include "kernel/Images.h"
#include "kernel/NoMemory.h"
#include "kernel/Paths.h"
#include "kernel/ThreadRecord.h"

namespace orm::platform {

namespace {

// The loader's handle of an image that is mapped, counted once more; empty when it is not.
LoaderHandle HandleOfImage(HMODULE module) {
  Dl_info info;
  if (module == nullptr || dladdr(module, &info) == 0 || info.dli_fbase != module) return nullptr;
  LoaderHandle handle(dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD));
  if (handle && BaseOfHandle(handle.get()) == module) return handle;
  handle.reset(dlopen(nullptr, RTLD_LAZY));
  return handle && BaseOfHandle(handle.get()) == module ? std::move(handle) : nullptr;
}

struct FindByName {
  std::string name;  // like the path as it is on disk, which is the other way of naming it
  std::string path;
  HMODULE found = nullptr;
};

const char* FileNameOf(const char* path) {
  const char* const slash = strrchr(path, '/');
  return slash != nullptr ? slash + 1 : path;
}

// The base address of an image in the loader's list, which is where its first segment was mapped. It is
// worked out: asking the loader from within a walk through its list would take its locks in the wrong order.
HMODULE BaseOfImage(const dl_phdr_info& info) {
  const std::uintptr_t page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  for (int i = 0; i < info.dlpi_phnum; ++i) {
    if (info.dlpi_phdr[i].p_type != PT_LOAD) continue;
    const std::uintptr_t start = info.dlpi_addr + info.dlpi_phdr[i].p_vaddr;
    return reinterpret_cast<HMODULE>(start & ~(page - 1));
  }
  return nullptr;
}

int VisitImage(dl_phdr_info* info, size_t, void* context) {
  auto& find = *static_cast<FindByName*>(context);
  const bool matches = find.path.empty() ? CompareNames(FileNameOf(info->dlpi_name), find.name) == 0
                                         : find.path == info->dlpi_name;
  if (!matches || info->dlpi_phnum == 0) return 0;
  find.found = BaseOfImage(*info);
  return 1;
}

// The main program's image has an empty name in the loader's list, and stands first.
int VisitProgram(dl_phdr_info* info, size_t, void* context) {
  *static_cast<HMODULE*>(context) = BaseOfImage(*info);
  return 1;
}

HMODULE ProgramModule() {
  HMODULE program = nullptr;
  dl_iterate_phdr(&VisitProgram, &program);
  return program;
}

std::string ProgramPath() {
  std::string path(PATH_MAX, '\0');
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
  path.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return path;
}

std::string AbsolutePath(const char* path) {
  const std::unique_ptr<char, decltype(&free)> real(realpath(path, nullptr), &free);
  return real ? real.get() : path;
}

std::string ImagePath(HMODULE module) {
  if (module == nullptr || module == ProgramModule()) return ProgramPath();
  Dl_info info;
  if (dladdr(module, &info) == 0 || info.dli_fbase != module) return {};
  return info.dli_fname[0] == '/' ? info.dli_fname : AbsolutePath(info.dli_fname);
}

}  // namespace

}  // namespace orm::platform

using namespace orm::platform;

FARPROC GetProcAddress(HMODULE module, const char* name) noexcept {
  return OrNoMemory<FARPROC>(nullptr, [&]() -> FARPROC {
    const LoaderHandle handle = HandleOfImage(module == nullptr ? ProgramModule() : module);
    if (!handle) {
      tlsLastError = ERROR_MOD_NOT_FOUND;
      return nullptr;
    }
    // The loader also looks in the libraries that the module uses; those exports are not the module's.
    void* const address = name != nullptr ? dlsym(handle.get(), name) : nullptr;
    if (address == nullptr || BaseOf(address) != BaseOfHandle(handle.get())) {
      tlsLastError = ERROR_PROC_NOT_FOUND;
      return nullptr;
    }
    return reinterpret_cast<FARPROC>(address);
  });
}

HMODULE GetModuleHandleA(const char* name) noexcept {
  return OrNoMemory<HMODULE>(nullptr, [&]() -> HMODULE {
    if (name == nullptr) return ProgramModule();
    HMODULE module = PlatformModule(name);
    if (module == nullptr) {
      FindByName find{Utf8FromAnsi(name), {}};
      if (HasFolder(name)) find.path = UnixPath(name);
      dl_iterate_phdr(&VisitImage, &find);
      module = find.found;
      if (module == nullptr && CompareNames(FileNameOf(ProgramPath().c_str()), find.name) == 0)
        module = ProgramModule();
    }
    if (module == nullptr) tlsLastError = ERROR_MOD_NOT_FOUND;
    return module;
  });
}

BOOL GetModuleHandleExA(DWORD flags, const char* address, HMODULE* module) noexcept {
  constexpr DWORD supported =
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  if (module == nullptr || flags != supported) {
    tlsLastError = ERROR_INVALID_PARAMETER;
    return FALSE;
  }
  *module = BaseOf(address);
  if (*module != nullptr) return TRUE;
  tlsLastError = ERROR_MOD_NOT_FOUND;
  return FALSE;
}

DWORD GetModuleFileNameA(HMODULE module, char* buffer, DWORD size) noexcept {
  try {
    const std::string path = ImagePath(module);
    if (path.empty()) {
      tlsLastError = ERROR_MOD_NOT_FOUND;
      return 0;
    }
    const std::string text = AnsiPath(path);
    if (size == 0) {
      tlsLastError = ERROR_INSUFFICIENT_BUFFER;
      return 0;
    }
    if (text.size() < size) {
      memcpy(buffer, text.c_str(), text.size() + 1);
      return static_cast<DWORD>(text.size());
    }
    memcpy(buffer, text.data(), size - 1);
    buffer[size - 1] = '\0';
    tlsLastError = ERROR_INSUFFICIENT_BUFFER;
    return size;
  } catch (const std::bad_alloc&) {
    tlsLastError = ERROR_NOT_ENOUGH_MEMORY;
    return 0;
  }
}
