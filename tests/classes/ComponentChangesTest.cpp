// Folders that change under the manager, and its clock.
#include <gmock/gmock.h>

#include <algorithm>

#include "Components.h"
#include "support/ModuleTrace.h"

namespace {

using orm::FacePtr;
using testing::ElementsAre;

// The next call into the manager looks at the folders.
void LetFoldersBeLookedAt() {
  AdvanceClock(3000);
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

}  // namespace
