// What users of one computer can do to each other through a machine, private or shared: docs/security.md,
// line by line. This process is root, who owns the machine; its children are two other users.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "kernel/Machine.h"
#include "support/Child.h"
#include "win32.h"
#include "win32/debugwatch.h"
#include "win32/registryx.h"

namespace fs = std::filesystem;

namespace {

using test::InChildAs;

constexpr uid_t FIRST = 65533, SECOND = 65534;

// A null access list.
SECURITY_ATTRIBUTES* OpenToAll() {
  static SECURITY_DESCRIPTOR descriptor;
  static SECURITY_ATTRIBUTES attributes{sizeof attributes, &descriptor, FALSE};
  InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
  SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
  return &attributes;
}

class Users : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root, who can become other users";
    mMachine = getenv("ORM_MACHINE");
    umask(0);
  }
  std::string At(const std::string& name) const { return mMachine + "/" + name; }
  std::string Temp(const std::string& name) const { return At("drives/drive_c/Windows/Temp/" + name); }
  void Put(const std::string& path, uid_t owner, mode_t mode, const std::string& content = "precious") const {
    std::ofstream(path) << content;
    ASSERT_EQ(chown(path.c_str(), owner, owner), 0);
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
  }
  static std::string Get(const std::string& path) {
    std::stringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
  }

  std::string mMachine;
};

class SharedMachine : public Users {
 protected:
  void SetUp() override {
    Users::SetUp();
    if (IsSkipped()) return;
    ASSERT_EQ(orm::platform::ShareMachine(), 0);
    // The owner's stores are there.
    for (HKEY root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) ASSERT_EQ(RegFlushKey(root), 0);
  }
};

LSTATUS CreateKey(HKEY root, const char* path, SECURITY_ATTRIBUTES* attributes = nullptr) {
  HKEY key = nullptr;
  const LSTATUS code = RegCreateKeyExA(root, path, 0, nullptr, 0, KEY_ALL_ACCESS, attributes, &key, nullptr);
  if (code == 0) RegCloseKey(key);
  return code;
}

// The error of opening a file as the trace facility opens its log; 0 when it was opened.
DWORD OpenLog(const std::string& name) {
  HANDLE file = CreateFileA(name.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, OpenToAll(),
                            OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_WRITE_THROUGH, nullptr);
  if (file == INVALID_HANDLE_VALUE) return GetLastError();
  CloseHandle(file);
  return 0;
}

