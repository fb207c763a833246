// Registering the classes of a factory.
#include "ClassFactoryRegistration.h"

#include "ClassErrors.h"
#include "ClassManagerImpl.h"
#include "ClassSource.h"

namespace orm {

void FactoryRegistration::Register() {
  std::vector<ClassDescription> descriptions;
  // An empty pointer is an assertion of whoever passed it on; ignored, it is a factory without classes.
  if (mpFactory) CallSource([&] { mpFactory->EnumClasses(descriptions); });
  std::vector<ClassRecord> records = NormalizeClasses(descriptions);
  if (records.empty()) throw Error(ERROR_NO_CLASSES, "The factory doesn't export any class.");
  mrManager.RegisterClasses(std::move(records), this, nullptr, mRegistrations);
}

bool FactoryRegistration::DropUse() {
  if (--mUseCount != 0) return false;
  mrManager.UnregisterClasses(mRegistrations);
  return true;
}

void FactoryRegistration::CreateInstance(const String& classId, FacePtr<BaseFace>& rObject) {
  CallSource([&] { mpFactory->CreateInstance(classId, rObject); });
}

FactoryRegistration::~FactoryRegistration() {
  mrManager.UnregisterClasses(mRegistrations);
}

}  // namespace orm
