// The class manager beside GLib's types and beside a plain look at the files.
#include <ormutil/ClassManager.h>

// Behind our own headers: it defines FALSE and TRUE as macros.
#include <glib-object.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <thread>

#include "ClassCacheBlock.h"
#include "harness/Partner.h"
#include "harness/Rooms.h"
#include "support/TraceConfig.h"

namespace {

namespace fs = std::filesystem;
using orm::GetClassMgr;
using orm::String;

constexpr int LIBRARIES = 200;
constexpr const char* CLASSES_VARIABLE = "ORM_BENCH_CLASSES";
constexpr const char* FOLDER_VARIABLE = "ORM_BENCH_FOLDER";
constexpr const char* LIBRARY_PATHS_KEY = "Software\\Brightwell\\LibPaths";

// A folder of copies of the benchmark's component library, each with `classes` classes: CID_lib0_00000 and
// so on.
class Components {
 public:
  Components(size_t libraries, size_t classes) {
    std::string name = (fs::temp_directory_path() / "orm-bench.XXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
    mFolder = name;
    for (size_t i = 0; i < libraries; ++i) {
      mFiles.push_back(mFolder / ("lib" + std::to_string(i) + ".dll"));
      fs::copy_file(ORM_BENCH_COMPONENT, mFiles.back());
    }
    setenv(CLASSES_VARIABLE, std::to_string(classes).c_str(), 1);
  }
  ~Components() {
    std::error_code ignored;
    fs::remove_all(mFolder, ignored);
  }
  Components(const Components&) = delete;
  Components& operator=(const Components&) = delete;

  // Makes every file a version that no cache knows.
  void Renew() {
    ++mSeconds;
    const timespec times[2] = {{1'600'000'000 + mSeconds, 0}, {1'600'000'000 + mSeconds, 0}};
    for (const fs::path& file : mFiles) utimensat(AT_FDCWD, file.c_str(), times, 0);
  }
  const fs::path& GetFolder() const { return mFolder; }
  // As the class manager wants it.
  std::string GetPath() const { return "z:" + mFolder.string(); }

 private:
  fs::path mFolder;
  std::vector<fs::path> mFiles;
  time_t mSeconds = 0;
};

// The components, registered in this process for as long as this lives.
class RegisteredComponents : public Components {
 public:
  RegisteredComponents(size_t libraries, size_t classes)
      : Components(libraries, classes), mCookie(GetClassMgr()->Register(GetPath().c_str())) {}
  ~RegisteredComponents() { GetClassMgr()->Unregister(mCookie); }

 private:
  DWORD mCookie;
};

// The components, registered for every process that starts while this lives.
class MachineComponents : public Components {
 public:
  MachineComponents(size_t libraries, size_t classes) : Components(libraries, classes) {
    test::SetRegistryText(LIBRARY_PATHS_KEY, "bench", GetPath());
  }
  ~MachineComponents() { test::SetRegistryText(LIBRARY_PATHS_KEY, "bench", ""); }

  // Adds up what processes need from their first instruction until their classes are known.
  static void Start(size_t n) {
    const bench::Untimed untimed;
    while (n--) StartOne();
  }

 private:
  static void StartOne() {
    test::Child child({test::Sibling("orm-bench-start"), "CID_lib0_00000"});
    const std::string nanoseconds = child.ReadLine();
    if (child.Finish().status != 0) throw std::runtime_error("the classes are not known");
    bench::AddTime(std::stod(nanoseconds));
  }
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

void CreateTypes(size_t n) {
  while (n--) g_object_unref(g_object_new(g_type_from_name("OrmBenchType500"), nullptr));
}

void Create(const String& classId, size_t n) {
  const String faceId = "IID_BaseFace";
  while (n--) bench::Keep(GetClassMgr()->CreateInstance(classId, faceId).Get());
}

// In several threads, which share the n out among them.
void CreateInThreads(size_t threads, size_t n) {
  std::vector<std::jthread> others;
  for (size_t i = 0; i < threads; ++i) {
    others.emplace_back([count = (n + threads - 1) / threads] { Create("CID_lib0_00005", count); });
  }
}

void RegisterFolder(const std::string& path, size_t n) {
  while (n--) GetClassMgr()->Unregister(GetClassMgr()->Register(path.c_str()));
}

void RegisterPartnerFolder(size_t n) {
  RegisterFolder(std::getenv(FOLDER_VARIABLE), n);
}

bench::Sides PrepareCreation() {
  static bool registered = false;
  if (!registered) RegisterTypes();
  registered = true;
  const auto components = std::make_shared<RegisteredComponents>(1, 1000);
  return {[components](size_t n) { Create("CID_lib0_00500", n); }, CreateTypes};
}

bench::Sides PrepareColdStart() {
  const auto components = std::make_shared<MachineComponents>(LIBRARIES, 3);
  return {[components](size_t n) { components->Start(n); },
          [components](size_t n) {
            while (n--) {
              {
                const bench::Untimed untimed;
                components->Renew();
              }
              components->Start(1);
            }
          }};
}

bench::Sides PrepareWarmStart() {
  const auto components = std::make_shared<MachineComponents>(LIBRARIES, 3);
  return {[components](size_t n) { components->Start(n); },
          [components](size_t n) {
            while (n--) LookAtFiles(components->GetFolder());
          }};
}

void AddClassGrowths(bench::Table& table) {
  const std::vector<size_t> sizes = {10, 100, 1000, 10000};
  const auto addByClasses = [&](const char* name, bench::Operation operation) {
    table.Add(bench::Growth{.name = name, .unit = "classes", .sizes = sizes, .prepare = [=](size_t size) {
                              return [components = std::make_shared<RegisteredComponents>(1, size),
                                      operation](size_t n) { operation(n); };
                            }});
  };
  addByClasses("create an object by class id", [](size_t n) { Create("CID_lib0_00005", n); });
  addByClasses("enumerate the classes", [](size_t n) {
    std::vector<String> ids;
    while (n--) GetClassMgr()->EnumClasses(ids);
    bench::Keep(ids.size());
  });
  table.Add(bench::Growth{.name = "create objects in several threads at once",
                          .unit = "threads",
                          .sizes = {1, 2, 3, 4, 6, 8},
                          .prepare =
                              [](size_t size) {
                                const auto components = std::make_shared<RegisteredComponents>(1, 1000);
                                return [components, size](size_t n) { CreateInThreads(size, n); };
                              },
                          .operation = "object, of whichever thread"});
}

// A shared cache's block with this many records, each of a library of a few classes. The block has room for
// 256.
class CacheRecords {
 public:
  explicit CacheRecords(size_t count) {
    mBlock.Initialize();
    for (size_t i = 0; i < count; ++i) {
      mKeys.emplace_back(("z:\\components\\lib" + std::to_string(i) + ".dll").c_str());
      mBlock.Store(mKeys.back(), i, mPayload, i);
    }
  }
  void Find(size_t n) const {
    while (n-- != 0) bench::Keep(mBlock.Find(mKeys[n * 7 % mKeys.size()]).found);
  }
  void Store(size_t n) const {
    while (n-- != 0) mBlock.Store(mKeys[n * 7 % mKeys.size()], n, mPayload, n);
  }

