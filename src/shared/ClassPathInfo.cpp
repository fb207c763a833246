// Listing the registered directories.
#include "ClassPathInfo.h"

#include "ClassDirectory.h"
#include "ClassManagerImpl.h"

namespace orm {

void PathInfo::CreateInstance(const String& classId, FacePtr<BaseFace>& object) {
  if (classId.Compare(CLASS_ID) == 0) object = static_cast<ClassManagerPathInfo*>(this);
}

void PathInfo::EnumClasses(std::vector<ClassDescription>& classes) {
  classes.push_back({CLASS_ID, {}, {{ClassManagerPathInfo::FACE_ID, {}}, {BaseFace::FACE_ID, {}}}});
}

void PathInfo::GetPaths(std::vector<String>& paths, bool withMasks) {
  paths.clear();
  ClassManagerImpl* pManager = ClassManagerImpl::GetCurrent();
  if (!pManager) return;
  const ClassLock lock(pManager->GetLock());
  pManager->Synchronize();
  const auto& directories = pManager->GetDirectories();
  paths.reserve(directories.size() * (withMasks ? 8 : 1));
  for (const auto& directory : directories) {
    if (withMasks) {
      directory->AppendMaskedPaths(paths);
    } else {
      paths.push_back(directory->GetPath().GetText());
    }
  }
}

}  // namespace orm
