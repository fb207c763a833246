// Disks that are full or cannot be written, and stores that are damaged.
#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <tuple>

#include "kernel/Machine.h"
#include "registry/Registry.h"
#include "support/Sanitizers.h"

using namespace registrytest;

namespace {

std::string ReadFileBytes(const std::string& path) {
  std::string bytes;
  const int file = open(path.c_str(), O_RDONLY);
  char buffer[65536];
  for (ssize_t n; file >= 0 && (n = read(file, buffer, sizeof buffer)) > 0;)
    bytes.append(buffer, static_cast<std::size_t>(n));
  if (file >= 0) close(file);
  return bytes;
}

bool WriteFileBytes(const std::string& path, const std::string& bytes) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const bool done =
      file >= 0 && write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  if (file >= 0) close(file);
  return done;
}

std::string UserStore() {
  return MachineFile("registry/user-" + std::to_string(geteuid()) + "/data.mdb");
}

// Fills the user's store in a process of its own, so that this one has not opened it.
void MakeStore() {
  ASSERT_EQ(InChild([] {
              Key key(HKEY_CURRENT_USER, "K\\Sub");
              for (DWORD i = 0; i < 300; ++i)
                SetBytes(key, "value" + std::to_string(i), REG_BINARY, std::string(i * 40, 'd'));
              for (DWORD i = 0; i < 100; i += 3) RegDeleteValueA(key, ("value" + std::to_string(i)).c_str());
              return key.code;
            }),
            0);
}

rlim_t AddressSpaceInUse() {
  std::ifstream file("/proc/self/statm");
  rlim_t pages = 0;
  file >> pages;
  return pages * 4096;
}

// Everything that a program does, on a store of any content: must end with codes.
int UseStore() {
  Key key, made(HKEY_CURRENT_USER, "K\\Sub");
  const LSTATUS opened = Open(HKEY_CURRENT_USER, "K\\Sub", &key, KEY_ALL_ACCESS);
  for (DWORD i = 0; i < 300; i += 7) {
    std::string data;
    GetBytes(key, "value" + std::to_string(i), &data);
  }
  char name[300];
  for (DWORD i = 0; i < 400; ++i) {
    DWORD length = sizeof name;
    if (RegEnumValueA(key, i, name, &length, nullptr, nullptr, nullptr, nullptr) != 0) break;
  }
  SetNumber(key, "new", 1);
  for (DWORD i = 1; i < 300; i += 5) RegDeleteValueA(key, ("value" + std::to_string(i)).c_str());
  RegDeleteKeyA(HKEY_CURRENT_USER, "K\\Sub");
  OrmRegCheckStore(HKEY_CURRENT_USER, nullptr, nullptr);
  return opened == 0 ? 0 : opened == LSTATUS{ERROR_BADDB} ? 1 : 2;
}

TEST(Faults, ADamagedStoreIsAnErrorAndNeverACrash) {
  MakeStore();
  const std::string sound = ReadFileBytes(UserStore());
  ASSERT_GT(sound.size(), 50000u);
  const struct {
    const char* what;
    std::string bytes;
  } table[] = {{"garbage", std::string(100000, 'x')},
               {"zeros", std::string(100000, '\0')},
               {"short", std::string(100, 'x')},
               {"heads only", sound.substr(0, 8192)},
               {"half", sound.substr(0, sound.size() / 2)},
               {"a page and a half", sound.substr(0, 6000)}};
  for (const auto& row : table) {
    ASSERT_TRUE(WriteFileBytes(UserStore(), row.bytes));
    EXPECT_EQ(InChild([] { return Key(HKEY_CURRENT_USER, "K").code == LSTATUS{ERROR_BADDB} ? 0 : 1; }), 0)
        << row.what;
    EXPECT_EQ(ReadFileBytes(UserStore()), row.bytes) << row.what << ": it is left as it was";
  }
  ASSERT_TRUE(WriteFileBytes(UserStore(), sound));
  EXPECT_EQ(InChild(UseStore), 0);
}

