// Component libraries on disk: what is registered, by which paths, and what is refused.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cctype>
#include <fstream>

#include "Components.h"
#include "TestFactory.h"

namespace {

using orm::FacePtr;
using testing::ElementsAre;
using testing::HasSubstr;

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
