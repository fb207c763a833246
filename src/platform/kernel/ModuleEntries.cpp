// Registration of module entry points and the delivery of thread attach and detach.
//
// No lock is held while an entry point runs. A module is kept from going by one more reference of the loader,
// taken by path; asking for it waits for an unload that is under way, and then finds the module gone.
#include "kernel/ModuleEntries.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "kernel/ThreadRecord.h"

#include "kernel/Fork.h"
namespace orm::platform {

namespace {

struct Entry {
  HINSTANCE module;
  std::string path;
  OrmDllMain entry;
  uint64_t serial;  // tells a module from a later one at the same address
};

struct Registry {
  std::mutex lock;
  std::vector<Entry> entries;
  std::set<HINSTANCE> refused;  // images that are mapped although their attach failed
  uint64_t lastSerial = 0;
};

// Lives as long as the process: threads may end after the exit actions have run.
Registry& Entries() {
  static Registry& registry = *new Registry;
  return registry;
}

constinit thread_local LoadInProgress* tlsLoad ORM_STATIC_TLS = nullptr;

HINSTANCE BaseOf(const void* address, std::string* path = nullptr) {
  Dl_info info;
  if (dladdr(address, &info) == 0 || info.dli_fbase == nullptr) return nullptr;
  if (path != nullptr) *path = info.dli_fname;
  return static_cast<HINSTANCE>(info.dli_fbase);
}

bool IsRegistered(uint64_t serial) {
  Registry& registry = Entries();
  const std::lock_guard lock(registry.lock);
  for (const Entry& entry : registry.entries) {
    if (entry.serial == serial) return true;
  }
  return false;
}

BOOL CallEntry(const Entry& entry, DWORD reason) noexcept {
  try {
    return entry.entry(entry.module, reason, nullptr);
  } catch (...) {
    fprintf(stderr, "%s: an exception left the entry point (reason %u)\n", entry.path.c_str(), reason);
    return FALSE;
  }
}

// Keeps an image mapped while its entry point runs; empty when it is gone already.
class ImagePin {
 public:
  explicit ImagePin(const std::string& path) : mHandle(dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD)) {}
  ~ImagePin() {
    if (mHandle != nullptr) dlclose(mHandle);
  }
  ImagePin(const ImagePin&) = delete;
  ImagePin& operator=(const ImagePin&) = delete;
  explicit operator bool() const { return mHandle != nullptr; }

 private:
  void* const mHandle;
};

void CallPinned(const Entry& entry, DWORD reason) {
  const ImagePin pin(entry.path);
  // A module inside the program itself has no path that the loader knows, and never goes.
  if (!pin && BaseOf(reinterpret_cast<const void*>(entry.entry)) != entry.module) return;
  if (IsRegistered(entry.serial)) CallEntry(entry, reason);
}

std::vector<Entry> Snapshot() {
  Registry& registry = Entries();
  const std::lock_guard lock(registry.lock);
  return registry.entries;
}

void NoteRefused(HINSTANCE module, bool isRefused) {
  Registry& registry = Entries();
  const std::lock_guard lock(registry.lock);
  if (isRefused) {
    registry.refused.insert(module);
  } else {
    registry.refused.erase(module);
  }
}

}  // namespace

void NotifyThreadAttach() noexcept {
  for (const Entry& entry : Snapshot()) CallPinned(entry, DLL_THREAD_ATTACH);
}

void NotifyThreadDetach() noexcept {
  const std::vector<Entry> entries = Snapshot();
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) CallPinned(*entry, DLL_THREAD_DETACH);
}

LoadInProgress::LoadInProgress() noexcept : mOuter(tlsLoad) {
  tlsLoad = this;
}

LoadInProgress::~LoadInProgress() {
  tlsLoad = mOuter;
}

bool ReportAttachFailure() noexcept {
  if (tlsLoad == nullptr) return false;
  tlsLoad->mFailed = true;
  return true;
}
std::mutex& ModuleEntriesLock() noexcept {
  return Entries().lock;
}


bool IsRefused(HMODULE module) noexcept {
  Registry& registry = Entries();
  const std::lock_guard lock(registry.lock);
  return registry.refused.contains(module);
}

}  // namespace orm::platform

using namespace orm::platform;

BOOL OrmAttachModule(const void* addressInModule, OrmDllMain entry) noexcept {
  Entry made{nullptr, {}, entry, 0};
  made.module = BaseOf(addressInModule, &made.path);
  if (made.module == nullptr || entry == nullptr) {
    SetLastErrorCode(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  // Not registered until attach has succeeded: until then no thread concerns it.
  const bool isAttached = CallEntry(made, DLL_PROCESS_ATTACH);
  // While the loader's lock is held, so that whoever is handed the image by the loader finds the note.
  NoteRefused(made.module, !isAttached);
  if (!isAttached) {
    if (ReportAttachFailure()) return FALSE;
    fprintf(stderr, "%s: the module's initialisation failed; the program cannot start\n", made.path.c_str());
    _exit(1);
  }
  Registry& registry = Entries();
  const std::lock_guard lock(registry.lock);
  made.serial = ++registry.lastSerial;
  registry.entries.push_back(std::move(made));
  return TRUE;
}

BOOL OrmDetachModule(const void* addressInModule) noexcept {
  const HINSTANCE module = BaseOf(addressInModule);
  NoteRefused(module, false);
  Registry& registry = Entries();
  Entry found{};
  {
    const std::lock_guard lock(registry.lock);
    for (auto entry = registry.entries.begin(); entry != registry.entries.end(); ++entry) {
      if (entry->module != module) continue;
      found = std::move(*entry);
      registry.entries.erase(entry);
      break;
    }
  }
  if (found.entry == nullptr) return FALSE;
  CallEntry(found, DLL_PROCESS_DETACH);
  return TRUE;
}
