// The exported creation function and its routing to remote managers.
#include <ormutil/ClassManager.h>
#include <ormutil/CreateInstance.h>
#include <ormutil/Thread.h>

namespace orm {

FacePtr<BaseFace> CreateInstance(const String& server, const String& classId, const String& faceId) {
  if (!server.IsEmpty()) {
    // A thread's own choice of remote manager comes before the registered one.
    if (const FacePtr<RemoteThreadContext> context = Thread::GetData(TID_RemoteManager)) {
      return context->GetRemoteManager()->CreateInstance(server, classId, faceId);
    }
    if (GetClassMgr()->IsClassRegistered(CID_RemoteManager)) {
      const FacePtr<RemoteManager> manager(CID_RemoteManager, "");
      return manager->CreateInstance(server, classId, faceId);
    }
  }
  return GetClassMgr()->CreateInstance(classId, faceId);
}

String ZRServer::GetBinding() {
  return "ormserver";
}

}  // namespace orm
