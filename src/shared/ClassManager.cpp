// The manager's life, creation of objects, enumeration, and its periodic work.
#include "Areas.h"
#include "ClassDirectory.h"
#include "ClassErrors.h"
#include "ClassFactoryRegistration.h"
#include "ClassInfoImpl.h"
#include "ClassLibrary.h"
#include "ClassManagerImpl.h"
#include "ClassPathInfo.h"
#include "ModuleFrame.h"
#include "Running.h"
#include "ThreadModule.h"

#include <algorithm>
#include <atomic>
#include <new>

namespace orm {

namespace {

constexpr const char* FILE_NAME = "src/shared/ClassManager";

constexpr DWORD SYNCHRONIZE_INTERVAL = 3000;  // milliseconds
constexpr DWORD UNLOAD_INTERVAL = 5000;

// Storage of the one manager, built and closed by the module frame.
alignas(ClassManagerImpl) constinit unsigned char gsStorage[sizeof(ClassManagerImpl)] = {};
// Set for as long as the manager may be called, which includes its opening and its closing: libraries
// that are listed there may ask for it.
constinit std::atomic<ClassManagerImpl*> gspManager = nullptr;

}  // namespace

bool BuildClassManager() {
  auto* const pManager = new (gsStorage) ClassManagerImpl();
  gspManager = pManager;
  try {
    pManager->Open();
    return true;
  } catch (...) {
    // std::bad_alloc, or the Error of a platform call that found no memory.
    return false;
  }
}

void CloseClassManager() {
  if (ClassManagerImpl* pManager = ClassManagerImpl::GetCurrent()) pManager->Close();
}

// Of the storage, since another thread may be closing the manager.
void LockClassManager() {
  reinterpret_cast<ClassManagerImpl*>(gsStorage)->GetLock().Enter();
}
void UnlockClassManager() {
  reinterpret_cast<ClassManagerImpl*>(gsStorage)->GetLock().Leave();
}
void UnlockClassManagerInChild() {
  reinterpret_cast<ClassManagerImpl*>(gsStorage)->GetLock().ForgetSharers();
  UnlockClassManager();
}

void LeaveClassManagerForEver() {
  reinterpret_cast<ClassManagerImpl*>(gsStorage)->GetLock().LeaveForEver();
}

ClassManager* GetClassMgr() {
  ClassManagerImpl* pManager = ClassManagerImpl::GetCurrent();
  if (!pManager) HoldAfterDetach();
  return pManager;
}

ClassManagerImpl* ClassManagerImpl::GetCurrent() {
  return gspManager.load(std::memory_order_acquire);
}

void ClassManagerImpl::Open() {
  mShared.Open();
  // After the cache, for which the process may have had to wait.
  const DWORD now = GetTickCount();
  mRegistry.SetStamp(now);
  mLastSynchronization = mLastUnload = now;
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "Constructor");
  Register(FacePtr<ClassFactory>::Adopt(new PathInfo()));
  RegisterDefaults();
}

void ClassManagerImpl::Close() {
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "Destructor");
  UnloadLibraries(true);
  ReleaseFactories();
  // When a process ends, its other threads run on to the very end. From here on they wait for the lock, which
  // is not given back.
  mLock.Enter();
  // A factory that a thread has registered since stays: whom it waits for at its end may be waiting here.
  // The list is empty before what it held goes, since that may call the manager once more.
  std::exchange(mDirectories, {}).clear();
  mRegistry = {};
  mSystemDirectory = {};
  mShared.Close();
  gspManager.store(nullptr, std::memory_order_release);
}

// Without the lock: a factory may have a thread, which calls the manager and which it waits for at its end.
void ClassManagerImpl::ReleaseFactories() {
  std::vector<FacePtr<ClassFactory>> released;
  const ClassLock lock(mLock);
  for (const auto& registration : mFactories) released.push_back(registration->GetFactory());
  std::exchange(mFactories, {}).clear();
}

BaseFace* ClassManagerImpl::QueryFace(const char* faceId) {
  return FaceId(faceId).Names<BaseFace>() ? static_cast<BaseFace*>(this) : nullptr;
}

