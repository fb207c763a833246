// The face of an object in memory that offers classes to the class manager.
#pragma once

#include <ormutil/ClassDescription.h>
#include <ormutil/FacePtr.h>

namespace orm {

// Handed to ClassManager::Register. Both operations may be called on any thread that calls the class manager;
// both may throw an Error.
struct ClassFactory : BaseFace {
  static constexpr const char* FACE_ID = "IID_ClassFactory";

  // Receives an empty `object` and stores a new object of the class in it, or leaves it empty when it cannot
  // make one. Called without the class manager's lock, so it may call the class manager and several calls may
  // run at once.
  virtual void CreateInstance(const BaseString<MbcsTraits>& classId, FacePtr<BaseFace>& object) = 0;

  // Receives an empty vector and appends one description for each class. Called once, when the factory is
  // registered, with the class manager's lock held.
  virtual void EnumClasses(std::vector<ClassDescription>& classes) = 0;
};

}  // namespace orm
