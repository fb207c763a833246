// Component libraries on disk: registered, loaded when an object is made, replaced, removed, unloaded.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ormutil/ClassManager.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <mutex>
#include <thread>

#include "ErrorText.h"
#include "HostProcess.h"
#include "TestClock.h"
#include "TestFactory.h"
#include "TestFolder.h"
#include "fixtures/Fixture.h"
#include "support/ModuleTrace.h"

namespace {

using orm::BaseFace;
using orm::FacePtr;
using orm::GetClassMgr;
using orm::String;
using testing::ElementsAre;
using testing::HasSubstr;

bool IsRegistered(const char* classId) {
  return GetClassMgr()->IsClassRegistered(classId);
}
std::string LibraryOf(const char* classId) {
  const std::string path = GetClassMgr()->GetClassInfo(classId)->GetLibraryPath().GetBegin();
  return path.substr(path.rfind('\\') + 1);
}
int NumberOf(const char* classId) {
  return FacePtr<Numbered>(classId, "")->GetNumber();
}
std::string RegisterError(const String& path) {
  return Thrown([&] { GetClassMgr()->Register(path); });
}
std::vector<std::string> GetPaths(bool withMasks) {
  std::vector<String> paths;
  FacePtr<orm::ClassManagerPathInfo>("CID_ClassManagerPathInfo", "")->GetPaths(paths, withMasks);
  std::vector<std::string> texts;
  for (const String& path : paths) texts.push_back(path.GetBegin());
  return texts;
}
// The next call into the manager looks at the folders.
void LetFoldersBeLookedAt() {
  AdvanceClock(3000);
}

TEST(ComponentLibrary, IsRegisteredByFolderAndLoadedForTheFirstObject) {
  TestFolder folder;
  folder.Add("alpha");
  folder.Add("beta");
  folder.AddFile("notes.txt", "not a library");
  const DWORD cookie = GetClassMgr()->Register(folder.GetPath());
  EXPECT_TRUE(IsRegistered("CID_Alpha"));
  EXPECT_TRUE(IsRegistered("CID_Beta"));
  EXPECT_FALSE(IsMapped("alpha.dll")) << "loaded to be listed, and freed at once";
  EXPECT_EQ(GetLoads().size(), 2u);

  const auto info = GetClassMgr()->GetClassInfo("CID_Alpha");
  EXPECT_EQ(info->GetLibraryPath(), folder.GetPath("alpha.dll"));
  EXPECT_EQ(info->GetClassData(), orm::Binary("\1\2\3", 3));
  EXPECT_EQ(info->GetFaceData("IID_Numbered").GetSize(), sizeof "CID_Alpha");
  EXPECT_EQ(NumberOf("CID_Alpha"), 1);
  EXPECT_TRUE(IsMapped("alpha.dll"));
  EXPECT_FALSE(IsMapped("beta.dll"));

  EXPECT_EQ(GetClassMgr()->Register(folder.GetPath()), cookie) << "registered once more";
  GetClassMgr()->Unregister(cookie);
  EXPECT_TRUE(IsRegistered("CID_Alpha"));
  GetClassMgr()->Unregister(cookie);
  EXPECT_FALSE(IsRegistered("CID_Alpha"));
  EXPECT_FALSE(IsMapped("alpha.dll")) << "nothing uses it";
  EXPECT_TRUE(GetPaths(false).empty());
}

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

TEST(ComponentLibrary, TheNewestFileMakesTheObjects) {
  TestFolder folder;
  folder.Add("alpha", 100, "old.dll");
  folder.Add("alpha_renewed", 200, "new.dll");
  GetClassMgr()->Register(folder.GetPath("new.dll"));
  const DWORD stamp = GetClassMgr()->GetRegistrationStamp();
  GetClassMgr()->Register(folder.GetPath("old.dll"));
  EXPECT_EQ(LibraryOf("CID_Alpha"), "new.dll") << "whatever the order of registration";
  EXPECT_EQ(NumberOf("CID_Alpha"), 2);
  EXPECT_NE(GetClassMgr()->GetRegistrationStamp(), stamp);

  const auto factory = TestFactory::Make({{"CID_Alpha", {}, {}}});
  const DWORD cookie = GetClassMgr()->Register(FacePtr<orm::ClassFactory>(factory));
  GetClassMgr()->CreateInstance("CID_Alpha", "IID_BaseFace");
  EXPECT_EQ(factory->created, 1) << "factories come first";
  GetClassMgr()->Unregister(cookie);
  EXPECT_EQ(NumberOf("CID_Alpha"), 2);
}

TEST(ComponentLibrary, OfTwoFilesOfOneTimeTheLaterRegisteredCounts) {
  TestFolder folder;
  folder.Add("alpha", 100, "a.dll");
  folder.Add("alpha_renewed", 100, "b.dll");
  const DWORD first = GetClassMgr()->Register(folder.GetPath("b.dll"));
  const DWORD second = GetClassMgr()->Register(folder.GetPath("a.dll"));
  EXPECT_EQ(LibraryOf("CID_Alpha"), "a.dll");
  GetClassMgr()->Unregister(second);
  EXPECT_EQ(LibraryOf("CID_Alpha"), "b.dll");
  GetClassMgr()->Unregister(first);
  EXPECT_FALSE(IsRegistered("CID_Alpha"));
}

TEST(ComponentLibrary, FoldersAreLookedAtEveryThreeSeconds) {
  TestFolder folder;
  folder.Add("alpha");
  const DWORD cookie = GetClassMgr()->Register(folder.GetPath());
  folder.Add("beta");
  EXPECT_FALSE(IsRegistered("CID_Beta"));
  LetFoldersBeLookedAt();
  EXPECT_TRUE(IsRegistered("CID_Beta")) << "added";
  folder.Remove("alpha.dll");
  EXPECT_TRUE(IsRegistered("CID_Alpha"));
  LetFoldersBeLookedAt();
  EXPECT_FALSE(IsRegistered("CID_Alpha")) << "removed";
  EXPECT_TRUE(IsRegistered("CID_Beta"));
  folder.Remove("beta.dll");
  LetFoldersBeLookedAt();
  EXPECT_FALSE(IsRegistered("CID_Beta")) << "the pattern matches nothing any more";
  EXPECT_THAT(GetPaths(true), ElementsAre((folder.GetPath() + "\\*.dll").GetBegin()));
  folder.Add("beta");
  LetFoldersBeLookedAt();
  EXPECT_TRUE(IsRegistered("CID_Beta")) << "the cookie is still there";
  GetClassMgr()->Unregister(cookie);
  EXPECT_FALSE(IsRegistered("CID_Beta"));
}

TEST(ComponentLibrary, AFolderThatIsMadeAnewIsFoundAgain) {
  TestFolder folder;
  folder.Add("alpha");
  GetClassMgr()->Register(folder.GetPath());
  std::filesystem::remove_all(folder.GetFile(""));
  LetFoldersBeLookedAt();
  EXPECT_FALSE(IsRegistered("CID_Alpha"));
  EXPECT_THAT(GetPaths(false), ElementsAre(folder.GetPath().GetBegin())) << "the cookie stays valid";
  LetFoldersBeLookedAt();
  EXPECT_FALSE(IsRegistered("CID_Alpha")) << "there is nothing to watch";
  std::filesystem::create_directory(folder.GetFile(""));
  folder.Add("alpha");
  LetFoldersBeLookedAt();
  EXPECT_TRUE(IsRegistered("CID_Alpha"));
  folder.Add("beta");
  LetFoldersBeLookedAt();
  EXPECT_TRUE(IsRegistered("CID_Beta")) << "the new folder is watched";
}

TEST(ComponentLibrary, AReplacedFileTakesEffectWhenTheOldOneIsFreed) {
  TestFolder folder;
  folder.Add("alpha", 100);
  GetClassMgr()->Register(folder.GetPath());
  FacePtr<Numbered> object("CID_Alpha", "");
  folder.Add("alpha_renewed", 200, "alpha.dll");
  LetFoldersBeLookedAt();
  EXPECT_EQ(NumberOf("CID_Alpha"), 1) << "the loaded version stays in force";
  EXPECT_EQ(object->GetNumber(), 1);
  object.Release();
  GetClassMgr()->UnloadLibraries(false);
  LetFoldersBeLookedAt();
  EXPECT_EQ(NumberOf("CID_Alpha"), 2);

  GetClassMgr()->UnloadLibraries(false);
  folder.Add("beta", 300, "alpha.dll");
  LetFoldersBeLookedAt();
  EXPECT_FALSE(IsRegistered("CID_Alpha")) << "not loaded: at once";
  EXPECT_TRUE(IsRegistered("CID_Beta"));
}

TEST(ComponentLibrary, IdleOnesAreFreedAfterFiveSeconds) {
  TestFolder folder;
  folder.Add("alpha");
  GetClassMgr()->Register(folder.GetPath());
  NumberOf("CID_Alpha");
  EXPECT_TRUE(IsRegistered("CID_Alpha"));
  EXPECT_TRUE(IsMapped("alpha.dll"));
  AdvanceClock(5000);
  EXPECT_TRUE(IsRegistered("CID_Alpha"));
  EXPECT_FALSE(IsMapped("alpha.dll"));
}

TEST(ComponentLibrary, TheIntervalsEndToTheMillisecond) {
  TestFolder folder;
  folder.Add("alpha");
  GetClassMgr()->Register(folder.GetPath());
  NumberOf("CID_Alpha");
  folder.Add("beta");
  AdvanceClock(2999);
  EXPECT_FALSE(IsRegistered("CID_Beta"));
  AdvanceClock(1);
  EXPECT_TRUE(IsRegistered("CID_Beta"));
  folder.Remove("beta.dll");
  AdvanceClock(1999);
  EXPECT_TRUE(IsRegistered("CID_Beta"));
  EXPECT_TRUE(IsMapped("alpha.dll")) << "4999 ms after the start";
  AdvanceClock(1);
  EXPECT_TRUE(IsRegistered("CID_Beta")) << "looked at 2000 ms ago";
  EXPECT_FALSE(IsMapped("alpha.dll"));
  AdvanceClock(999);
  EXPECT_TRUE(IsRegistered("CID_Beta"));
  AdvanceClock(1);
  EXPECT_FALSE(IsRegistered("CID_Beta"));
}

TEST(ComponentLibrary, RegisteredAfterAFactoryStandsBehindIt) {
  TestFolder folder;
  folder.Add("alpha", 100, "old.dll");
  folder.Add("alpha_renewed", 200, "new.dll");
  const auto factory = TestFactory::Make({{"CID_Alpha", {}, {}}});
  const DWORD cookie = GetClassMgr()->Register(FacePtr<orm::ClassFactory>(factory));
  for (const char* name : {"old.dll", "new.dll"}) GetClassMgr()->Register(folder.GetPath(name));
  GetClassMgr()->CreateInstance("CID_Alpha", "IID_BaseFace");
  EXPECT_EQ(factory->created, 1);
  GetClassMgr()->Unregister(cookie);
  EXPECT_EQ(LibraryOf("CID_Alpha"), "new.dll");
}

TEST(ComponentLibrary, AChangedFileMovesTheStampByOne) {
  TestFolder folder;
  folder.Add("alpha", 100);
  GetClassMgr()->Register(folder.GetPath());
  const DWORD stamp = GetClassMgr()->GetRegistrationStamp();
  folder.Add("alpha_renewed", 200, "alpha.dll");
  LetFoldersBeLookedAt();
  EXPECT_EQ(GetClassMgr()->GetRegistrationStamp(), stamp + 1);
}

TEST(ComponentLibrary, AnUnchangedFileIsNotLookedUpAgain) {
  TestFolder folder;
  folder.Add("alpha");
  test::ModuleTrace trace("ClsMgr_ClassManagerImpl", 't');
  const auto lookUps = [&trace] {
    const std::vector<std::string> lines = trace.Take();
    return std::count_if(lines.begin(), lines.end(),
                         [](const std::string& line) { return line.find("GetShared()") != line.npos; });
  };
  GetClassMgr()->Register(folder.GetPath());
  EXPECT_NE(lookUps(), 0);
  const DWORD stamp = GetClassMgr()->GetRegistrationStamp();
  GetClassMgr()->Register(folder.GetPath());
  EXPECT_EQ(lookUps(), 0);
  EXPECT_EQ(GetClassMgr()->GetRegistrationStamp(), stamp);
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

// Registered by the folder or by its name, and with it, while it is listed, by the same or the other one.
TEST(ComponentLibrary, MayRegisterItselfWhileItIsListed) {
  TestFolder folder;
  folder.Add("registering");
  folder.Add("alpha");
  const String paths[] = {folder.GetPath(), folder.GetPath("registering.dll")};
  unsigned version = 0;
  for (const String& outer : paths) {
    for (const String& inner : paths) {
      folder.Add("registering", ++version);
      setenv("ORM_FIXTURE_PATH", inner.GetBegin(), 1);
      const DWORD cookie = GetClassMgr()->Register(outer);
      unsetenv("ORM_FIXTURE_PATH");
      const DWORD innerCookie = GetClassMgr()->Register(inner);
      EXPECT_EQ(innerCookie == cookie, inner == outer);
      EXPECT_EQ(GetPaths(false).size(), 1u);
      EXPECT_EQ(GetPaths(true).size(), inner == outer ? 1u : 2u);
      EXPECT_EQ(NumberOf("CID_Registering"), 1);
      for (const DWORD each : {cookie, innerCookie}) {
        GetClassMgr()->Unregister(each);
        EXPECT_TRUE(IsRegistered("CID_Registering")) << "used still";
      }
      GetClassMgr()->Unregister(innerCookie);
      EXPECT_FALSE(IsRegistered("CID_Registering"));
      EXPECT_TRUE(GetPaths(false).empty());
      EXPECT_FALSE(IsMapped("registering.dll"));
    }
  }
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

struct BadLibrary {
  const char* fixture;
  const char* first;   // error of the registration
  const char* second;  // of the next one, with the same file
};

class BadLibraries : public testing::TestWithParam<BadLibrary> {};

TEST_P(BadLibraries, AreRefusedAndLoadedOnlyOnce) {
  TestFolder folder;
  folder.Add(GetParam().fixture, 0, "bad.dll");
  const String path = folder.GetPath("bad.dll");
  const std::string context = std::string(" Cannot register library(ies) '") + path.GetBegin() + "'.; ";
  const auto expected = [&](const std::string& error) { return error.substr(0, 8) + context + error; };
  EXPECT_EQ(RegisterError(path), expected(GetParam().first));
  EXPECT_EQ(RegisterError(path), expected(GetParam().second));
  EXPECT_FALSE(IsMapped("bad.dll"));
  const bool isCached = std::string(GetParam().first) != GetParam().second;
  EXPECT_EQ(GetLoads().size(), isCached ? 1u : 2u);
  folder.Add("beta");
  EXPECT_EQ(RegisterError(folder.GetPath()), "nothing") << "one bad file of a folder is passed over";
  EXPECT_TRUE(IsRegistered("CID_Beta"));
}

constexpr const char* NOTHING_IN_CACHE =
    "e7230003 The library doesn't export classes or necessary functions.";
INSTANTIATE_TEST_SUITE_P(
    All, BadLibraries,
    testing::Values(
        BadLibrary{"missing_export", "e7230003 The library doesn't export necessary functions.",
                   NOTHING_IN_CACHE},
        BadLibrary{"no_classes", "e7230003 The library doesn't export any class.", NOTHING_IN_CACHE},
        BadLibrary{"throws_error", "000004d2 The fixture failed.", "000004d2 The fixture failed."},
        BadLibrary{"throws_own", "e7210001 The fixture has its own error.",
                   "e7210001 The fixture has its own error."},
        BadLibrary{"throws_number", "e7210001 The component threw an object that is not an error.",
                   "e7210001 The component threw an object that is not an error."}),
    [](const auto& test) { return std::string(test.param.fixture); });

TEST(ComponentLibrary, FilesThatAreNoLibrariesAreRefused) {
  TestFolder folder;
  folder.AddFile("text.dll", "no shared object");
  folder.AddFile("empty.dll", "");
  folder.Add("alpha");
  std::ifstream whole(folder.GetFile("alpha.dll"), std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(whole), {}};
  folder.AddFile("head.dll", bytes.substr(0, 64));
  folder.AddFile("half.dll", bytes.substr(0, 6000));
  const UINT mode = SetErrorMode(SEM_NOOPENFILEERRORBOX);
  for (const char* name : {"text.dll", "empty.dll", "head.dll", "half.dll"}) {
    EXPECT_THAT(RegisterError(folder.GetPath(name)), HasSubstr("000000c1 Cannot register")) << name;
  }
  // Nobody ever writes into it: whoever opens it waits, and all processes wait for the cache behind it.
  ASSERT_EQ(mkfifo(folder.GetFile("pipe.dll").c_str(), 0600), 0);
  EXPECT_THAT(RegisterError(folder.GetPath("pipe.dll")), HasSubstr("00000005 Cannot register"));
  EXPECT_EQ(SetErrorMode(mode), SEM_NOOPENFILEERRORBOX) << "the process's own mode is back";
  EXPECT_EQ(RegisterError(folder.GetPath()), "nothing");
  EXPECT_TRUE(IsRegistered("CID_Alpha"));
}

TEST(ComponentLibrary, CreationReportsTheLibrarysFailure) {
  TestFolder folder;
  folder.Add("failing_creation");
  folder.Add("beta");
  GetClassMgr()->Register(folder.GetPath());
  const auto create = [](const char* id) {
    return Thrown([id] { GetClassMgr()->CreateInstance(id, "IID_BaseFace"); });
  };
  EXPECT_THAT(create("CID_Throws"), HasSubstr("000004d2 The fixture failed."));
  EXPECT_THAT(create("CID_MakesNothing"), HasSubstr("e7230001 The class is not registered."));
  GetClassMgr()->UnloadLibraries(true);
  EXPECT_TRUE(IsMapped("failing_creation.dll")) << "it does not say that it may go";

  folder.Remove("beta.dll");
  EXPECT_THAT(create("CID_Beta"), HasSubstr("0000007e Cannot create instance"))
      << "deleted between enumeration and creation";
  folder.AddFile("beta.dll", "now something else");
  EXPECT_THAT(create("CID_Beta"), HasSubstr("000000c1 Cannot create instance"));
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

TEST(ComponentLibrary, TheProcessMayEndWhileThreadsUseTheManager) {
  TestFolder folder;
  folder.Add("alpha");
  for (int i = 0; i < 12; ++i) {
    ASSERT_THAT(HostProcess::Run({"exit-busy", folder.GetPathText()}), ElementsAre("busy")) << i;
  }
  EXPECT_THAT(HostProcess::Run({"exit-listing"}), ElementsAre("listing"));
}

TEST(ComponentLibrary, PathsAreChecked) {
  TestFolder folder;
  folder.Add("alpha");
  const std::string path = folder.GetPath().GetBegin();
  const auto error = [](const std::string& text) {
    const std::string layers = RegisterError(text.c_str());
    EXPECT_THAT(layers,
                layers == "nothing" ? HasSubstr("") : HasSubstr("Cannot register library(ies) '" + text));
    return layers.substr(0, 8) +
           layers.substr(layers.rfind("; ") == std::string::npos ? 8 : layers.rfind("; ") + 10);
  };
  EXPECT_EQ(error(path + "\\a|b"), "e7230004 The specified path is invalid.");
  EXPECT_EQ(error("\\alpha.dll"), "e7230004 The specified path is invalid.");
  EXPECT_EQ(error(path + "\\gamma.dll"), "e7230005 The specified path doesn't exist.");
  EXPECT_EQ(error(path + "\\missing\\*.dll"), "e7230005 The specified path doesn't exist.");
  EXPECT_EQ(error(path + "\\alpha.dll\\*.dll"), "e7230005 The specified path doesn't exist.");
  EXPECT_EQ(error(path + "\\alpha.dll\\"), "e7230005 The specified path doesn't exist.");
  EXPECT_EQ(error(path + "\\alpha.dll/  "), "e7230005 The specified path doesn't exist.");
  EXPECT_EQ(error(path + "\\*.xyz").substr(0, 9), "00000002 ");
  EXPECT_TRUE(GetPaths(false).empty()) << "nothing is kept of what failed";

  char system[MAX_PATH];
  ASSERT_NE(GetSystemDirectoryA(system, sizeof system), 0u);
  EXPECT_EQ(error(system), "e7230004 The specified path is Windows system path.");
  std::string below = std::string(system) + "\\components";
  CreateDirectoryA(below.c_str(), nullptr);
  EXPECT_EQ(error(below), "e7230004 The specified path is Windows system path.");
  for (char& c : below) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  EXPECT_EQ(error(below), "e7230004 The specified path is Windows system path.");
  const std::string sibling = std::string(system) + "2";
  ASSERT_TRUE(CreateDirectoryA(sibling.c_str(), nullptr));
  EXPECT_EQ(error(sibling).substr(0, 9), "00000002 ") << "accepted, but empty";
}

TEST(ComponentLibrary, MasksOfOneDirectoryShareItsLibraries) {
  TestFolder folder;
  folder.Add("alpha");
  folder.Add("beta");
  const DWORD one = GetClassMgr()->Register(folder.GetPath("ALPHA.dll"));
  const DWORD some = GetClassMgr()->Register(folder.GetPath("?l*.DLL"));
  const DWORD all = GetClassMgr()->Register(folder.GetPath());
  std::string upper = folder.GetPath().GetBegin();
  for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  EXPECT_EQ(GetClassMgr()->Register(upper.c_str()), all);
  EXPECT_EQ(GetPaths(false).size(), 1u);
  EXPECT_THAT(GetPaths(true),
              ElementsAre(HasSubstr("\\*.dll"), HasSubstr("\\?l*.DLL"), HasSubstr("\\ALPHA.dll")));
  EXPECT_EQ(GetLoads().size(), 2u);

  GetClassMgr()->Unregister(all);
  GetClassMgr()->Unregister(all);
  EXPECT_FALSE(IsRegistered("CID_Beta"));
  EXPECT_TRUE(IsRegistered("CID_Alpha"));
  GetClassMgr()->Unregister(one);
  EXPECT_TRUE(IsRegistered("CID_Alpha"));
  GetClassMgr()->Unregister(some);
  EXPECT_FALSE(IsRegistered("CID_Alpha"));
}

TEST(ComponentLibrary, TooManyClassesForTheCacheAreStillRegistered) {
  TestFolder folder;
  folder.Add("many");
  const DWORD cookie = GetClassMgr()->Register(folder.GetPath());
  EXPECT_TRUE(IsRegistered("CID_Many0999"));
  EXPECT_EQ(NumberOf("CID_Many0500"), 1);
  GetClassMgr()->Unregister(cookie);
  EXPECT_FALSE(IsRegistered("CID_Many0999"));
}

}  // namespace