FacePtr<BaseFace> ClassManagerImpl::CreateInstance(const String& classId, const String& faceId) {
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "CreateInstance(%s, %s)",
                         classId.GetBegin(), faceId.GetBegin());
  try {
    KeptSource kept;
    const FacePtr<BaseFace> object = MakeObject(classId, kept);
    if (!object) throw Error(ERROR_CLASS_NOT_REGISTERED, "The class is not registered.");
    auto face = FacePtr<BaseFace>::Adopt(object->QueryFace(faceId.GetBegin()));
    if (!face) ThrowFaceNotSupportedError(faceId.GetBegin());
    return face;
  } catch (Error& error) {
    error.AddLayer(
        ERROR_LAYER_BELOW,
        String::FormatInserts("Cannot create instance of class '%1' with interface '%2'.", classId, faceId));
    throw;
  }
}

LibraryIntl* ClassManagerImpl::BeginQuickCreation(const String& classId, LibraryIntl::Creation& rCreation) {
  const DWORD now = GetTickCount();
  const SharedClassLock lock(mLock);
  if (IsSynchronizationDue(now) || IsUnloadDue(now)) return nullptr;
  const ClassEntry* pEntry = mRegistry.Find(classId);
  LibraryIntl* pLibrary = pEntry ? pEntry->GetCurrent()->mpLibrary : nullptr;
  if (!pLibrary || !pLibrary->IsLoaded()) return nullptr;
  rCreation.Begin(*pLibrary);
  return pLibrary;
}

// Without the lock, for a library whose creation has begun. What needs not be done leaves its trace all the
// same.
FacePtr<BaseFace> ClassManagerImpl::MakeObjectQuickly(LibraryIntl& rLibrary, const String& classId) {
  { const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "Synchronize()"); }
  rLibrary.Load(nullptr);
  FacePtr<BaseFace> object;
  rLibrary.CreateInstance(classId, object);
  return object;
}

// Empty when the class has no source or its source makes nothing.
FacePtr<BaseFace> ClassManagerImpl::MakeObject(const String& classId, KeptSource& rKept) {
  if (LibraryIntl* pLibrary = BeginQuickCreation(classId, rKept.creation)) {
    return MakeObjectQuickly(*pLibrary, classId);
  }
  FacePtr<BaseFace> object;
  ClassLock lock(mLock);
  Synchronize();
  const ClassEntry* pEntry = mRegistry.Find(classId);
  if (!pEntry) return object;
  const Registration& registration = *pEntry->GetCurrent();
  if (registration.mpFactory) {
    const FacePtr<FactoryRegistration> source(registration.mpFactory);
    rKept.factory = source->GetFactory();
    const ClassUnlock unlocked(lock);
    source->CreateInstance(classId, object);
  } else {
    const FacePtr<LibraryIntl> source(registration.mpLibrary);
    source->Load(nullptr);
    rKept.creation.Begin(*source);
    const ClassUnlock unlocked(lock);
    source->CreateInstance(classId, object);
  }
  return object;
}

FacePtr<ClassInfo> ClassManagerImpl::GetClassInfo(const String& classId) {
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "GetClassInfo(%s)",
                         classId.GetBegin());
  try {
    const ClassLock lock(mLock);
    Synchronize();
    ClassEntry* pEntry = mRegistry.Find(classId);
    if (!pEntry) throw Error(ERROR_CLASS_NOT_REGISTERED, "The class is not registered.");
    return FacePtr<ClassInfo>::Adopt(new ClassInfoImpl(*this, *pEntry));
  } catch (Error& error) {
    error.AddLayer(ERROR_LAYER_BELOW,
                   String::FormatInserts("Cannot get information about class '%1'.", classId));
    throw;
  }
}

bool ClassManagerImpl::IsClassRegistered(const String& classId) {
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "IsClassRegistered(%s)",
                         classId.GetBegin());
  const ClassLock lock(mLock);
  Synchronize();
  return mRegistry.Find(classId) != nullptr;
}

