// One registered directory: its libraries, the masks that include them, and the watch for changes.
#pragma once

#include "ClassLibrary.h"
#include "ClassMask.h"

namespace orm {

// Every operation runs under the class manager's lock.
class DirectoryIntl final : public FaceObject<BaseFace> {
 public:
  // Not watching; without libraries and masks.
  DirectoryIntl(ClassManagerImpl& rManager, const Path& path) : mrManager(rManager), mPath(path) {}

  // Includes the files that match the mask, once more when it is known already; returns the mask's cookie.
  // Throws, and then keeps nothing of a new mask.
  DWORD Register(const Path& mask);
  // The library with this file name, registered, with one use more. Throws, and then keeps nothing of a new
  // one.
  // For `listedStamp` see LibraryIntl::Register.
  FacePtr<LibraryIntl> GetLibrary(const String& fileName, ULONGLONG listedStamp);
  // Has the memory that `count` more libraries with a few classes will take made at once: registering them is
  // a third of a process's start, and touching page after page for the first time was most of that.
  void PrepareLibraries(size_t count);
  // Drops one use of the mask with this cookie; true when that was the last and the mask is gone.
  bool Unregister(DWORD cookie);
  // True when a library was freed.
  bool UnloadLibraries(bool force);
  // Scans again after a change, and registers newer files of libraries that were freed. Throws nothing.
  void Synchronize();
  // Watches for changes unless it does so; it is asked again at each synchronisation when it could not.
  void StartWatch();

  // Directories are told apart by their roots' lengths and, without regard to case, their texts.
  bool IsAt(const Path& path) const;
  bool IsEmpty() const { return mLibraries.empty() && mMasks.empty(); }
  const Path& GetPath() const { return mPath; }
  // Adds the directory joined with each mask.
  void AppendMaskedPaths(std::vector<String>& rPaths) const;

 private:
  ~DirectoryIntl() override;

  bool HasChanged();

  ClassManagerImpl& mrManager;
  const Path mPath;
  HANDLE mhChange = INVALID_HANDLE_VALUE;
  std::vector<FacePtr<LibraryIntl>> mLibraries;  // sorted by file name, without regard to case
  std::vector<FacePtr<MaskIntl>> mMasks;         // sorted by text, without regard to case
};

}  // namespace orm
