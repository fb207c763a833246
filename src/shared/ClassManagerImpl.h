// The one class manager of the process.
#pragma once

#include <ormutil/ClassManager.h>

#include <vector>

#include "ClassFactoryRegistration.h"
#include "ClassLibrary.h"
#include "ClassLock.h"
#include "ClassRegistry.h"
#include "ClassSharedCache.h"
#include "ClassSystemDirectory.h"

namespace orm {

class DirectoryIntl;
class PathInfo;

// A face whose references are not counted: it lives from the module's load to its unload. Everything below
// the lock is used under it; functions that say "under the lock" expect the caller to hold it.
class ClassManagerImpl final : public BaseFace, public ClassManager {
 public:
  ClassManagerImpl() = default;
  // It closes and is not destroyed: threads may be calling it to the very end of the process. Closed, it
  // holds no memory beyond its own, which goes with the module.
  ~ClassManagerImpl() = delete;
  ClassManagerImpl(const ClassManagerImpl&) = delete;
  ClassManagerImpl& operator=(const ClassManagerImpl&) = delete;

  // The process's manager; null while there is none. An object that outlives the manager asks here before it
  // takes the lock.
  static ClassManagerImpl* GetCurrent();

  // Opens the shared cache and registers what is there from the beginning, which may call the manager. Throws
  // when there is no memory; what has been registered by then goes with Close.
  void Open();
  // Unloads and releases everything. Whoever calls the manager meanwhile waits from some point on for ever.
  void Close();

  DWORD AddRef() override { return 1; }
  bool Release() override { return false; }
  BaseFace* QueryFace(const char* faceId) override;

  FacePtr<BaseFace> CreateInstance(const String& classId, const String& faceId) override;
  FacePtr<ClassInfo> GetClassInfo(const String& classId) override;
  bool IsClassRegistered(const String& classId) override;
  void EnumClasses(const std::vector<String>& faceIds, std::vector<String>& classIds) override;
  void EnumClasses(const String& faceId, std::vector<String>& classIds) override;
  void EnumClasses(std::vector<String>& classIds) override;
  DWORD Register(const String& path) override;
  DWORD Register(const FacePtr<ClassFactory>& rpFactory) override;
  void Unregister(DWORD cookie) override;
  DWORD GetRegistrationStamp() override;
  void UnloadLibraries(bool force) override;

  ManagerLock& GetLock() { return mLock; }

  // Under the lock.
  void RegisterClasses(std::vector<ClassRecord> records, FactoryRegistration* pFactory, LibraryIntl* pLibrary,
                       RegistrationSet& rSet);
  void UnregisterClasses(RegistrationSet& rSet);
  DWORD GetNewCookie();
  // Looks at the directories when that was not done for 3 seconds, and offers libraries for unloading when
  // that was not done for 5. Throws nothing of its own.
  void Synchronize();
  // Takes the shared cache's mutex for the life of `rLock`; false when there is no cache.
  bool GetShared(FacePtr<BaseFace>& rLock);
  SharedCache& GetSharedCache() { return mShared; }
  ClassRegistry& GetRegistry() { return mRegistry; }
  const std::vector<FacePtr<DirectoryIntl>>& GetDirectories() const { return mDirectories; }
  // For a library that a thread is using while the manager closes.
  void KeepToTheEnd(const FacePtr<LibraryIntl>& rpLibrary) { mStillUsed.push_back(rpLibrary); }

 private:
  void ReleaseFactories();

  // What keeps the code of an object that is being made, also while it is refused and goes again. Ends
  // without the lock.
  struct KeptSource {
    LibraryIntl::Creation creation;
    FacePtr<ClassFactory> factory;
  };

  FacePtr<BaseFace> MakeObject(const String& classId, KeptSource& rKept);
  // The library that makes objects of the class, when it is loaded and nothing else is to be done first, with
  // the creation begun; null otherwise. Without the lock.
  LibraryIntl* BeginQuickCreation(const String& classId, LibraryIntl::Creation& rCreation);
  static FacePtr<BaseFace> MakeObjectQuickly(LibraryIntl& rLibrary, const String& classId);
  bool IsSynchronizationDue(DWORD now) const;
  bool IsUnloadDue(DWORD now) const;
  template <class Test>
  void EnumClassesThatPass(std::vector<String>& rClassIds, Test test);
  DWORD RegisterPath(const String& text);
  DWORD RegisterFactory(const FacePtr<ClassFactory>& rpFactory);
  void RegisterDefaults();
  void SynchronizeDirectories();
  FacePtr<DirectoryIntl> FindDirectory(const Path& path) const;
  // Forgets the directory when it has neither libraries nor masks left.
  void RemoveIfEmpty(const FacePtr<DirectoryIntl>& rpDirectory);

  ManagerLock mLock;
  ClassRegistry mRegistry;
  std::vector<FacePtr<FactoryRegistration>> mFactories;  // by the factory's address
  std::vector<FacePtr<DirectoryIntl>> mDirectories;
  std::vector<FacePtr<LibraryIntl>> mStillUsed;
  SharedCache mShared;
  DWORD mCookie = 0;  // the last one handed out
  bool mUnloading = false;
  bool mSynchronizing = false;  // a component's code may call back into the manager while it is listed
  DWORD mLastSynchronization = 0;
  DWORD mLastUnload = 0;
  SystemDirectory mSystemDirectory;
};

}  // namespace orm
