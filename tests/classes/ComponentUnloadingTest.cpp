// When component libraries are freed, and what they and others may do meanwhile.
#include <gmock/gmock.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "Components.h"
#include "HostProcess.h"
#include "TestFactory.h"
#include "support/Sanitizers.h"

namespace {

using orm::BaseFace;
using orm::FacePtr;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(ComponentLibrary, TenInTurnLeaveNoMapping) {
  TestFolder folder;
  for (int i = 1; i <= 10; ++i) folder.Add("plain" + std::to_string(i));
  GetClassMgr()->Register(folder.GetPath());
  for (int i = 1; i <= 10; ++i) {
    const std::string name = "plain" + std::to_string(i);
    const std::string classId = "CID_Plain" + std::to_string(i);
    FacePtr<Numbered> object(classId.c_str(), "");
    EXPECT_EQ(object->GetNumber(), i);
    GetClassMgr()->UnloadLibraries(false);
    EXPECT_TRUE(IsMapped(name + ".dll")) << "an object is alive";
    object.Release();
    GetClassMgr()->UnloadLibraries(false);
    EXPECT_FALSE(IsMapped(name + ".dll"));
    EXPECT_TRUE(IsRegistered(classId.c_str())) << "its classes stay";
  }
  EXPECT_FALSE(IsMapped("plain"));
}

TEST(ComponentLibrary, IsListedOnceMoreByWhatIsLoadedWhenItComesBack) {
  TestFolder folder;
  folder.Add("stubborn");
  for (size_t round = 1; round <= 3; ++round) {
    const DWORD cookie = GetClassMgr()->Register(folder.GetPath());
    NumberOf("CID_Stubborn");
    EXPECT_EQ(GetLoads().size(), 2u) << "to be listed, and for the first object";
    GetClassMgr()->Unregister(cookie);
    EXPECT_FALSE(IsRegistered("CID_Stubborn"));
  }
  GetClassMgr()->UnloadLibraries(true);
  GetClassMgr()->Register(folder.GetPath());
  EXPECT_TRUE(IsRegistered("CID_Stubborn")) << "from the cache";
  EXPECT_FALSE(IsMapped("stubborn.dll"));
  EXPECT_EQ(GetLoads().size(), 2u);
}

TEST(ComponentLibrary, IsAskedBeforeItIsFreed) {
  TestFolder folder;
  folder.Add("stubborn");
  const DWORD cookie = GetClassMgr()->Register(folder.GetPath());
  NumberOf("CID_Stubborn");
  GetClassMgr()->UnloadLibraries(false);
  EXPECT_TRUE(IsMapped("stubborn.dll"));
  GetClassMgr()->Unregister(cookie);
  EXPECT_FALSE(IsRegistered("CID_Stubborn"));
  EXPECT_TRUE(IsMapped("stubborn.dll")) << "stays until it agrees";
  EXPECT_THAT(GetPaths(true), ElementsAre()) << "no mask";
  EXPECT_THAT(GetPaths(false), ElementsAre(folder.GetPath().GetBegin()));
  GetClassMgr()->UnloadLibraries(true);
  EXPECT_FALSE(IsMapped("stubborn.dll"));
  EXPECT_THAT(GetPaths(false), ElementsAre());
}

TEST(ComponentLibrary, StaysWhileAnObjectIsBeingMade) {
  TestFolder folder;
  folder.Add("alpha");
  folder.Add("calling_back");
  GetClassMgr()->Register(folder.GetPath());
  const auto factory = TestFactory::Make({{"CID_Alpha", {}, {}}});
  factory->onCreate = [](const String&, FacePtr<BaseFace>& object) {
    // Within the other library's creation, which this unload must not take away.
    std::thread([] { GetClassMgr()->UnloadLibraries(true); }).join();
    object = FacePtr<BaseFace>::Adopt(new PlainObject());
  };
  GetClassMgr()->Register(FacePtr<orm::ClassFactory>(factory));
  EXPECT_EQ(NumberOf("CID_CallingBack"), 1);
  EXPECT_EQ(factory->created, 1);
}

TEST(ComponentLibrary, StaysUntilARefusedObjectIsGone) {
  TestFolder folder;
  folder.Add("careless");
  GetClassMgr()->Register(folder.GetPath());
  for (int i = 0; i < 2; ++i) {  // loaded for it, and loaded already
    EXPECT_THAT(Thrown([] { GetClassMgr()->CreateInstance("CID_Careless", "IID_Numbered"); }),
                HasSubstr("e7230002 The interface 'IID_Numbered' is not supported."));
    EXPECT_TRUE(IsMapped("careless.dll"));
  }
  for (int i = 0; i < 2; ++i) {
    EXPECT_THAT(Thrown([] { GetClassMgr()->CreateInstance("CID_CarelessThrows", "IID_BaseFace"); }),
                HasSubstr("000004d2 The fixture failed."));
    EXPECT_TRUE(IsMapped("careless.dll"));
    GetClassMgr()->UnloadLibraries(false);
    EXPECT_FALSE(IsMapped("careless.dll")) << "the creation has ended";
  }
}

TEST(ComponentLibrary, AChainOfHoldersIsFreedInOneCall) {
  TestFolder folder;
  folder.Add("alpha");  // offered for unloading before its holder
  folder.Add("calling_back");
  GetClassMgr()->Register(folder.GetPath());
  FacePtr<Numbered> object("CID_CallingBack", "");
  EXPECT_TRUE(IsMapped("alpha.dll"));
  // Somebody else keeps the object of alpha until calling_back's object is gone.
  object.Release();
  GetClassMgr()->UnloadLibraries(false);
  EXPECT_FALSE(IsMapped("alpha.dll"));
  EXPECT_FALSE(IsMapped("calling_back.dll"));
}

TEST(ComponentLibrary, MayUnregisterItselfWhileItIsLoaded) {
  TestFolder folder;
  folder.Add("registering");
  const DWORD cookie = GetClassMgr()->Register(folder.GetPath());
  setenv("ORM_FIXTURE_COOKIE", std::to_string(cookie).c_str(), 1);
  EXPECT_EQ(NumberOf("CID_Registering"), 1) << "it was registered when it was asked for";
  unsetenv("ORM_FIXTURE_COOKIE");
  EXPECT_FALSE(IsRegistered("CID_Registering"));
  GetClassMgr()->UnloadLibraries(false);
  EXPECT_FALSE(IsMapped("registering.dll"));
  EXPECT_TRUE(GetPaths(false).empty());
}

TEST(ComponentLibrary, MayUnloadOthersWhileItIsAskedItself) {
  TestFolder folder;
  folder.Add("calling_back");
  const DWORD cookie = GetClassMgr()->Register(folder.GetPath());
  EXPECT_EQ(NumberOf("CID_CallingBack"), 1);
  GetClassMgr()->Unregister(cookie);  // its answer must find its code still there
  EXPECT_FALSE(IsMapped("calling_back.dll"));
}

// Creating shares the manager's lock; registering and unloading hold it alone. The objects
// are released by the thread that unloads, since the last steps of a Release run in the library's own code,
// after it has said that it may go.
TEST(ComponentLibrary, ThreadsCreateWhileItIsUnloadedAndRegisteredAnew) {
  TestFolder folder;
  folder.Add("alpha");
  folder.Add("beta");
  GetClassMgr()->Register(folder.GetPath());
  constexpr int THREADS = 3;
  std::atomic<int> running{THREADS};
  std::mutex mutex;
  std::vector<FacePtr<Numbered>> made;
  const auto release = [&] {
    const std::lock_guard lock(mutex);
    made.clear();
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < THREADS; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 500; ++i) {
        FacePtr<Numbered> object((t + i) % 3 == 0 ? "CID_Beta" : "CID_Alpha", "");
        EXPECT_EQ(object->GetNumber(), 1);
        const std::lock_guard lock(mutex);
        made.push_back(std::move(object));
      }
      --running;
    });
  }
  while (running != 0) {
    release();
    GetClassMgr()->UnloadLibraries(true);
    GetClassMgr()->Unregister(GetClassMgr()->Register(folder.GetPath("alpha.dll")));
    EXPECT_TRUE(IsRegistered("CID_Alpha"));
  }
  for (std::thread& thread : threads) thread.join();
  release();
  GetClassMgr()->UnloadLibraries(false);
  EXPECT_FALSE(IsMapped("alpha.dll")) << "no creation is still counted";
}

TEST(ComponentLibrary, TheProcessMayEndWhileThreadsUseTheManager) {
  TestFolder folder;
  folder.Add("alpha");
  for (int i = 0; i < 12; ++i) {
    ASSERT_THAT(HostProcess::Run({"exit-busy", folder.GetPathText()}), ElementsAre("busy")) << i;
  }
  // What memcheck counts as lost there is what the thread that never ends still holds.
  if (!test::IsUnderMemcheck()) {
    EXPECT_THAT(HostProcess::Run({"exit-listing"}), ElementsAre("listing"));
  }
}

}  // namespace
