// Creation in another process, and the choice of the remote manager.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ormutil/ClassManager.h>
#include <ormutil/CreateInstance.h>
#include <ormutil/Thread.h>

#include <optional>
#include <thread>

#include "ErrorText.h"
#include "HostProcess.h"
#include "TestFactory.h"
#include "TestFolder.h"
#include "fixtures/Fixture.h"

namespace {

using orm::BaseFace;
using orm::CreateInstance;
using orm::FacePtr;
using orm::GetClassMgr;
using orm::String;
using testing::HasSubstr;

// Notes what it was asked for.
class NotingManager : public orm::FaceObject<orm::RemoteManager> {
 public:
  FacePtr<BaseFace> CreateInstance(const String& server, const String& classId,
                                   const String& faceId) override {
    if (refusal) throw *refusal;
    asked = std::string(server.GetBegin()) + " " + classId.GetBegin() + " " + faceId.GetBegin();
    return FacePtr<BaseFace>::Adopt(new PlainObject());
  }
  std::string asked;
  std::optional<orm::Error> refusal;
};

class Context : public orm::FaceObject<orm::RemoteThreadContext> {
 public:
  explicit Context(const FacePtr<NotingManager>& manager) : mManager(manager) {}
  void ContextOperation1() override {}
  void ContextOperation2() override {}
  FacePtr<orm::RemoteManager> GetRemoteManager() override { return mManager; }

 private:
  FacePtr<NotingManager> mManager;
};

FacePtr<TestFactory> RegisterLocalClass() {
  const auto factory = TestFactory::Make({{"CID_Local", {}, {}}});
  GetClassMgr()->Register(FacePtr<orm::ClassFactory>(factory));
  return factory;
}

TEST(RemoteCreation, WithoutARemoteManagerTheObjectIsLocal) {
  const auto factory = RegisterLocalClass();
  EXPECT_TRUE(CreateInstance("somewhere", "CID_Local", "IID_BaseFace"));
  EXPECT_EQ(factory->created, 1);
  EXPECT_THAT(Thrown([] { CreateInstance("somewhere", "CID_None", "IID_X"); }),
              HasSubstr("Cannot create instance of class 'CID_None' with interface 'IID_X'."));
}

TEST(RemoteCreation, TheThreadsContextComesFirst) {
  const auto factory = RegisterLocalClass();
  const auto noting = FacePtr<NotingManager>::Adopt(new NotingManager());
  orm::Thread::SetData(orm::TID_RemoteManager, FacePtr<BaseFace>::Adopt(new Context(noting)));
  CreateInstance("", "CID_Local", "IID_BaseFace");
  EXPECT_EQ(noting->asked, "") << "an empty server name is local";
  CreateInstance("there", "CID_Local", "IID_BaseFace");
  EXPECT_EQ(noting->asked, "there CID_Local IID_BaseFace");
  EXPECT_EQ(factory->created, 1);
  std::thread([] { CreateInstance("there", "CID_Local", "IID_BaseFace"); }).join();
  EXPECT_EQ(factory->created, 2) << "another thread has no context";
  orm::Thread::SetData(orm::TID_RemoteManager, FacePtr<BaseFace>::Adopt(new PlainObject()));
  CreateInstance("there", "CID_Local", "IID_BaseFace");
  EXPECT_EQ(factory->created, 3) << "an item of another face is none";
  orm::Thread::SetData(orm::TID_RemoteManager, nullptr);
}

TEST(RemoteCreation, ErrorsPassUnchanged) {
  RegisterLocalClass();
  const auto noting = FacePtr<NotingManager>::Adopt(new NotingManager());
  noting->refusal = orm::Error(77, "It is broken over there.");
  noting->refusal->AddLayer(78, "It cannot be made over there.", true);
  const auto create = [] { return Thrown([] { CreateInstance("there", "CID_Local", "IID_BaseFace"); }); };
  const char* const refusal = "0000004e It cannot be made over there.; 0000004d It is broken over there.";
  orm::Thread::SetData(orm::TID_RemoteManager, FacePtr<BaseFace>::Adopt(new Context(noting)));
  EXPECT_EQ(create(), refusal);
  orm::Thread::SetData(orm::TID_RemoteManager, nullptr);

  // The registered manager's refusal, and the errors of its own creation, which is a local one.
  const auto factory = TestFactory::Make({{orm::CID_RemoteManager, {}, {}}});
  GetClassMgr()->Register(FacePtr<orm::ClassFactory>(factory));
  factory->onCreate = [&](const String&, FacePtr<BaseFace>& object) { object = noting; };
  EXPECT_EQ(create(), refusal);
  const std::string context =
      " Cannot create instance of class 'CID_RemoteManager' with interface 'IID_RemoteManager'.; ";
  factory->onCreate = [](const String&, FacePtr<BaseFace>& object) {
    object = FacePtr<BaseFace>::Adopt(new PlainObject());
  };
  EXPECT_EQ(create(), "e7230002" + context + "e7230002 The interface 'IID_RemoteManager' is not supported.");
  factory->onCreate = [](const String&, FacePtr<BaseFace>&) {};
  EXPECT_EQ(create(), "e7230001" + context + "e7230001 The class is not registered.");
}

TEST(RemoteCreation, TheRegisteredManagerReachesAnotherProcess) {
  TestFolder remote, local;
  remote.Add("alpha");
  local.Add("remote_manager");
  GetClassMgr()->Register(local.GetPath());
  const std::string socket = local.GetFile("socket").string();
  HostProcess server({socket, remote.GetPath().GetBegin()}, 0, ORM_REMOTE_SERVER);
  ASSERT_EQ(server.ReadLine(), "listening");

  FacePtr<Numbered> object = CreateInstance(socket.c_str(), "CID_Alpha", "IID_Numbered");
  EXPECT_EQ(object->GetNumber(), 1);
  EXPECT_FALSE(IsMapped("alpha.dll")) << "it lives over there";
  object.Release();
  EXPECT_EQ(Thrown([&] { CreateInstance(socket.c_str(), "CID_None", "IID_Numbered"); }),
            "e7230001 Cannot create instance of class 'CID_None' with interface 'IID_Numbered'.; "
            "e7230001 The class is not registered.")
      << "the error that the other process had";
  EXPECT_EQ(Thrown([] { CreateInstance("/nowhere", "CID_Alpha", "IID_Numbered"); }),
            "000004d2 The server cannot be reached.");
  object = CreateInstance(socket.c_str(), "CID_Alpha", "IID_Numbered");
  server.Kill();
  EXPECT_EQ(Thrown([&] { object->GetNumber(); }), "000004d2 The server cannot be reached.");
}

}  // namespace