 private:
  struct alignas(16) Memory {
    BYTE bytes[orm::CacheBlock::SIZE];
  };
  const std::unique_ptr<Memory> mMemory = std::make_unique<Memory>();
  const orm::CacheBlock mBlock{mMemory->bytes};
  const orm::Binary mPayload{std::string(150, 'p').data(), 150};
  std::vector<orm::CacheKey> mKeys;
};

void AddCacheGrowths(bench::Table& table) {
  const auto add = [&table](const char* name, void (CacheRecords::*work)(size_t) const) {
    table.Add(bench::Growth{.name = name,
                            .unit = "cache records",
                            .sizes = {1, 4, 16, 64, 256},
                            .prepare = [work](size_t size) -> bench::Operation {
                              return [records = std::make_shared<CacheRecords>(size), work](size_t n) {
                                ((*records).*work)(n);
                              };
                            },
                            .operation = "record"});
  };
  add("class cache: find a record", &CacheRecords::Find);
  add("class cache: store a record again", &CacheRecords::Store);
}

void AddLibraryGrowths(bench::Table& table) {
  table.Add(bench::Growth{.name = "register a folder of libraries that the shared cache knows",
                          .unit = "libraries",
                          .sizes = {1, 10, 100, 1000},
                          .prepare = [](size_t size) {
                            const auto components = std::make_shared<Components>(size, 3);
                            return [components](size_t n) { RegisterFolder(components->GetPath(), n); };
                          }});
  table.Add(bench::Growth{.name = "register 50 libraries out of the shared cache",
                          .unit = "processes",
                          .sizes = {1, 2, 4, 8},
                          .prepare =
                              [](size_t size) {
                                const auto components = std::make_shared<Components>(50, 3);
                                setenv(FOLDER_VARIABLE, components->GetPath().c_str(), 1);
                                const auto others = std::make_shared<bench::Partners>("register", size - 1);
                                return [components, others](size_t n) {
                                  others->Share(n, RegisterPartnerFolder);
                                };
                              },
                          .operation = "registration, of whichever process"});
}

}  // namespace

void AddClassRows(bench::Table& table) {
  table.Add(bench::Row{.name = "create an object by class id, library loaded, 1,000 classes",
                       .peer = "g_object_new by g_type_from_name (GLib)",
                       .goal = 1.0,
                       .prepare = PrepareCreation});
  table.Add(bench::Row{.name = "process start, 200 registered libraries, warm cache",
                       .peer = "the same, cold",
                       .goal = 0.05,
                       .prepare = PrepareColdStart,
                       .note = "from the process's first own instruction until it knows the classes",
                       .heavy = true});
  table.Add(bench::Row{.name = "process start, 200 registered libraries, warm cache, against the limit",
                       .peer = "one pass of readdir and fstatat over the files",
                       .goal = 3,
                       .prepare = PrepareWarmStart,
                       .note = "the peer is the limit: the least that finding changed files can cost"});
  AddClassGrowths(table);
  AddLibraryGrowths(table);
  AddCacheGrowths(table);
}

bool RunClassPartner(const std::string& kind) {
  if (kind == "register") bench::Serve(RegisterPartnerFolder);
  return kind == "register";
}
