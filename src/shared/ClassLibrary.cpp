// Loading, listing, registering and unloading one component library.
#include "ClassLibrary.h"

#include "Areas.h"
#include "ClassErrors.h"
#include "ClassManagerImpl.h"
#include "ClassSource.h"
#include "Running.h"

namespace orm {

namespace {

constexpr const char* FILE_NAME = "src/shared/ClassLibrary";

// No dialog about a missing disk or file while a library is being loaded.
class QuietErrorMode {
 public:
  QuietErrorMode() : mFormer(SetErrorMode(SEM_FAILCRITICALERRORS)) {}
  ~QuietErrorMode() { SetErrorMode(mFormer); }
  QuietErrorMode(const QuietErrorMode&) = delete;
  QuietErrorMode& operator=(const QuietErrorMode&) = delete;

 private:
  UINT mFormer;
};

struct LoadResult {
  HMODULE module;
  DWORD code;  // of the failure
};

LoadResult LoadQuietly(const String& path) {
  const QuietErrorMode quiet;
  HMODULE module = LoadLibraryExA(path.GetBegin(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
  return {module, GetLastError()};
}

// False when the module does not have the export. Throws when it cannot be asked.
template <class Function>
bool Resolve(HMODULE module, const char* name, Function& rFunction) {
  // By way of the function type that converts into every other one.
  rFunction = reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
  if (rFunction) return true;
  const DWORD code = GetLastError();
  if (code != ERROR_PROC_NOT_FOUND) throw MakeSystemError(code, String(), true);
  return false;
}

}  // namespace

LibraryIntl::LibraryIntl(ClassManagerImpl& rManager, const Path& directory, const String& name)
    : mrManager(rManager), mFileName(name) {
  const bool isSet = mPath.Set(directory, name);
  ORM_ASSERT(isSet, "mPath.Set(rDirectory, rName)", "src/shared/ClassManager", 423);
}

LibraryIntl::~LibraryIntl() {
  ReportIfLoaded();
  Unregister();
  // Objects that are still alive keep their code.
  mModule.Detach();
}

void LibraryIntl::ReportIfLoaded() const {
  if (!mModule) return;
  TraceWrite(areaClassManager, TRACE_WARNING, false, FILE_NAME, __LINE__,
             "ClassManager termination: library '%s' was not unloaded. Not all object were released or "
             "possible lock counting error.",
             mFileName);
}

void LibraryIntl::Load(const CacheEntry* pCacheEntry) {
  const TraceScope scope(areaClassManagerLibrary, TRACE_TRACE, FILE_NAME, __LINE__, "Load %s",
                         GetPath().GetBegin());
  if (mModule) return;
  const Running loading(mIsLoading);
  const auto [handle, code] = LoadQuietly(GetPath());
  ModuleHandle module(handle);
  if (!module) {
    TraceWrite(areaClassManager, TRACE_ERROR, false, FILE_NAME, __LINE__,
               "Failed to load library: '%s', code: %08x.", GetPath(), code);
    throw MakeSystemError(code, String(), true);
  }
  if (!mpCreations) mpCreations = std::make_unique<SpreadCounter>();
  mLoadedStamp = mPath.GetLastWriteTime();
  const bool hasCreate = Resolve(module.Get(), "LibCreateInstance", mpCreate);
  const bool hasEnum = Resolve(module.Get(), "LibEnumClasses", mpEnum);
  const bool hasCanUnload = Resolve(module.Get(), "LibCanUnload", mpCanUnload);
  if (!hasCreate || !hasEnum || !hasCanUnload) {
    // Spares other processes the attempt with this version of the file.
    if (pCacheEntry) mrManager.GetSharedCache().Store(*pCacheEntry, {});
    throw Error(ERROR_NO_CLASSES, "The library doesn't export necessary functions.");
  }
  mModule = std::move(module);
}

std::vector<ClassRecord> LibraryIntl::EnumClasses(const CacheEntry* pCacheEntry) {
  const TraceScope scope(areaClassManagerLibrary, TRACE_TRACE, FILE_NAME, __LINE__, "EnumClasses()");
  std::vector<ClassDescription> descriptions;
  {
    const Creation listed(*this);
    CallSource([&] { mpEnum(descriptions); });
  }
  std::vector<ClassRecord> records = NormalizeClasses(descriptions);
  if (pCacheEntry) mrManager.GetSharedCache().Store(*pCacheEntry, records);
  if (records.empty()) throw Error(ERROR_NO_CLASSES, "The library doesn't export any class.");
  return records;
}

void LibraryIntl::Register(ULONGLONG listedStamp) {
  const TraceScope scope(areaClassManagerLibrary, TRACE_TRACE, FILE_NAME, __LINE__, "Register()");
  if (mIsRegistering) return;  // the library itself has come back here while it is loaded or listed
  const Running registering(mIsRegistering);
  try {
    RegisterFile(listedStamp);
  } catch (...) {
    Unregister();
    throw;
  }
}

void LibraryIntl::RegisterFile(ULONGLONG listedStamp) {
  mOutdated = false;
  const ULONGLONG fileStamp = listedStamp != 0 ? listedStamp : mPath.GetLastWriteTime();
  if (mRegisteredStamp == fileStamp) return;
  if (mModule) {
    RegisterLoaded(fileStamp);
  } else {
    RegisterUnloaded(fileStamp, listedStamp != 0);
  }
}

// The loaded version stays in force until the module is freed.
void LibraryIntl::RegisterLoaded(ULONGLONG fileStamp) {
  if (mRegisteredStamp != mLoadedStamp) RegisterRecords(EnumClasses(nullptr), mLoadedStamp);
  mOutdated = mRegisteredStamp != fileStamp;
}

void LibraryIntl::RegisterUnloaded(ULONGLONG fileStamp, bool isListed) {
  // Held until the classes are registered, so that two processes do not load the same new file at once.
  FacePtr<BaseFace> cacheLock;
  CacheEntry entry;
  const CacheEntry* pCacheEntry = nullptr;
  if (mrManager.GetShared(cacheLock)) {
    SharedCache& rCache = mrManager.GetSharedCache();
    if (rCache.Lookup(cacheLock, GetPath(), fileStamp, entry)) {
      std::vector<ClassRecord> records = rCache.Read(entry);
      if (records.empty()) {
        throw Error(ERROR_NO_CLASSES, "The library doesn't export classes or necessary functions.");
      }
      RegisterRecords(std::move(records), fileStamp);
      return;
    }
    pCacheEntry = &entry;
  }
  if (isListed) {
    // The file that is loaded now may be newer than the one that was listed.
    const ULONGLONG stamp = mPath.GetLastWriteTime();
    if (stamp != fileStamp) return RegisterUnloaded(stamp, false);
  }
  Load(pCacheEntry);
  // The record counts as not loaded again, and the module goes at the end of this scope.
  const ModuleHandle module = std::move(mModule);
  RegisterRecords(EnumClasses(pCacheEntry), fileStamp);
}

void LibraryIntl::RegisterRecords(std::vector<ClassRecord> records, ULONGLONG stamp) {
  mRegisteredStamp = stamp;
  mrManager.RegisterClasses(std::move(records), nullptr, this, mRegistrations);
}

void LibraryIntl::Unregister() {
  const TraceScope scope(areaClassManagerLibrary, TRACE_TRACE, FILE_NAME, __LINE__, "Unregister()");
  mOutdated = false;
  if (mRegisteredStamp == 0) return;
  mrManager.UnregisterClasses(mRegistrations);
  mRegisteredStamp = 0;
}

void LibraryIntl::Refresh() {
  if (!mOutdated) return;
  if (mModule && mRegisteredStamp == mLoadedStamp) return;
  try {
    Register(0);
  } catch (const Error&) {
    // Its classes are gone; the next change of the file is the next attempt.
  }
}

int LibraryIntl::Unload(bool force) {
  const TraceScope scope(areaClassManagerLibrary, TRACE_TRACE, FILE_NAME, __LINE__, "Unload(%i)",
                         static_cast<int>(force));
  if (!mModule) return mIsLoading ? -1 : 0;
  if (IsBusy()) return -1;
  bool canUnload = false;
  try {
    // What it calls meanwhile must not free it under its own feet.
    const Creation asked(*this);
    CallSource([&] { canUnload = mpCanUnload(force); });
  } catch (const Error&) {
    return -1;  // nobody knows whether it is in use
  }
  if (!canUnload) return -1;
  mModule.Free();
  return 1;
}

void LibraryIntl::CreateInstance(const String& classId, FacePtr<BaseFace>& rObject) {
  const TraceScope scope(areaClassManagerLibrary, TRACE_TRACE, FILE_NAME, __LINE__, "CreateInstance(%s)",
                         classId.GetBegin());
  CallSource([&] { mpCreate(classId, rObject); });
}

bool LibraryIntl::DropUse() {
  if (--mUseCount != 0) return false;
  Unregister();
  return true;
}

}  // namespace orm
