// One registered file name or pattern of a directory.
#pragma once

#include "ClassLibrary.h"

namespace orm {

class DirectoryIntl;

// Every operation runs under the class manager's lock.
class MaskIntl final : public FaceObject<BaseFace> {
 public:
  MaskIntl(DirectoryIntl& rDirectory, const Path& mask) : mrDirectory(rDirectory), mMask(mask) {}

  // Includes the files that match now and lets go of those that do not any more. Throws, and then includes
  // nothing.
  void Register();
  void AddUse() { ++mUseCount; }
  // True when that was the last use; the mask includes nothing then.
  bool DropUse();

  const Path& GetMask() const { return mMask; }
  DWORD GetCookie() const { return mCookie; }
  void SetCookie(DWORD cookie) { mCookie = cookie; }

 private:
  using Libraries = std::vector<FacePtr<LibraryIntl>>;

  ~MaskIntl() override { Unregister(); }

  // Fills the list as far as it comes; each library in it has one use more.
  void FindLibraries(Libraries& rLibraries);
  void Unregister();

  DirectoryIntl& mrDirectory;
  const Path mMask;
  Libraries mLibraries;
  DWORD mCookie = 0;
  DWORD mUseCount = 0;  // Register calls without their Unregister
};

}  // namespace orm
