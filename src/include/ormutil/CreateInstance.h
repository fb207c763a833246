// Creation of objects, here or in another process.
//
// CreateInstance(server, classId, faceId), declared in FacePtr.h, creates the object in this process when the
// server name is empty. With a name it asks the remote manager of the calling thread, or else the class
// CID_RemoteManager; when there is neither, the object is created here. Remote managers are components of
// their own: the faces below are all that is agreed with them.
#pragma once

#include <ormutil/FacePtr.h>

namespace orm {

// Name of the thread's data item (Thread::SetData) that holds its RemoteThreadContext.
inline constexpr const char* TID_RemoteManager = "TID_RemoteManager";
// Class of the default remote manager.
inline constexpr const char* CID_RemoteManager = "CID_RemoteManager";
// Class of the marshalling helper that remote managers share; declared for them, not used here.
inline constexpr const char* CID_MarshallerUtils = "CID_MarshallerUtils";

// Creates objects in other processes. A remote manager may add operations after this one.
struct RemoteManager : BaseFace {
  static constexpr const char* FACE_ID = "IID_RemoteManager";

  // The face of a new object on `server`; throws an Error when it cannot be made.
  virtual FacePtr<BaseFace> CreateInstance(const BaseString<MbcsTraits>& server,
                                           const BaseString<MbcsTraits>& classId,
                                           const BaseString<MbcsTraits>& faceId) = 0;
};

// A thread's choice of remote manager. The first two operations belong to the components that set the
// context; creation uses the third alone.
struct RemoteThreadContext : BaseFace {
  static constexpr const char* FACE_ID = "IID_RemoteThreadContext";

  virtual void ContextOperation1() = 0;
  virtual void ContextOperation2() = 0;
  // The remote manager that the calling thread is to use; never empty.
  virtual FacePtr<RemoteManager> GetRemoteManager() = 0;
};

class ZRServer {
 public:
  // The name of the binding under which the server process of the family is reached: "ormserver".
  ORMUTIL_API static BaseString<MbcsTraits> GetBinding();
};

}  // namespace orm
