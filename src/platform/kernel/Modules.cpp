// Loading and freeing libraries. The loader's own handle of an image is kept while LoadLibrary counts are
// open.
#include <locale.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <map>
#include <mutex>
#include <string>

#include "kernel/Fork.h"
#include "kernel/ImageCheck.h"
#include "kernel/Images.h"
#include "kernel/ModuleEntries.h"
#include "kernel/NoMemory.h"
#include "kernel/Paths.h"
#include "kernel/ThreadRecord.h"
#include "win32/nls.h"

namespace orm::platform {

namespace {

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

// The loader's text about what failed last. Handing it out, the loader translates it into the language of the
// program's locale, and nothing could be found in it then.
const char* LoaderText() {
  const locale_t former = uselocale(newlocale(LC_ALL_MASK, "C", nullptr));  // one for all, never freed
  const char* const text = dlerror();
  uselocale(former);
  return text != nullptr ? text : "";
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
    tlsLastError = ErrorFromLoaderText(LoaderText());
    return nullptr;
  }
  return Accept(std::move(handle), attachFailed);
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
  if (IsPlatformModule(module)) return TRUE;
  tlsLastError = ERROR_MOD_NOT_FOUND;
  return FALSE;
}

UINT SetErrorMode(UINT mode) noexcept {
  static constinit std::atomic<UINT> current{0};
  return current.exchange(mode);
}
