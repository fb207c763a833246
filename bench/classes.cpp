// The class manager beside GLib's types and beside a plain look at the files.
#include <dirent.h>
#include <fcntl.h>
#include <glib-object.h>
#include <ormutil/ClassManager.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "harness/Rooms.h"

namespace {

namespace fs = std::filesystem;
using orm::GetClassMgr;
using orm::String;

constexpr int LIBRARIES = 200;

// A folder of copies of the benchmark's component library, each with `classes` classes.
class Components {
 public:
  Components(int libraries, int classes) : mClasses(std::to_string(classes)) {
    std::string name = (fs::temp_directory_path() / "orm-bench.XXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
    mFolder = name;
    for (int i = 0; i < libraries; ++i) {
      fs::copy_file(ORM_BENCH_COMPONENT, mFolder / ("lib" + std::to_string(i) + ".dll"));
    }
  }
  ~Components() {
    std::error_code ignored;
    fs::remove_all(mFolder, ignored);
  }
  Components(const Components&) = delete;
  Components& operator=(const Components&) = delete;

  void Register() {
    setenv("ORM_BENCH_CLASSES", mClasses.c_str(), 1);
    mCookie = GetClassMgr()->Register(("z:" + mFolder.string()).c_str());
  }
  void Unregister() { GetClassMgr()->Unregister(mCookie); }
  // Makes every file a version that no cache knows.
  void Renew() {
    ++mSeconds;
    const timespec times[2] = {{1'600'000'000 + mSeconds, 0}, {1'600'000'000 + mSeconds, 0}};
    for (int i = 0; i < LIBRARIES; ++i) {
      utimensat(AT_FDCWD, (mFolder / ("lib" + std::to_string(i) + ".dll")).c_str(), times, 0);
    }
  }
  const fs::path& GetFolder() const { return mFolder; }

 private:
  fs::path mFolder;
  std::string mClasses;
  DWORD mCookie = 0;
  time_t mSeconds = 0;
};

void LookAtFiles(const fs::path& folder) {
  DIR* listing = opendir(folder.c_str());
  while (const dirent* entry = readdir(listing)) {
    struct stat status;
    if (fstatat(dirfd(listing), entry->d_name, &status, 0) == 0) bench::Keep(status.st_mtim.tv_sec);
  }
  closedir(listing);
}

// GLib's objects of 1,000 registered types.
void RegisterTypes() {
  for (int i = 0; i < 1000; ++i) {
    const std::string name = "OrmBenchType" + std::to_string(i);
    g_type_register_static_simple(G_TYPE_OBJECT, name.c_str(), sizeof(GObjectClass), nullptr, sizeof(GObject),
                                  nullptr, static_cast<GTypeFlags>(0));
  }
}

void Create(const String& classId, size_t n) {
  const String faceId = "IID_BaseFace";
  while (n--) bench::Keep(GetClassMgr()->CreateInstance(classId, faceId).Get());
}

void AddCreationRow(bench::Table& table) {
  RegisterTypes();
  auto components = std::make_shared<Components>(1, 1000);
  components->Register();
  table.Add(bench::Row{.name = "create an object by class id, library loaded, 1,000 classes",
                       .peer = "g_object_new by g_type_from_name (GLib)",
                       .goal = 1.0,
                       .ours = [components](size_t n) { Create("CID_lib0_00500", n); },
                       .theirs =
                           [](size_t n) {
                             while (n--)
                               g_object_unref(g_object_new(g_type_from_name("OrmBenchType500"), nullptr));
                           }});
}

void AddStartRows(bench::Table& table) {
  auto components = std::make_shared<Components>(LIBRARIES, 3);
  components->Register();
  components->Unregister();
  const auto warm = [components](size_t n) {
    while (n--) {
      components->Register();
      components->Unregister();
    }
  };
  table.Add(bench::Row{.name = "process start, 200 registered libraries, warm cache (their registration)",
                       .peer = "the same, cold",
                       .goal = 0.05,
                       .ours = warm,
                       .theirs =
                           [components](size_t n) {
                             while (n--) {
                               components->Renew();
                               components->Register();
                               components->Unregister();
                             }
                           },
                       .note = "the share of the class manager; both with the end of the registration",
                       .heavy = true});
  table.Add(bench::Row{.name = "process start, 200 registered libraries, warm cache (their registration) ",
                       .peer = "one pass of readdir and fstatat over the files",
                       .goal = 3,
                       .ours = warm,
                       .theirs =
                           [components](size_t n) {
                             while (n--) LookAtFiles(components->GetFolder());
                           },
                       .note = "the peer is the least that finding changed files can cost"});
}

// One library of `size` classes, registered for as long as the operation is kept.
std::shared_ptr<Components> RegisterClasses(size_t size) {
  auto components = std::make_shared<Components>(1, static_cast<int>(size));
  components->Register();
  return components;
}

void AddGrowthRows(bench::Table& table) {
  const std::vector<size_t> sizes = {10, 100, 1000, 10000};
  table.Add(bench::Growth{.name = "create an object by class id, by number of classes",
                          .sizes = sizes,
                          .prepare = [](size_t size) {
                            return [components = RegisterClasses(size)](size_t n) {
                              Create("CID_lib0_00005", n);
                            };
                          }});
  table.Add(bench::Growth{
      .name = "enumerate the classes, by number of classes", .sizes = sizes, .prepare = [](size_t size) {
        return [components = RegisterClasses(size)](size_t n) {
          std::vector<String> ids;
          while (n--) GetClassMgr()->EnumClasses(ids);
          bench::Keep(ids.size());
        };
      }});
}

}  // namespace

void AddClassRows(bench::Table& table) {
  AddCreationRow(table);
  AddStartRows(table);
  AddGrowthRows(table);
}
