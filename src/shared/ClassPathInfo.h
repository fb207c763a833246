// The built-in class that lists the registered directories: one object, its own factory and its own instance.
#pragma once

#include <ormutil/ClassManager.h>

namespace orm {

class PathInfo final : public FaceObject<ClassFactory, ClassManagerPathInfo> {
 public:
  void CreateInstance(const String& classId, FacePtr<BaseFace>& object) override;
  void EnumClasses(std::vector<ClassDescription>& classes) override;
  void GetPaths(std::vector<String>& paths, bool withMasks) override;
};

}  // namespace orm
