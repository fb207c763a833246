// What a client holds to ask about one class.
#pragma once

#include <ormutil/ClassManager.h>

#include "ClassManagerImpl.h"

namespace orm {

// Made under the manager's lock; takes it for each operation. After the manager's end it answers as a class
// that nobody registers.
class ClassInfoImpl final : public FaceObject<ClassInfo> {
 public:
  ClassInfoImpl(ClassManagerImpl& rManager, ClassEntry& rEntry);

  String GetClassId() override;
  void EnumFaces(std::vector<String>& faceIds) override;
  bool IsFaceSupported(const String& faceId) override;
  bool AreFacesSupported(const std::vector<String>& faceIds) override;
  Binary GetClassData() override;
  Binary GetFaceData(const String& faceId) override;
  String GetLibraryPath() override;

 private:
  ~ClassInfoImpl() override;

  // What `ask` says about the current registration; the default value when there is none.
  template <class Ask>
  auto Query(Ask ask) const;

  const FacePtr<BaseFace> mpManager;
  const FacePtr<ClassEntry> mpEntry;
};

}  // namespace orm