TEST(Faults, FlippedBytesAnywhereAreAnErrorOrOtherData) {
  MakeStore();
  const std::string sound = ReadFileBytes(UserStore());
  std::mt19937 random(20240611);
  int refused = 0;
  for (int round = 0; round < 150; ++round) {
    std::string bytes = sound;
    const int flips = 1 + static_cast<int>(random() % 8);
    for (int i = 0; i < flips; ++i) {
      // Mostly where structure is: the beginning of a page.
      const std::size_t page = random() % (bytes.size() / 4096) * 4096;
      const std::size_t offset = random() % (random() % 4 != 0 ? 120 : 4096);
      bytes[page + offset] = static_cast<char>(random());
    }
    ASSERT_TRUE(WriteFileBytes(UserStore(), bytes));
    const int result = InChild(UseStore);
    ASSERT_LT(result, 3) << "round " << round;
    refused += result == 1;
  }
  EXPECT_GT(refused, 15);
}

// Each search that such a page leads astray finds a value again that was listed before.
TEST(Faults, KeysOutOfOrderAreRefused) {
  MakeStore();
  const std::string sound = ReadFileBytes(UserStore());
  int refused = 0;
  for (std::size_t page = 2 * 4096; page < sound.size(); page += 4096) {
    // A leaf: flags at 10, the end of the list of its entries at 12, the list from 16 on.
    const bool hasTwo = sound[page + 13] != 0 || static_cast<unsigned char>(sound[page + 12]) >= 20;
    if (sound[page + 10] != 2 || !hasTwo) continue;
    std::string bytes = sound;
    std::swap_ranges(&bytes[page + 16], &bytes[page + 18], &bytes[page + 18]);
    ASSERT_TRUE(WriteFileBytes(UserStore(), bytes));
    const int result = InChild(UseStore);
    ASSERT_LT(result, 2) << "page " << page / 4096;
    refused += result;
  }
  EXPECT_GT(refused, 0);
}

TEST(Faults, AFullDiskKeepsWhatWasStored) {
  const std::string folder = MachineFile("small");
  ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
  if (geteuid() != 0 || mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=3m,mode=0755") != 0) {
    GTEST_SKIP() << "cannot mount a small disk";
  }
  const int result = InChild([&]() -> int {
    setenv("ORM_MACHINE", folder.c_str(), 1);
    Key key(HKEY_CURRENT_USER, "K");
    if (key.code != 0 || SetBytes(key, "kept", REG_SZ, "as it was") != 0) return 1;
    LSTATUS code = 0;
    int stored = 0;
    for (; code == 0 && stored < 1000; ++stored) {
      code = SetBytes(key, "fill" + std::to_string(stored), REG_BINARY, std::string(60000, 'f'));
    }
    if (code != LSTATUS{ERROR_DISK_FULL}) return 2;
    std::string data;
    if (GetBytes(key, "kept", &data) != 0 || data != "as it was") return 3;
    if (ValueNames(key).size() != static_cast<std::size_t>(stored)) return 4;  // the failed one is not there
    if (OrmRegCheckStore(HKEY_CURRENT_USER, nullptr, nullptr) != 0) return 5;
    // Others open the full store, and deleting makes room.
    if (InChild([&] { return GetBytes(key, "kept", &data) == 0 ? 0 : 1; }) != 0) return 6;
    for (int i = 0; i < stored - 1; i += 2) RegDeleteValueA(key, ("fill" + std::to_string(i)).c_str());
    return SetBytes(key, "again", REG_BINARY, std::string(60000, 'a')) == 0 ? 0 : 7;
  });
  umount(folder.c_str());
  EXPECT_EQ(result, 0);
}

