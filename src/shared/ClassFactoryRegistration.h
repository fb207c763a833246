// One registered class factory.
#pragma once

#include <ormutil/ClassFactory.h>

#include "ClassRegistry.h"

namespace orm {

class ClassManagerImpl;

// Used under the class manager's lock, except CreateInstance.
class FactoryRegistration final : public FaceObject<BaseFace> {
 public:
  FactoryRegistration(ClassManagerImpl& rManager, const FacePtr<ClassFactory>& rpFactory)
      : mrManager(rManager), mpFactory(rpFactory) {}

  // Lists the factory's classes and registers them. Throws.
  void Register();
  void AddUse() { ++mUseCount; }
  // True when that was the last use; the classes are unregistered then.
  bool DropUse();
  void CreateInstance(const String& classId, FacePtr<BaseFace>& rObject);

  // Whoever may drop the last reference to the registration holds the factory longer, beyond the lock: its
  // end is the client's code.
  const FacePtr<ClassFactory>& GetFactory() const { return mpFactory; }
  DWORD GetCookie() const { return mCookie; }
  void SetCookie(DWORD cookie) { mCookie = cookie; }

 private:
  ~FactoryRegistration() override;

  ClassManagerImpl& mrManager;
  const FacePtr<ClassFactory> mpFactory;
  RegistrationSet mRegistrations;
  DWORD mCookie = 0;
  DWORD mUseCount = 0;  // Register calls without their Unregister
};

}  // namespace orm