TEST_F(Users, ThereIsNoWayIntoAPrivateMachine) {
  // As if the user had made the folder himself, with his file mode mask.
  ASSERT_EQ(chmod(mMachine.c_str(), 0755), 0);
  ASSERT_EQ(CreateKey(HKEY_LOCAL_MACHINE, "SOFTWARE\\Open", OpenToAll()), 0);
  ASSERT_EQ(CreateKey(HKEY_CURRENT_USER, "Own"), 0);
  const HANDLE mutex = CreateMutexA(OpenToAll(), FALSE, "mutex");
  const HANDLE section =
      CreateFileMappingA(INVALID_HANDLE_VALUE, OpenToAll(), PAGE_READWRITE, 0, 4096, "section");
  ASSERT_TRUE(mutex != nullptr && section != nullptr);
  ASSERT_EQ(OpenLog("C:\\Windows\\Temp\\open.log"), 0u);
  OutputDebugStringA("text");
  const orm::platform::DebugWatch watch;
  unsigned count = 0;
  for (const auto& entry : fs::recursive_directory_iterator(mMachine)) {
    if (entry.is_symlink() || entry.path().filename() == "open.log") continue;
    struct stat status {};
    ASSERT_EQ(lstat(entry.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 077, 0u) << entry.path();
    ++count;
  }
  EXPECT_GT(count, 15u);
  EXPECT_EQ(InChildAs(FIRST, [this] { return access(Temp("open.log").c_str(), F_OK) == 0 ? 1 : 0; }), 0);
}

TEST_F(SharedMachine, SettingsAreTheOwners) {
  ASSERT_EQ(CreateKey(HKEY_LOCAL_MACHINE, "Software\\Present"), 0);
  for (SECURITY_ATTRIBUTES* attributes : {static_cast<SECURITY_ATTRIBUTES*>(nullptr), OpenToAll()}) {
    for (const char* path :
         {"Software\\Brightwell\\LibPaths", "SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage",
          "Software\\Present\\Below", "New"}) {
      EXPECT_EQ(
          InChildAs(FIRST, [&] { return static_cast<int>(CreateKey(HKEY_LOCAL_MACHINE, path, attributes)); }),
          5)
          << path;
    }
  }
}

TEST_F(SharedMachine, AHiveIsItsUsers) {
  ASSERT_EQ(InChildAs(FIRST, [] { return static_cast<int>(CreateKey(HKEY_CURRENT_USER, "Own")); }), 0);
  EXPECT_EQ(InChildAs(SECOND,
                      [this] {
                        const std::string folder = At("registry/user-" + std::to_string(FIRST));
                        return access((folder + "/data.mdb").c_str(), F_OK) != 0 &&
                                       rename(folder.c_str(), At("x").c_str()) != 0
                                   ? 0
                                   : 1;
                      }),
            0);
  // Made by the other one before he comes.
  EXPECT_EQ(
      InChildAs(
          FIRST,
          [this] { return mkdir(At("registry/user-" + std::to_string(SECOND)).c_str(), 0777) == 0 ? 0 : 1; }),
      0);
  EXPECT_EQ(InChildAs(SECOND, [] { return static_cast<int>(CreateKey(HKEY_CURRENT_USER, "Own")); }), 5);
}

TEST_F(SharedMachine, NothingIsPlantedAmongDrivesAndLibraries) {
  EXPECT_EQ(
      InChildAs(FIRST,
                [this] {
                  if (symlink("/tmp", At("drives/x:").c_str()) == 0) return 1;
                  if (rename(At("drives/c:").c_str(), At("drives/d:").c_str()) == 0) return 2;
                  for (const char* folder : {"", "drives/drive_c/", "drives/drive_c/Windows/",
                                             "drives/drive_c/Windows/System32/", "registry/machine/"}) {
                    const std::string file = At(folder + std::string("planted.dll"));
                    if (open(file.c_str(), O_CREAT | O_WRONLY, 0666) >= 0 || mkdir(file.c_str(), 0777) == 0)
                      return 3;
                  }
                  return 0;
                }),
      0);
}

TEST_F(SharedMachine, LogsLeadToNobodysOwnFiles) {
  ASSERT_EQ(mkdir(At("home").c_str(), 0755), 0);
  ASSERT_EQ(chown(At("home").c_str(), FIRST, FIRST), 0);
  Put(At("home/settings"), FIRST, 0644);
  Put(Temp("private"), FIRST, 0600);
  Put(Temp("open"), SECOND, 0666);
  ASSERT_EQ(symlink(At("home/settings").c_str(), Temp("link").c_str()), 0);
  ASSERT_EQ(lchown(Temp("link").c_str(), SECOND, SECOND), 0);
  ASSERT_EQ(symlink(At("home").c_str(), Temp("folder").c_str()), 0);
  ASSERT_EQ(lchown(Temp("folder").c_str(), SECOND, SECOND), 0);
  const struct {
    std::string name;
    int error;
  } rows[] = {{"Z:" + At("home/settings"), 5},
              {"Z:" + At("home/new"), 5},
              {"C:\\Windows\\Temp\\private", 5},
              {"C:\\Windows\\Temp\\link", 5},
              {"C:\\Windows\\Temp\\folder\\settings", 5},
              {"C:\\Windows\\Temp\\folder\\new", 5},
              {"C:\\Windows\\Temp\\open", 0},
              {"C:\\Windows\\Temp\\new", 0}};
  for (const auto& row : rows) {
    EXPECT_EQ(InChildAs(FIRST, [&] { return static_cast<int>(OpenLog(row.name)); }), row.error) << row.name;
  }
  EXPECT_EQ(Get(At("home/settings")), "precious");
  EXPECT_FALSE(fs::exists(At("home/new")));
}

TEST_F(SharedMachine, FilesInTheTemporaryFolderStay) {
  Put(Temp("file"), FIRST, 0666);
  EXPECT_EQ(InChildAs(SECOND,
                      [this] {
                        return unlink(Temp("file").c_str()) != 0 &&
                                       rename(Temp("file").c_str(), Temp("x").c_str()) != 0
                                   ? 0
                                   : 1;
                      }),
            0);
}

std::vector<std::string> AsProgram(uid_t user, const std::string& order, const std::string& name) {
  const std::string number = std::to_string(user);
  return {"/usr/bin/setpriv",
          "--reuid=" + number,
          "--regid=" + number,
          "--clear-groups",
          test::Sibling("kernel_helper"),
          order,
          name};
}

TEST_F(SharedMachine, NamedObjectsAreOpenOnlyWhenMadeSo) {
  if (!test::OthersMayRunPrograms()) GTEST_SKIP() << "needs root, and programs that others may run";
  test::Child holder(AsProgram(FIRST, "hold-mutex", "closed"));
  ASSERT_EQ(holder.ReadLine(), "0");
  EXPECT_EQ(test::RunProgram(AsProgram(SECOND, "open-mutex", "closed")).output, "5\n");
  const HANDLE mutex = CreateMutexA(OpenToAll(), FALSE, "open");
  EXPECT_EQ(test::RunProgram(AsProgram(SECOND, "open-mutex", "open")).output, "open\n");
  CloseHandle(mutex);
}

TEST_F(SharedMachine, AShortSectionIsRefused) {
  const HANDLE section =
      CreateFileMappingA(INVALID_HANDLE_VALUE, OpenToAll(), PAGE_READWRITE, 0, 65536, "cut");
  ASSERT_NE(section, nullptr);
  EXPECT_EQ(InChildAs(FIRST, [this] { return truncate(At("named/n-cut").c_str(), 9000); }), 0)
      << "that he can";
  EXPECT_EQ(InChildAs(SECOND,
                      [] {
                        const HANDLE opened = OpenFileMappingA(FILE_MAP_READ, FALSE, "cut");
                        return opened == nullptr ? static_cast<int>(GetLastError()) : 0;
                      }),
            static_cast<int>(ERROR_INVALID_DATA));
}

// The record of an open section says which file lies below it, and everybody can write it.
TEST_F(SharedMachine, ASectionLeadsToNobodysOwnFile) {
  const std::string content(65536, 'p');
  ASSERT_EQ(mkdir(At("home").c_str(), 0700), 0);
  ASSERT_EQ(chown(At("home").c_str(), SECOND, SECOND), 0);
  Put(Temp("private"), SECOND, 0600, content);
  Put(Temp("readable"), SECOND, 0644, content);
  Put(At("home/writable"), SECOND, 0666, content);
  Put(Temp("open"), SECOND, 0666, content);
  const HANDLE file = CreateFileA("C:\\Windows\\Temp\\below", GENERIC_READ | GENERIC_WRITE,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE, OpenToAll(), CREATE_ALWAYS, 0, nullptr);
  const HANDLE section = CreateFileMappingA(file, OpenToAll(), PAGE_READWRITE, 0, 65536, "led");
  ASSERT_NE(section, nullptr);
  const struct {
    std::string path;
    DWORD error;
  } rows[] = {{Temp("below"), ERROR_SUCCESS},
              {Temp("private"), ERROR_ACCESS_DENIED},
              {Temp("readable"), ERROR_ACCESS_DENIED},
              {At("home/writable"), ERROR_ACCESS_DENIED},
              {Temp("open"), ERROR_SUCCESS}};
  for (const auto& row : rows) {
    const auto attack = [&] {
      struct stat status {};
      if (stat(row.path.c_str(), &status) != 0) return 1;
      struct {
        uint64_t device, inode;
        uint32_t writable, length;
        char path[4096];
      } lie{status.st_dev, status.st_ino, 1, static_cast<uint32_t>(row.path.size()), {}};
      row.path.copy(lie.path, sizeof lie.path);
      const int record = open(At("named/n-led").c_str(), O_RDWR);
      return pwrite(record, &lie, sizeof lie, 64 + 8) == static_cast<ssize_t>(sizeof lie) ? 0 : 2;
    };
    // Root finds out the inode that the first user may not see.
    ASSERT_EQ(InChildAs(row.path == At("home/writable") ? 0 : FIRST, attack), 0) << "that he can";
    EXPECT_EQ(InChildAs(SECOND,
                        [] {
                          const HANDLE opened = OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, "led");
                          return opened == nullptr ? static_cast<int>(GetLastError()) : 0;
                        }),
              static_cast<int>(row.error))
        << row.path;
  }
  CloseHandle(section);
  CloseHandle(file);
}

TEST_F(SharedMachine, OnlyTheOwnerWatches) {
  const auto watches = [] { return orm::platform::DebugWatch().IsOpen() ? 1 : 0; };
  EXPECT_EQ(InChildAs(0, watches), 1);
  EXPECT_EQ(InChildAs(FIRST, watches), 0);
}

}  // namespace
