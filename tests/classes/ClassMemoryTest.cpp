// The class manager when memory runs out.
#include "Components.h"
#include "support/FailingNew.h"

namespace {

// At each place where memory may run out: for the first registration, and for one that finds other classes.
TEST(ClassManager, LosesNoRegistrationWhenMemoryRunsOut) {
  TestFolder folder;
  const String path = folder.GetPath();
  unsigned seconds = 0;
  folder.Add("plain1");
  folder.Add("beta", 0, "changing.dll");
  for (const bool isKnown : {false, true}) {
    bool failed = true;
    int lacking = 0;
    for (unsigned at = 1; failed; ++at) {
      std::vector<DWORD> cookies;
      const auto registerFolder = [&] { cookies.push_back(GetClassMgr()->Register(path)); };
      cookies.reserve(2);
      if (isKnown) {
        folder.Add("alpha", ++seconds, "changing.dll");
        registerFolder();
        folder.Add("beta", ++seconds, "changing.dll");
      }
      {
        const test::FailingNew failing(at);
        try {
          registerFolder();
        } catch (...) {
          ++lacking;
        }
        failed = failing.HasFailed();
      }
      for (const DWORD cookie : cookies) GetClassMgr()->Unregister(cookie);
      for (const char* id : {"CID_Alpha", "CID_Beta", "CID_Plain1"}) ASSERT_FALSE(IsRegistered(id)) << at;
      GetClassMgr()->UnloadLibraries(false);
      ASSERT_FALSE(IsMapped("changing.dll")) << at;
      ASSERT_TRUE(GetPaths(false).empty()) << at;
    }
    EXPECT_GT(lacking, 10);
  }
}

}  // namespace
