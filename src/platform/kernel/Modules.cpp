// Loading and freeing libraries. A module handle is the image's base address; the loader's own handle for it
// is kept while LoadLibrary counts are open, and asked for by path otherwise.
#include "win32/modules.h"

#include <dlfcn.h>
#include <link.h>
#include <locale.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>

#include "kernel/CodePage.h"
#include "kernel/Fork.h"
#include "kernel/ImageCheck.h"
#include "kernel/ModuleEntries.h"
#include "kernel/NoMemory.h"
#include "kernel/Paths.h"
#include "kernel/ThreadRecord.h"
#include "win32/nls.h"

namespace orm::platform {

namespace {

constexpr const char* kDrawingLibrary = "libormgdi.so.4";

// LoadLibrary counts of one image.
struct Loaded {
  void* loaderHandle;
  unsigned count;
};

struct LoadedTable {
  std::mutex lock;
  std::map<HMODULE, Loaded> modules;
};

LoadedTable& Table() {
  static LoadedTable& table = *new LoadedTable;
  return table;
}

HMODULE BaseOf(const void* address) {
  Dl_info info;
  return dladdr(address, &info) != 0 ? static_cast<HMODULE>(info.dli_fbase) : nullptr;
}

HMODULE ThisLibrary() {
  static const char anchor = 0;
  return BaseOf(&anchor);
}

// The base address behind a handle of the loader.
HMODULE BaseOfHandle(void* loaderHandle) {
  link_map* map = nullptr;
  if (dlinfo(loaderHandle, RTLD_DI_LINKMAP, &map) != 0 || map->l_ld == nullptr) return nullptr;
  return BaseOf(map->l_ld);
}

struct CloseLoaderHandle {
  void operator()(void* handle) const { dlclose(handle); }
};
using LoaderHandle = std::unique_ptr<void, CloseLoaderHandle>;

// The loader's handle of an image that is mapped, counted once more; empty when it is not.
LoaderHandle HandleOfImage(HMODULE module) {
  Dl_info info;
  if (module == nullptr || dladdr(module, &info) == 0 || info.dli_fbase != module) return nullptr;
  LoaderHandle handle(dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD));
  if (handle && BaseOfHandle(handle.get()) == module) return handle;
  handle.reset(dlopen(nullptr, RTLD_LAZY));
  return handle && BaseOfHandle(handle.get()) == module ? std::move(handle) : nullptr;
}

// Which library of the platform a plain name stands for; null for other names.
HMODULE PlatformModule(const char* name) {
  for (const char* own : {"USER32", "KERNEL32", "USER32.DLL", "KERNEL32.DLL"}) {
    if (strcasecmp(name, own) == 0) return ThisLibrary();
  }
  for (const char* own : {"GDI32", "GDI32.DLL"}) {
    if (strcasecmp(name, own) != 0) continue;
    const LoaderHandle drawing(dlopen(kDrawingLibrary, RTLD_LAZY));
    return drawing ? BaseOfHandle(drawing.get()) : nullptr;
  }
  return nullptr;
}

// The loader's text about what failed last. Handing it out, the loader translates it into the language of the
// program's locale, and nothing could be found in it then.
std::string LoaderText() {
  const locale_t former = uselocale(newlocale(LC_ALL_MASK, "C", nullptr));  // one for all, never freed
  const char* const text = dlerror();
  std::string result = text != nullptr ? text : "";
  uselocale(former);
  return result;
}

// What the loader's text says went wrong. It gives no number.
DWORD ErrorFromLoaderText(const char* text) {
  if (strstr(text, "undefined symbol") != nullptr || strstr(text, "symbol lookup error") != nullptr) {
    return ERROR_PROC_NOT_FOUND;
  }
  // Mapping gives no reason, but a file that has passed the check of its headers fails for want of room only.
  for (const char* room :
       {"cannot allocate", "out of memory", "failed to map segment", "cannot map zero-fill"}) {
    if (strcasestr(text, room) != nullptr) return ERROR_NOT_ENOUGH_MEMORY;
  }
  if (strstr(text, "No such file or directory") != nullptr) return ERROR_MOD_NOT_FOUND;
  return ERROR_BAD_EXE_FORMAT;
}

// An exception that passes through the loader leaves its lock held for ever, so there is no going on.
[[noreturn]] void DieOfInitialiser(const std::string& path) {
  const char* reason = "an exception";
  try {
    throw;
  } catch (const std::exception& error) {
    reason = error.what();
    fprintf(stderr, "%s: a static initialiser threw: %s\n", path.c_str(), reason);
  } catch (...) {
    fprintf(stderr, "%s: a static initialiser threw %s\n", path.c_str(), reason);
  }
  abort();
}

// dlopen as a function that may throw. It is declared as one that does not, and the compiler then drops what
// catches the exceptions of static initialisers, unless it cannot know which function is called.
void* OpenLibrary(const char* path, int mode) {
  using Open = void* (*)(const char*, int);
  const volatile Open open = dlopen;
  return open(path, mode);
}

HMODULE Count(LoaderHandle handle) {
  const HMODULE module = BaseOfHandle(handle.get());
  LoadedTable& table = Table();
  const std::lock_guard lock(table.lock);
  Loaded& loaded = table.modules.try_emplace(module, Loaded{handle.get(), 0}).first->second;
  ++loaded.count;
  static_cast<void>(handle.release());  // each count holds one reference of the loader
  return module;
}

// The image that the loader has handed out, counted, unless its attach failed: on this thread, or on another
// one that has not closed it yet.
HMODULE Accept(LoaderHandle handle, bool attachFailed) {
  if (!attachFailed && !IsRefused(BaseOfHandle(handle.get()))) return Count(std::move(handle));
  handle.reset();
  tlsLastError = ERROR_DLL_INIT_FAILED;
  return nullptr;
}

// Whether something else than a file stands there. The loader opens whatever it is told, and opening a pipe
// waits for a writer, with the locks of all callers held.
bool IsSpecial(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

HMODULE Load(const std::string& path) {
  if (IsSpecial(path)) {
    tlsLastError = ERROR_ACCESS_DENIED;
    return nullptr;
  }
  // A library that is loaded keeps its path, whatever stands there now.
  if (LoaderHandle loaded{dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD)})
    return Accept(std::move(loaded), false);
  if (const DWORD error = CheckImage(path); error != ERROR_SUCCESS) {
    tlsLastError = error;
    return nullptr;
  }
  LoaderHandle handle;
  bool attachFailed;
  try {
    const LoadInProgress load;
    handle.reset(OpenLibrary(path.c_str(), RTLD_NOW | RTLD_LOCAL));
    attachFailed = load.AttachFailed();
  } catch (...) {
    DieOfInitialiser(path);
  }
  if (!handle) {
    tlsLastError = ErrorFromLoaderText(LoaderText().c_str());
    return nullptr;
  }
  return Accept(std::move(handle), attachFailed);
}

bool HasFolder(const char* name) {
  const auto bytes = [](const char* text) { return reinterpret_cast<const unsigned char*>(text); };
  return _mbspbrk(bytes(name), bytes("/\\:")) != nullptr;
}

// A name without a folder is looked for beside the program, then where the loader looks. Empty, with the
// reason in *error, when it names nothing.
std::string LibraryPath(const char* name, DWORD* error) {
  if (HasFolder(name)) return UnixPath(name, error);
  *error = ERROR_INVALID_NAME;
  std::string plain;
  if (!Utf8FromName(name, false, &plain)) return {};
  char program[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", program, sizeof(program));
  if (length > 0) {
    std::string beside(program, static_cast<size_t>(length));
    beside.resize(beside.rfind('/') + 1);
    beside = ResolveCase(beside + plain);
    if (access(beside.c_str(), F_OK) == 0) return beside;
  }
  return UnixPath(name, error);
}

// What a failed look for a library says to the caller.
DWORD ErrorOfNoLibrary(DWORD error) {
  const bool namesNothing =
      error == ERROR_PATH_NOT_FOUND || error == ERROR_BAD_NETPATH || error == ERROR_INVALID_NAME;
  return namesNothing ? ERROR_MOD_NOT_FOUND : error;
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

std::mutex& LoadedModulesLock() noexcept {
  return Table().lock;
}

}  // namespace orm::platform

using namespace orm::platform;

HMODULE LoadLibraryExA(const char* name, HANDLE file, DWORD flags) noexcept {
  return OrNoMemory<HMODULE>(nullptr, [&]() -> HMODULE {
    if (name == nullptr || *name == '\0' || file != nullptr ||
        (flags & ~LOAD_WITH_ALTERED_SEARCH_PATH) != 0) {
      tlsLastError = ERROR_INVALID_PARAMETER;
      return nullptr;
    }
    if (const HMODULE own = PlatformModule(name)) return own;
    DWORD error = ERROR_SUCCESS;
    const std::string path = LibraryPath(name, &error);
    if (path.empty()) {
      tlsLastError = ErrorOfNoLibrary(error);
      return nullptr;
    }
    return Load(path);
  });
}

HMODULE LoadLibraryA(const char* name) noexcept {
  return LoadLibraryExA(name, nullptr, 0);
}

BOOL FreeLibrary(HMODULE module) noexcept {
  void* loaderHandle = nullptr;
  {
    LoadedTable& table = Table();
    const std::lock_guard lock(table.lock);
    if (const auto found = table.modules.find(module); found != table.modules.end()) {
      loaderHandle = found->second.loaderHandle;
      if (--found->second.count == 0) table.modules.erase(found);
    }
  }
  if (loaderHandle != nullptr) {
    dlclose(loaderHandle);
    return TRUE;
  }
  // The platform's own names are not counted, since the platform never goes.
  if (module != nullptr && (module == ThisLibrary() || module == PlatformModule("GDI32"))) return TRUE;
  tlsLastError = ERROR_MOD_NOT_FOUND;
  return FALSE;
}

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

UINT SetErrorMode(UINT mode) noexcept {
  static constinit std::atomic<UINT> current{0};
  return current.exchange(mode);
}
