// Registration of module entry points and the delivery of thread attach and detach.
//
// No lock is held while an entry point runs. A module is kept from going by one more reference of the loader,
// taken by path; asking for it waits for an unload that is under way, and then finds the module gone.
#include "kernel/ModuleEntries.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <list>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "kernel/Fork.h"
#include "kernel/Images.h"
#include "kernel/NoMemory.h"
#include "kernel/ThreadRecord.h"

namespace orm::platform {

namespace {

struct Entry {
  HINSTANCE module;
  std::string path;
  OrmDllMain entry;
  uint64_t serial;  // tells a module from a later one at the same address; later ones have higher ones
};
using EntryRef = std::shared_ptr<const Entry>;

struct Registry {
  std::mutex lock;
  std::list<EntryRef> entries;  // in the order of their serials
  std::set<HINSTANCE> refused;  // images that are mapped although their attach failed
  uint64_t lastSerial = 0;
};

// Lives as long as the process: threads may end after the exit actions have run.
Registry& Entries() {
  static Registry& registry = *new Registry;
  return registry;
}

constinit thread_local LoadInProgress* tlsLoad ORM_STATIC_TLS = nullptr;

bool IsRegistered(uint64_t serial) {
  Registry& registry = Entries();
  const std::lock_guard lock(registry.lock);
  return std::any_of(registry.entries.begin(), registry.entries.end(),
                     [serial](const EntryRef& entry) { return entry->serial == serial; });
}

BOOL CallEntry(const Entry& entry, DWORD reason) noexcept {
  try {
    return entry.entry(entry.module, reason, nullptr);
  } catch (...) {
    fprintf(stderr, "%s: an exception left the entry point (reason %u)\n", entry.path.c_str(), reason);
    return FALSE;
  }
}

void CallPinned(const Entry& entry, DWORD reason) {
  const LoaderHandle pin(dlopen(entry.path.c_str(), RTLD_LAZY | RTLD_NOLOAD));
  // A module inside the program itself has no path that the loader knows, and never goes.
  if (!pin && BaseOf(reinterpret_cast<const void*>(entry.entry)) != entry.module) return;
  if (IsRegistered(entry.serial)) CallEntry(entry, reason);
}

uint64_t LastSerial() {
  Registry& registry = Entries();
  const std::lock_guard lock(registry.lock);
  return registry.lastSerial;
}

// The first entry with a serial from `first` to `last`; null when there is none. A walk that asks for one
// after the other needs no memory, which a thread that ends may not get.
EntryRef FirstOf(uint64_t first, uint64_t last) {
  Registry& registry = Entries();
  const std::lock_guard lock(registry.lock);
  for (const EntryRef& entry : registry.entries) {
    if (entry->serial >= first) return entry->serial <= last ? entry : nullptr;
  }
  return nullptr;
}

// The last entry with a serial up to that one.
EntryRef LastUpTo(uint64_t last) {
  Registry& registry = Entries();
  const std::lock_guard lock(registry.lock);
  for (auto entry = registry.entries.rbegin(); entry != registry.entries.rend(); ++entry) {
    if ((*entry)->serial <= last) return *entry;
  }
  return nullptr;
}

// Runs process attach and takes a note of its outcome. What is needed for either is made first, since what an
// entry point has done cannot be taken back for want of memory.
BOOL Attach(const Dl_info& image, OrmDllMain entryPoint) {
  const auto module = static_cast<HINSTANCE>(image.dli_fbase);
  const auto made = std::make_shared<Entry>(Entry{module, image.dli_fname, entryPoint, 0});
  std::list<EntryRef> entry{made};
  std::set<HINSTANCE> refusal{module};
  Registry& registry = Entries();
  // Not registered until attach has succeeded: until then no thread concerns it.
  const bool isAttached = CallEntry(*made, DLL_PROCESS_ATTACH);
  // While the loader's lock is held, so that whoever is handed the image by the loader finds the note.
  const std::lock_guard lock(registry.lock);
  if (!isAttached) {
    registry.refused.merge(refusal);
    return FALSE;
  }
  registry.refused.erase(module);
  made->serial = ++registry.lastSerial;
  registry.entries.splice(registry.entries.end(), entry);
  return TRUE;
}

}  // namespace

std::mutex& ModuleEntriesLock() noexcept {
  return Entries().lock;
}

void NotifyThreadAttach() noexcept {
  const uint64_t last = LastSerial();
  for (EntryRef entry = FirstOf(0, last); entry; entry = FirstOf(entry->serial + 1, last)) {
    CallPinned(*entry, DLL_THREAD_ATTACH);
  }
}

void NotifyThreadDetach() noexcept {
  for (EntryRef entry = LastUpTo(LastSerial()); entry; entry = LastUpTo(entry->serial - 1)) {
    CallPinned(*entry, DLL_THREAD_DETACH);
  }
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

bool IsRefused(HMODULE module) noexcept {
  Registry& registry = Entries();
  const std::lock_guard lock(registry.lock);
  return registry.refused.contains(module);
}

}  // namespace orm::platform

using namespace orm::platform;

BOOL OrmAttachModule(const void* addressInModule, OrmDllMain entry) noexcept {
  Dl_info image;
  if (entry == nullptr || dladdr(addressInModule, &image) == 0 || image.dli_fbase == nullptr) {
    tlsLastError = ERROR_INVALID_PARAMETER;
    return FALSE;
  }
  if (OrNoMemory(FALSE, [&] { return Attach(image, entry); })) return TRUE;
  if (ReportAttachFailure()) return FALSE;
  fprintf(stderr, "%s: the module's initialisation failed; the program cannot start\n", image.dli_fname);
  _exit(1);
}

BOOL OrmDetachModule(const void* addressInModule) noexcept {
  const HINSTANCE module = BaseOf(addressInModule);
  Registry& registry = Entries();
  EntryRef found;
  {
    const std::lock_guard lock(registry.lock);
    registry.refused.erase(module);
    const auto entry = std::find_if(registry.entries.begin(), registry.entries.end(),
                                    [module](const EntryRef& one) { return one->module == module; });
    if (entry == registry.entries.end()) return FALSE;
    found = std::move(*entry);
    registry.entries.erase(entry);
  }
  CallEntry(*found, DLL_PROCESS_DETACH);
  return TRUE;
}