// The deletion of an open key that ended between its two halves.
TEST(Faults, ALinkThatLeadsToNothingCountsAsAbsent) {
  const std::string open = MachineFile("registry/open/data.mdb");
  const auto makeOpen = [](const char* path) {
    Key key;
    return RegCreateKeyExA(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_ALL_ACCESS, NullAccessList(),
                           key.Out(), nullptr);
  };
  ASSERT_EQ(InChild([&] { return makeOpen("K\\B alive"); }), 0);
  const std::string before = ReadFileBytes(open);
  ASSERT_EQ(InChild([&] { return makeOpen("K\\A dead") + makeOpen("K\\Sub\\C dead"); }), 0);
  ASSERT_TRUE(WriteFileBytes(open, before));

  Key key(HKEY_LOCAL_MACHINE, "K"), sub, dead;
  ASSERT_EQ(Open(key, "Sub", &sub), 0);
  EXPECT_EQ(SubKeyNames(key), (std::vector<std::string>{"B alive", "Sub"}));
  char name[20];
  DWORD length = sizeof name, count = 9, longest = 9;
  EXPECT_EQ(RegEnumKeyExA(key, 1, name, &length, nullptr, nullptr, nullptr, nullptr), 0);
  EXPECT_STREQ(name, "Sub") << "by its index alone";
  for (const auto& [which, keys, size] : {std::tuple{HKEY{key}, 2u, 7u}, std::tuple{HKEY{sub}, 0u, 0u}}) {
    EXPECT_EQ(RegQueryInfoKeyA(which, nullptr, nullptr, nullptr, &count, &longest, nullptr, nullptr, nullptr,
                               nullptr, nullptr, nullptr),
              0);
    EXPECT_EQ(count, keys);
    EXPECT_EQ(longest, size);
  }
  ASSERT_EQ(makeOpen("K\\Sub\\D"), 0);
  ASSERT_EQ(RegDeleteKeyA(sub, "D"), 0);
  ASSERT_EQ(makeOpen("K\\Z"), 0);
  EXPECT_EQ(Open(key, "A dead", &dead), 2) << "no number is used again";
  EXPECT_EQ(Open(sub, "C dead", &dead), 2) << "no number is used again";
  ASSERT_EQ(RegDeleteKeyA(key, "Z"), 0);
  EXPECT_EQ(RegDeleteKeyA(key, "Sub"), 0) << "it holds nothing";
  ASSERT_EQ(makeOpen("K\\a DEAD"), 0);
  EXPECT_EQ(SubKeyNames(key), (std::vector<std::string>{"a DEAD", "B alive"}));
  EXPECT_EQ(RegDeleteKeyA(HKEY_LOCAL_MACHINE, "K"), 5) << "what is there holds it";
  EXPECT_EQ(Faults(HKEY_LOCAL_MACHINE), "");
}

// The limit ends the process where it writes the larger one of the two stores.
TEST(Faults, AnOpenKeyWhoseMakerDiesLeavesNothing) {
  constexpr rlim_t kLimit = 1 << 20;
  const std::string open = MachineFile("registry/open/data.mdb");
  const auto makeOpen = [](const std::string& className) {
    Key key;
    return RegCreateKeyExA(HKEY_LOCAL_MACHINE, "K\\Open", 0, const_cast<char*>(className.c_str()), 0,
                           KEY_ALL_ACCESS, NullAccessList(), key.Out(), nullptr);
  };
  ASSERT_EQ(InChild([&] {
              Key key(HKEY_LOCAL_MACHINE, "K");
              for (int i = 0; i < 400; ++i)
                SetBytes(key, "fill" + std::to_string(i), REG_BINARY, std::string(5000, 'f'));
              return makeOpen("") + RegDeleteKeyA(key, "Open");
            }),
            0);
  const std::size_t before = ReadFileBytes(open).size();
  for (int round = 0; round < 8; ++round) {
    const int result = InChild([&] {
      const rlimit limit{kLimit, kLimit};
      signal(SIGXFSZ, SIG_DFL);
      return setrlimit(RLIMIT_FSIZE, &limit) == 0 ? makeOpen(std::string(60000, 'c')) : 1;
    });
    ASSERT_EQ(result, 128 + SIGXFSZ);
  }
  EXPECT_EQ(ReadFileBytes(open).size(), before);
  EXPECT_EQ(makeOpen(""), 0);
  EXPECT_EQ(Faults(HKEY_LOCAL_MACHINE), "");
}

// The map of a store is given up before a larger one is asked for.
TEST(Faults, AStoreThatFindsNoRoomInMemoryToGrowStaysUsable) {
  if (test::IS_SANITIZED) GTEST_SKIP() << "the sanitizer needs the address space for itself";
  EXPECT_EQ(InChild([]() -> int {
              Key key(HKEY_CURRENT_USER, "K");
              if (SetBytes(key, "kept", REG_SZ, "as it was") != 0) return 1;
              const std::string filling(1 << 20, 'f');
              rlimit old{}, limit{};
              getrlimit(RLIMIT_AS, &old);
              limit = old;
              limit.rlim_cur = AddressSpaceInUse() + (12 << 20);
              if (setrlimit(RLIMIT_AS, &limit) != 0) return 2;
              LSTATUS code = 0;
              DWORD stored = 0;
              for (; code == 0 && stored < 100; ++stored)
                code = SetBytes(key, "fill" + std::to_string(stored), REG_BINARY, filling);
              if (code != LSTATUS{ERROR_NOT_ENOUGH_MEMORY}) return 3;
              std::string data;
              if (GetBytes(key, "kept", &data) != 0 || data != "as it was") return 4;
              setrlimit(RLIMIT_AS, &old);
              if (ValueNames(key).size() != stored) return 5;  // the failed one is not there
              return SetBytes(key, "more", REG_BINARY, filling);
            }),
            0);
}

