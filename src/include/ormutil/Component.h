// For authors of component libraries: the three exports, and what makes writing them short.
//
//   class Digest final : public orm::ComponentObject<DigestFace> {
//    public:
//     static constexpr const char* CLASS_ID = "CID_FileDigest";
//     ...the operations of DigestFace...
//   };
//   using Classes = orm::ComponentClasses<Digest>;
//
//   void LibEnumClasses(std::vector<orm::ClassDescription>& classes) { Classes::Enum(classes); }
//   void LibCreateInstance(const orm::BaseString<orm::MbcsTraits>& classId,
//                          orm::FacePtr<orm::BaseFace>& object) { Classes::Create(classId, object); }
//   bool LibCanUnload(bool) { return orm::CanUnloadComponent(); }
//
// Build it with the CMake function orm_add_component. A library leaves the process when nothing of it is in
// use, so it must not hold on to the process by itself: no thread that outlives its objects, no GNU-unique
// symbol, no thread_local object with a destructor.
#pragma once

#include <ormutil/ClassFactory.h>
#include <ormutil/SpreadCounter.h>

extern "C" {

// Receives an empty vector and appends one description for each class of the library. Called with the class
// manager's lock held, possibly in a process that never creates an object of the library. May throw an Error.
ORMUTIL_API void LibEnumClasses(std::vector<orm::ClassDescription>& classes);

// Receives an empty `object` and stores a new object of the class in it, or leaves it empty when it cannot
// make one. Called on any thread, without the class manager's lock. May throw an Error.
ORMUTIL_API void LibCreateInstance(const orm::BaseString<orm::MbcsTraits>& classId,
                                   orm::FacePtr<orm::BaseFace>& object);

// Whether no object of the library is alive, so that it may be unmapped now. `force` is true while the
// process ends or the client insists.
ORMUTIL_API bool LibCanUnload(bool force);
}

namespace orm {

namespace component_detail {
// Hidden, so that each library counts its own objects.
[[gnu::visibility("hidden")]] inline constinit SpreadCounter liveObjects;
}  // namespace component_detail

// An object of a component library; see FaceObject. Counts itself for CanUnloadComponent.
template <class First, class... Others>
class ComponentObject : public FaceObject<First, Others...> {
 public:
  // Describes the faces of the class, in the order in which they were given.
  static std::vector<FaceDescription> DescribeFaces() {
    return {FaceDescription{First::FACE_ID, {}}, FaceDescription{Others::FACE_ID, {}}...};
  }

 protected:
  ComponentObject() { component_detail::liveObjects.Begin(); }
  ~ComponentObject() override { component_detail::liveObjects.End(); }
};

// Whether no ComponentObject of this library is alive.
inline bool CanUnloadComponent() {
  return component_detail::liveObjects.IsZero();
}

// The classes of a library: default-constructible types with a CLASS_ID, derived from ComponentObject.
template <class... Classes>
class ComponentClasses {
 public:
  // Appends the description of each class.
  static void Enum(std::vector<ClassDescription>& classes) {
    (classes.push_back(ClassDescription{Classes::CLASS_ID, {}, Classes::DescribeFaces()}), ...);
  }

  // Makes an object of the class; leaves `object` empty when the class is none of these.
  static void Create(const BaseString<MbcsTraits>& classId, FacePtr<BaseFace>& object) {
    (void)(CreateIf<Classes>(classId, object) || ...);
  }

 private:
  template <class Class>
  static bool CreateIf(const BaseString<MbcsTraits>& classId, FacePtr<BaseFace>& object) {
    if (classId.Compare(Class::CLASS_ID) != 0) return false;
    auto* made = new Class();
    object = FacePtr<BaseFace>::Adopt(made->QueryFace(BaseFace::FACE_ID));
    made->Release();
    return true;
  }
};

}  // namespace orm
