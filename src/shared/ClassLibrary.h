// One component library file: its classes are known while it is not loaded; it is loaded to create objects.
#pragma once

#include <ormutil/Path.h>
#include <ormutil/SpreadCounter.h>

#include <memory>

#include "ClassRegistry.h"
#include "ClassSharedCache.h"

namespace orm {

class ClassManagerImpl;

// Owns a loaded module.
class ModuleHandle {
 public:
  explicit ModuleHandle(HMODULE module = nullptr) : mhModule(module) {}
  ModuleHandle(ModuleHandle&& other) noexcept : mhModule(other.Detach()) {}
  ModuleHandle& operator=(ModuleHandle&& other) noexcept {
    std::swap(mhModule, other.mhModule);
    return *this;
  }
  ~ModuleHandle() { Free(); }

  HMODULE Get() const { return mhModule; }
  explicit operator bool() const { return mhModule != nullptr; }
  HMODULE Detach() { return std::exchange(mhModule, nullptr); }
  void Free() {
    if (HMODULE module = Detach()) FreeLibrary(module);
  }

 private:
  HMODULE mhModule;
};

// Every operation runs under the class manager's lock, except CreateInstance, during which a Creation keeps
// the module, and the beginning and end of that.
class LibraryIntl final : public FaceObject<BaseFace> {
 public:
  // The file `name` in `directory`. Nothing is looked at yet.
  LibraryIntl(ClassManagerImpl& rManager, const Path& directory, const String& name);

  // Maps the library unless it is mapped. With a cache entry, a library that lacks exports is noted in the
  // cache. Throws.
  void Load(const CacheEntry* pCacheEntry);
  // Brings the registry in line with the file on disk: from the shared cache when that knows this version of
  // the file, else by loading and freeing the library. A file that cannot be registered loses its classes,
  // and the error is thrown. `listedStamp` is the file's time as a listing of the folder has just told it, or
  // 0 to ask the file.
  void Register(ULONGLONG listedStamp);
  void Unregister();
  // Registers a newer file once the module of an older one is gone. Throws nothing.
  void Refresh();
  // 1: freed now, 0: was not loaded, -1: still in use, as it is while its load-time code runs. The classes
  // stay registered.
  int Unload(bool force);
  // Traces that the manager ends and leaves the library loaded, if it is.
  void ReportIfLoaded() const;
  // Asks the loaded library for an object.
  void CreateInstance(const String& classId, FacePtr<BaseFace>& rObject);

  void AddUse() { ++mUseCount; }
  // True when that was the last use; the classes are unregistered then.
  bool DropUse();
  bool IsUsed() const { return mUseCount != 0; }

  bool IsLoaded() const { return static_cast<bool>(mModule); }

  const String& GetFileName() const { return mFileName; }
  const String& GetPath() const { return mPath.GetText(); }
  // Time of the file version whose classes are registered; 0 while none are.
  ULONGLONG GetRegisteredStamp() const { return mRegisteredStamp; }

  // Whether creations or other calls into the library are in progress.
  bool IsBusy() const { return mpCreations && !mpCreations->IsZero(); }

  // A call into the library, from its beginning to the end of a scope. It keeps the module and, while the
  // manager lives, the library's record.
  class Creation {
   public:
    Creation() = default;
    explicit Creation(LibraryIntl& rLibrary) { Begin(rLibrary); }
    ~Creation() {
      if (mpCreations) mpCreations->End();
    }
    Creation(const Creation&) = delete;
    Creation& operator=(const Creation&) = delete;

    // Once; under the lock, which may be shared, and while the module is mapped.
    void Begin(LibraryIntl& rLibrary) {
      mpCreations = rLibrary.mpCreations.get();
      mpCreations->Begin();
    }

   private:
    SpreadCounter* mpCreations = nullptr;
  };

 private:
  using CreateFunction = void (*)(const String& classId, FacePtr<BaseFace>& rObject);
  using EnumFunction = void (*)(std::vector<ClassDescription>& rClasses);
  using CanUnloadFunction = bool (*)(bool force);

  ~LibraryIntl() override;

  std::vector<ClassRecord> EnumClasses(const CacheEntry* pCacheEntry);
  void RegisterFile(ULONGLONG listedStamp);
  void RegisterLoaded(ULONGLONG fileStamp);
  void RegisterUnloaded(ULONGLONG fileStamp, bool isListed);
  void RegisterRecords(std::vector<ClassRecord> records, ULONGLONG stamp);

  ClassManagerImpl& mrManager;
  Path mPath;
  const String mFileName;
  ULONGLONG mRegisteredStamp = 0;
  ULONGLONG mLoadedStamp = 0;  // of the file as it was just after the module was loaded
  DWORD mUseCount = 0;         // masks that include the library
  bool mIsRegistering = false;
  bool mIsLoading = false;
  bool mOutdated = false;  // the file is newer than the loaded module whose classes are registered
  std::unique_ptr<SpreadCounter> mpCreations;  // there since the first load
  RegistrationSet mRegistrations;
  ModuleHandle mModule;
  // Set by a load; called only while a module is mapped.
  CreateFunction mpCreate = nullptr;
  EnumFunction mpEnum = nullptr;
  CanUnloadFunction mpCanUnload = nullptr;
};

}  // namespace orm