TEST(Faults, AStoreThatFindsNoRoomToBeginBeginsLater) {
  const std::string folder = MachineFile("small");
  ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
  if (geteuid() != 0 || mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=4k") != 0)
    GTEST_SKIP() << "cannot mount a small disk";
  umount(folder.c_str());
  const auto createIn = [&folder] {
    return InChild([&] {
      setenv("ORM_MACHINE", folder.c_str(), 1);
      return Key(HKEY_CURRENT_USER, "K").code;
    });
  };
  int full = 0, stored = 0;
  for (int pages = 1; stored == 0; ++pages) {
    const std::string size = "mode=0755,size=" + std::to_string(pages * 4) + "k";
    ASSERT_EQ(mount("tmpfs", folder.c_str(), "tmpfs", 0, size.c_str()), 0);
    const int code = createIn();
    EXPECT_TRUE(code == 0 || code == ERROR_DISK_FULL) << code << " with pages: " << pages;
    (code == 0 ? stored : full) += 1;
    EXPECT_EQ(mount("tmpfs", folder.c_str(), "tmpfs", MS_REMOUNT, "size=1m"), 0);
    EXPECT_EQ(createIn(), 0) << "after there was room for pages: " << pages;
    umount(folder.c_str());
  }
  EXPECT_GT(full, 15);
}

TEST(Faults, AFolderThatCannotBeWrittenIsDenied) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a second user";
  // Root's, without any room in it.
  ASSERT_EQ(chmod(getenv("ORM_MACHINE"), 0755), 0);
  ASSERT_TRUE(WriteFileBytes(MachineFile("shared"), ""));
  EXPECT_EQ(InChild([]() -> int {
              if (setuid(65534) != 0) return 99;
              Key made(HKEY_CURRENT_USER, "K"), opened;
              if (made.code != 5) return 1;
              if (Open(HKEY_LOCAL_MACHINE, "K", &opened) != 2 || Open(HKEY_CURRENT_USER, "K", &opened) != 2)
                return 2;
              return OrmRegistryChangeWord(HKEY_LOCAL_MACHINE) != nullptr ? 0 : 3;
            }),
            0);
  // With a room in it that only root may write.
  ASSERT_EQ(mkdir(MachineFile("registry").c_str(), 0755), 0);
  EXPECT_EQ(InChild([]() -> int {
              if (setuid(65534) != 0) return 99;
              Key made(HKEY_CURRENT_USER, "K"), opened;
              if (made.code != 5) return 1;
              return Open(HKEY_CURRENT_USER, "K", &opened) == 2 ? 0 : 2;
            }),
            0);
}

// Whoever made the files of a store died before it had given them their modes, and itself a store.
TEST(Faults, FilesThatWereLeftEmptyBecomeAStore) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a second user";
  ASSERT_EQ(InChild([] { return orm::platform::ShareMachine(); }), 0);
  ASSERT_EQ(mkdir(MachineFile("registry/machine").c_str(), 0755), 0);
  ASSERT_EQ(mkdir(MachineFile("registry/open").c_str(), 0755), 0);
  for (const char* file : {"machine/data.mdb", "open/data.mdb", "machine/lock.mdb", "open/lock.mdb"})
    ASSERT_TRUE(WriteFileBytes(MachineFile("registry/") + file, ""));
  ASSERT_EQ(chmod(MachineFile("registry/machine/data.mdb").c_str(), 0644), 0);
  const auto openAsNobody = [] {
    return InChild([]() -> int {
      Key key;
      return setuid(65534) == 0 ? Open(HKEY_LOCAL_MACHINE, "K\\Open", &key, KEY_READ | KEY_WRITE) : 99;
    });
  };
  EXPECT_EQ(openAsNobody(), 2) << "there is nothing to read yet";
  ASSERT_EQ(InChild([] {
              Key key;
              return RegCreateKeyExA(HKEY_LOCAL_MACHINE, "K\\Open", 0, nullptr, 0, KEY_ALL_ACCESS,
                                     NullAccessList(), key.Out(), nullptr);
            }),
            0);
  EXPECT_EQ(openAsNobody(), 0);
}

}  // namespace