// The test is asked about the faces of each registered class.
template <class Test>
void ClassManagerImpl::EnumClassesThatPass(std::vector<String>& rClassIds, Test test) {
  const ClassLock lock(mLock);
  Synchronize();
  rClassIds.clear();
  const std::vector<const ClassEntry*>& entries = mRegistry.GetOrdered();
  rClassIds.reserve(entries.size());
  for (const ClassEntry* pEntry : entries) {
    const Registration* pCurrent = pEntry->GetCurrent();
    if (pCurrent && test(pCurrent->mFaces)) rClassIds.push_back(pEntry->GetId().text);
  }
}

void ClassManagerImpl::EnumClasses(const std::vector<String>& faceIds, std::vector<String>& classIds) {
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "EnumClasses() v.3");
  EnumClassesThatPass(classIds, [&faceIds](const auto& faces) { return HasFaces(faces, faceIds); });
}

void ClassManagerImpl::EnumClasses(const String& faceId, std::vector<String>& classIds) {
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "EnumClasses(%s) v.2",
                         faceId.GetBegin());
  EnumClassesThatPass(classIds, [&faceId](const auto& faces) { return FindFace(faces, faceId) != nullptr; });
}

void ClassManagerImpl::EnumClasses(std::vector<String>& classIds) {
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "EnumClasses() v.1");
  EnumClassesThatPass(classIds, [](const auto&) { return true; });
}

DWORD ClassManagerImpl::GetRegistrationStamp() {
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "GetRegistrationStamp()");
  const ClassLock lock(mLock);
  Synchronize();
  return mRegistry.GetStamp();
}

void ClassManagerImpl::RegisterClasses(std::vector<ClassRecord> records, FactoryRegistration* pFactory,
                                       LibraryIntl* pLibrary, RegistrationSet& rSet) {
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "RegisterClasses()");
  RegistrationSet former = mRegistry.Register(std::move(records), pFactory, pLibrary, rSet);
  if (!former.items.empty()) UnregisterClasses(former);
}

void ClassManagerImpl::UnregisterClasses(RegistrationSet& rSet) {
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "UnregisterClasses()");
  mRegistry.Unregister(rSet);
}

DWORD ClassManagerImpl::GetNewCookie() {
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "GetNewCookie()");
  return ++mCookie;
}

bool ClassManagerImpl::GetShared(FacePtr<BaseFace>& rLock) {
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "GetShared()");
  if (!mShared.IsAvailable()) return false;
  rLock = &mShared;
  if (mShared.CheckWhole()) return true;
  rLock.Release();
  return false;
}

void ClassManagerImpl::Synchronize() {
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "Synchronize()");
  DWORD now = GetTickCount();
  if (IsSynchronizationDue(now)) {
    SynchronizeDirectories();
    now = GetTickCount();
  }
  if (IsUnloadDue(now)) static_cast<ClassManager*>(this)->UnloadLibraries(false);
}

bool ClassManagerImpl::IsSynchronizationDue(DWORD now) const {
  return now - mLastSynchronization >= SYNCHRONIZE_INTERVAL && !mSynchronizing;
}

bool ClassManagerImpl::IsUnloadDue(DWORD now) const {
  return now - mLastUnload >= UNLOAD_INTERVAL;
}

void ClassManagerImpl::SynchronizeDirectories() {
  const Running running(mSynchronizing);
  for (const auto& directory : std::vector(mDirectories)) directory->Synchronize();
  for (const auto& directory : std::vector(mDirectories)) RemoveIfEmpty(directory);
  mLastSynchronization = GetTickCount();
}

void ClassManagerImpl::UnloadLibraries(bool force) {
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "UnloadLibraries(%i)",
                         static_cast<int>(force));
  const ClassLock lock(mLock);
  if (mUnloading) return;
  const Running running(mUnloading);
  // A freed library may have held the last objects of another one, so go on until nothing more is freed.
  for (bool freed = true; freed;) {
    freed = false;
    for (const auto& directory : std::vector(mDirectories)) {
      freed |= directory->UnloadLibraries(force);
      RemoveIfEmpty(directory);
    }
  }
  mLastUnload = GetTickCount();
}

}  // namespace orm
