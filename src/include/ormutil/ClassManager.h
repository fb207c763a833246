// The class manager: which classes exist, where each comes from, and objects by class id.
//
//   ClassManager* manager = GetClassMgr();
//   DWORD cookie = manager->Register("c:\\components");       // every *.dll in that folder
//   FacePtr<Digest> digest("CID_FileDigest", "");             // loads the library now, not before
//   manager->Unregister(cookie);
//
// The manager looks at its folders at most every 3 seconds and offers libraries that are no longer used for
// unloading at most every 5 seconds, always within a call into it; it has no thread of its own.
#pragma once

#include <ormutil/ClassFactory.h>

namespace orm {

// What the manager knows about one class; obtained from ClassManager::GetClassInfo. It stays usable when the
// class is unregistered: it then answers as a class that has nothing. Any thread.
struct ClassInfo : BaseFace {
  static constexpr const char* FACE_ID = "IID_ClassInfo";

  // The class id; empty when the class is not registered any more.
  virtual BaseString<MbcsTraits> GetClassId() = 0;
  // Replaces the vector's content by the class's face ids, ordered by hash and then by text.
  virtual void EnumFaces(std::vector<BaseString<MbcsTraits>>& faceIds) = 0;
  virtual bool IsFaceSupported(const BaseString<MbcsTraits>& faceId) = 0;
  // Whether all of the faces are supported; an empty vector is, as long as the class is registered.
  virtual bool AreFacesSupported(const std::vector<BaseString<MbcsTraits>>& faceIds) = 0;
  // The bytes that the source attached to the class.
  virtual Binary GetClassData() = 0;
  // The bytes that the source attached to that face; empty when the face is not listed.
  virtual Binary GetFaceData(const BaseString<MbcsTraits>& faceId) = 0;
  // Full path of the library that makes the objects; empty when a factory does.
  virtual BaseString<MbcsTraits> GetLibraryPath() = 0;

 protected:
  ~ClassInfo() = default;
};

// The built-in class CID_ClassManagerPathInfo has this face.
struct ClassManagerPathInfo : BaseFace {
  static constexpr const char* FACE_ID = "IID_ClassManagerPathInfo";
  static constexpr const char* CLASS_ID = "CID_ClassManagerPathInfo";

  // Replaces the vector's content by the registered folders or, with masks, by every folder joined with each
  // of its registered file names and patterns. Any thread.
  virtual void GetPaths(std::vector<BaseString<MbcsTraits>>& paths, bool withMasks) = 0;

 protected:
  ~ClassManagerPathInfo() = default;
};

// Not a face: there is one manager in a process, from the load of the library to its unload. The slot order
// is a binary contract with component libraries. Every operation may be called by any thread; they exclude
// each other, except that objects are made without the lock.
class ClassManager {
 public:
  // A new object of the class, asked for the face. Of several sources of the class the latest registered
  // factory makes it, else the library with the newest file. Throws an Error whose top layer is "Cannot
  // create instance of class ..." and keeps the code below it: 0xE7230001 when nothing makes objects of the
  // class, 0xE7230002 when the object lacks the face, or what the library's load or its creation reported.
  virtual FacePtr<BaseFace> CreateInstance(const BaseString<MbcsTraits>& classId,
                                           const BaseString<MbcsTraits>& faceId) = 0;
  // Throws 0xE7230001 when the class is not registered.
  virtual FacePtr<ClassInfo> GetClassInfo(const BaseString<MbcsTraits>& classId) = 0;
  virtual bool IsClassRegistered(const BaseString<MbcsTraits>& classId) = 0;
  // Replace the content of `classIds` by the registered classes, ordered by hash and then by text, that have
  // all of the faces, or that one face, or whatever faces.
  virtual void EnumClasses(const std::vector<BaseString<MbcsTraits>>& faceIds,
                           std::vector<BaseString<MbcsTraits>>& classIds) = 0;
  virtual void EnumClasses(const BaseString<MbcsTraits>& faceId,
                           std::vector<BaseString<MbcsTraits>>& classIds) = 0;
  virtual void EnumClasses(std::vector<BaseString<MbcsTraits>>& classIds) = 0;
  // Registers component libraries: a folder (its "*.dll" files), one file, or a pattern. Returns a cookie,
  // the same one for the same path; each Register wants its Unregister. Throws 0xE7230004 for a path that is
  // invalid or within the system directory, 0xE7230005 for one that does not exist, the library's error for a
  // single file and the platform's error for a pattern that matches nothing; a file of a folder or pattern
  // that is no component library is passed over.
  virtual DWORD Register(const BaseString<MbcsTraits>& path) = 0;
  // Registers a factory, which precedes every library and every earlier factory for its classes. Throws
  // 0xE7230003 when the factory lists no class.
  virtual DWORD Register(const FacePtr<ClassFactory>& rpFactory) = 0;
  // Takes back one Register; an unknown cookie changes nothing.
  virtual void Unregister(DWORD cookie) = 0;
  // A number, never 0, that changes whenever the set of registered classes changes.
  virtual DWORD GetRegistrationStamp() = 0;
  // Frees the libraries that agree to it. `force` is handed to their LibCanUnload.
  virtual void UnloadLibraries(bool force) = 0;

 protected:
  ~ClassManager() = default;
};

// The process's class manager; the caller does not release it. Null before the library is initialised and
// after it is torn down. Threads that are in the manager, or call it, when the process ends wait there until
// it is gone.
ORMUTIL_API ClassManager* GetClassMgr();

}  // namespace orm
