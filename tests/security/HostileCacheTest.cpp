// Lies in the class cache, as another user of a shared machine can write them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ormutil/Path.h>
#include <win32.h>

#include "ClassCacheBlock.h"
#include "ClassRecord.h"
#include "classes/HostProcess.h"
#include "classes/TestFolder.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// Stores a class list for the library file under its present version.
void Lie(const orm::String& path, const std::vector<orm::ClassRecord>& classes) {
  orm::Path file;
  ASSERT_TRUE(file.Set(path));
  HANDLE mutex = OpenMutexA(SYNCHRONIZE, FALSE, "zr41_clsmgr_mtx");
  HANDLE mapping = OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, "zr41_clsmgr_map");
  void* view = MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0);
  ASSERT_NE(view, nullptr);
  WaitForSingleObject(mutex, INFINITE);
  const bool stored = orm::CacheBlock(static_cast<BYTE*>(view))
                          .Store(orm::CacheKey(path), file.GetLastWriteTime(), WriteClassList(classes), 1);
  ReleaseMutex(mutex);
  UnmapViewOfFile(view);
  CloseHandle(mapping);
  CloseHandle(mutex);
  ASSERT_TRUE(stored);
}

TEST(HostileCache, LeadsToNoOtherLibrary) {
  TestFolder folder;
  folder.Add("alpha");
  folder.Add("beta");
  const std::vector<orm::FaceRecord> faces = {{orm::HashedId("IID_Numbered"), {}}};
  std::vector<orm::ClassRecord> lies = {{orm::HashedId("CID_Beta"), {}, faces},
                                        {orm::HashedId("CID_Invented"), {}, faces}};
  if (lies[1].id < lies[0].id) std::swap(lies[0], lies[1]);
  Lie(folder.GetPath("alpha.dll"), lies);
  const std::string path = folder.GetPathText("alpha.dll");
  EXPECT_EQ(HostProcess::Run({"register", path, "classes"}).size(), 3u) << "it is believed so far";
  for (const char* id : {"CID_Beta", "CID_Invented", "CID_Alpha"}) {
    std::string output;
    for (const std::string& line : HostProcess::Run({"register", path, "create", id})) output += line + '\n';
    EXPECT_THAT(output, HasSubstr("The class is not registered.")) << id;
  }
  EXPECT_THAT(GetLoads(), ElementsAre("CID_Alpha", "CID_Alpha")) << "asked twice for what it does not have";
  // The next version is not lied about.
  folder.Add("alpha", 100);
  EXPECT_THAT(HostProcess::Run({"register", path, "create", "CID_Alpha"}), ElementsAre("registered", "1"));
}

}  // namespace
