// Several processes, fork, users, and writers that are killed.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <atomic>
#include <thread>

#include "kernel/Machine.h"
#include "registry/Registry.h"

using namespace registrytest;

namespace {

TEST(Processes, EachWriteThatReturnedOutlivesItsKilledWriter) {
  Key key(HKEY_CURRENT_USER, "K");
  // Shared counters: what each writer has been told is stored.
  auto* done = static_cast<std::atomic<DWORD>*>(
      mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  constexpr int writers = 4;
  const auto write = [&](int id) {
    return StartForked([&, id]() -> int {
      for (DWORD i = done[id] + 1;; ++i) {
        if (SetNumber(key, "writer" + std::to_string(id), i) != 0) return 1;
        if (SetBytes(key, "pad" + std::to_string(id), REG_BINARY, std::string(i % 9000, 'p')) != 0) return 2;
        done[id] = i;
        done[id].notify_one();
      }
    });
  };
  pid_t children[writers];
  for (int id = 0; id < writers; ++id) children[id] = write(id);
  for (int round = 0; round < 60; ++round) {
    const int victim = round % writers;
    // Let it get some way, at another point each time.
    for (const DWORD goal = done[victim] + 1 + static_cast<DWORD>(round % 7); done[victim] < goal;) {
      ASSERT_EQ(waitpid(children[victim], nullptr, WNOHANG), 0) << "a writer failed";
      std::this_thread::yield();
    }
    kill(children[victim], SIGKILL);
    ASSERT_EQ(WaitFor(children[victim]), 128 + SIGKILL);
    const DWORD stored = GetNumber(key, "writer" + std::to_string(victim));
    ASSERT_TRUE(stored == done[victim] || stored == done[victim] + 1) << stored << ' ' << done[victim];
    if (stored == done[victim] + 1) done[victim] = stored;
    children[victim] = write(victim);
  }
  for (const pid_t child : children) {
    kill(child, SIGKILL);
    WaitFor(child);
  }
  EXPECT_EQ(Faults(HKEY_CURRENT_USER), "");
  EXPECT_EQ(SetNumber(key, "after", 1), 0) << "nobody is locked out";
}

TEST(Processes, AChildUsesItsParentsHandlesOnAStoreOfItsOwn) {
  Key key(HKEY_CURRENT_USER, "K");
  ASSERT_EQ(SetNumber(key, "v", 1), 0);
  std::atomic<bool> stop{false};
  // Threads that are inside the registry at the moment of the fork.
  std::thread reading([&] {
    while (!stop) EXPECT_EQ(GetNumber(key, "v"), 1u);
  });
  std::thread writing([&] {
    for (DWORD i = 0; !stop; ++i) EXPECT_EQ(SetNumber(key, "w", i), 0);
  });
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(InChild([&] {
                if (GetNumber(key, "v") != 1) return 1;
                if (SetNumber(key, "child", 5) != 0) return 2;
                return InChild([&] { return GetNumber(key, "child") == 5 ? 0 : 1; });  // and its child
              }),
              0);
  }
  stop = true;
  reading.join();
  writing.join();
  EXPECT_EQ(GetNumber(key, "child"), 5u);
}

// Above the size that every process maps at first, an opener's map ends where the store ended a moment ago.
TEST(Processes, OpenAStoreThatGrowsMeanwhile) {
  int ready[2], stop[2];
  ASSERT_EQ(pipe(ready), 0);
  ASSERT_EQ(pipe2(stop, O_NONBLOCK), 0);
  const pid_t writer = StartForked([&]() -> int {
    close(stop[1]);
    Key key(HKEY_CURRENT_USER, "K");
    SetNumber(key, "v", 7);
    if (SetBytes(key, "large", REG_BINARY, std::string(20 << 20, 'l')) != 0) return 1;
    if (write(ready[1], "r", 1) != 1) return 2;
    char c = 0;
    for (int i = 0; i < 30000 && read(stop[0], &c, 1) != 0; ++i) {
      if (SetBytes(key, std::to_string(i), REG_BINARY, std::string(5000, 'x')) != 0) return 3;
    }
    return 0;
  });
  close(ready[1]);
  char c = 0;
  ASSERT_EQ(read(ready[0], &c, 1), 1);
  for (int i = 0; i < 40; ++i) {
    ASSERT_EQ(InChild([] {
                Key key;
                const LSTATUS code = Open(HKEY_CURRENT_USER, "K", &key);
                return code != 0 ? code : GetNumber(key, "v") == 7 ? 0 : 255;
              }),
              0)
        << i;
  }
  close(stop[0]);
  close(stop[1]);
  EXPECT_EQ(WaitFor(writer), 0);
}

TEST(Processes, ManyThreadsShareOneHandle) {
  Key key(HKEY_CURRENT_USER, "K");
  std::vector<std::thread> threads;
  for (DWORD id = 0; id < 8; ++id) {
    threads.emplace_back([&, id] {
      for (DWORD i = 0; i < 200; ++i) {
        ASSERT_EQ(SetNumber(key, "t" + std::to_string(id), i), 0);
        ASSERT_EQ(GetNumber(key, "T" + std::to_string(id)), i);
        ASSERT_EQ(RegCloseKey(reinterpret_cast<HKEY>(std::uintptr_t{0x10000000} * (i + 1) + 4)), 6);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(ValueNames(key).size(), 8u);
}

// An open key lies in two stores, which transactions of other processes hold both.
TEST(Processes, MakeAndDeleteOneOpenKeyAtOnce) {
  const auto make = []() -> int {
    Key open;
    const LSTATUS made = RegCreateKeyExA(HKEY_LOCAL_MACHINE, "K\\Open", 0, nullptr, 0, KEY_ALL_ACCESS,
                                         NullAccessList(), open.Out(), nullptr);
    if (made != 0) return made;
    const LSTATUS set = SetNumber(open, "v", 1);
    return set == LSTATUS{ERROR_KEY_DELETED} ? 0 : set;
  };
  const auto destroy = [](const char* path) {
    const LSTATUS code = RegDeleteKeyA(HKEY_LOCAL_MACHINE, path);
    return code == LSTATUS{ERROR_FILE_NOT_FOUND} || code == LSTATUS{ERROR_ACCESS_DENIED} ? 0 : code;
  };
  const std::function<int()> doings[] = {
      make,
      make,
      [&] { return destroy("K\\Open"); },
      [&] { return destroy("K"); },
      [] {
        const LSTATUS begun = OrmRegBeginTransaction(HKEY_LOCAL_MACHINE, 0);
        return begun != 0 ? begun : OrmRegCommitTransaction(HKEY_LOCAL_MACHINE);
      },
  };
  std::vector<pid_t> children;
  for (const auto& doing : doings) {
    children.push_back(StartForked([&doing] {
      alarm(120);  // ends those who wait for each other
      int code = 0;
      for (int i = 0; i < 400 && code == 0; ++i) code = doing();
      return code;
    }));
  }
  for (const pid_t child : children) EXPECT_EQ(WaitFor(child), 0);
  EXPECT_EQ(Faults(HKEY_LOCAL_MACHINE), "");
  EXPECT_EQ(make(), 0);
}

class TwoUsers : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs a second user";
    ASSERT_EQ(orm::platform::ShareMachine(), 0);
  }
  static int AsNobody(const std::function<int()>& body) { return InChildAs(65534, body); }
};

TEST_F(TwoUsers, ShareTheMachineAsItsOwnerAllows) {
  Key machine(HKEY_LOCAL_MACHINE, "SOFTWARE\\App"), open;
  ASSERT_EQ(SetNumber(machine, "v", 1), 0);
  ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\trace\\1.0", 0, nullptr, 0, KEY_ALL_ACCESS,
                            NullAccessList(), open.Out(), nullptr),
            0);
  ASSERT_EQ(SetNumber(open, "level", 1), 0);
  Key mine(HKEY_CURRENT_USER, "Private");
  ASSERT_EQ(SetNumber(mine, "v", 1), 0);
  EXPECT_EQ(AsNobody([&]() -> int {
              Key readable, writable, made, shared, below, own;
              if (Open(HKEY_LOCAL_MACHINE, "software\\app", &readable) != 0 || GetNumber(readable, "v") != 1)
                return 1;
              if (Open(HKEY_LOCAL_MACHINE, "software\\app", &writable, KEY_SET_VALUE) != 5) return 2;
              if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, "software\\new", 0, nullptr, 0, KEY_READ,
                                  NullAccessList(), made.Out(), nullptr) != 5)
                return 3;
              if (RegDeleteKeyA(HKEY_LOCAL_MACHINE, "software\\app") != 5) return 4;
              if (RegDeleteKeyA(HKEY_LOCAL_MACHINE, "software\\trace\\1.0") != 5) return 5;
              if (Open(HKEY_LOCAL_MACHINE, "software\\trace\\1.0", &shared, KEY_ALL_ACCESS) != 0) return 6;
              if (SetNumber(shared, "level", 3) != 0) return 7;
              if (RegCreateKeyExA(shared, "Module", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, below.Out(),
                                  nullptr) != 0)
                return 8;
              if (SetNumber(below, "area", 4) != 0) return 9;
              if (Open(HKEY_CURRENT_USER, "Private", &own) != 2) return 10;
              if (RegCreateKeyExA(HKEY_CURRENT_USER, "Own", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, own.Out(),
                                  nullptr) != 0)
                return 11;
              if (SetNumber(own, "v", 7) != 0) return 12;
              // By the inherited handle of the other user's hive: that user's files are closed to this one.
              if (GetNumber(mine, "v") != 0xDEADBEEF) return 13;
              return OrmRegistryChangeWord(readable) != OrmRegistryChangeWord(shared) ? 0 : 14;
            }),
            0);
  EXPECT_EQ(GetNumber(open, "level"), 3u);
  Key below;
  ASSERT_EQ(Open(open, "module", &below), 0);
  EXPECT_EQ(GetNumber(below, "area"), 4u);
  EXPECT_EQ(RegDeleteKeyA(HKEY_LOCAL_MACHINE, "software\\trace\\1.0"), 5);  // it has a subkey
  EXPECT_EQ(RegDeleteKeyA(open, "Module"), 0);
  EXPECT_EQ(RegDeleteKeyA(HKEY_LOCAL_MACHINE, "software\\trace\\1.0"), 0);
  EXPECT_EQ(SetNumber(open, "level", 1), 1018);
  EXPECT_EQ(Faults(HKEY_LOCAL_MACHINE), "");
}

// Who may not write the machine's own half still has transactions on the open keys.
TEST_F(TwoUsers, HaveTransactionsOnOpenKeys) {
  Key machine(HKEY_LOCAL_MACHINE, "SOFTWARE\\App"), open;
  ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\trace", 0, nullptr, 0, KEY_ALL_ACCESS,
                            NullAccessList(), open.Out(), nullptr),
            0);
  EXPECT_EQ(AsNobody([&]() -> int {
              Key shared, denied;
              for (const bool commit : {false, true}) {
                if (OrmRegBeginTransaction(HKEY_LOCAL_MACHINE, 100) != 0) return 1;
                if (OrmRegBeginTransaction(HKEY_LOCAL_MACHINE, 100) != 170) return 2;
                if (Open(HKEY_LOCAL_MACHINE, "software\\trace", &shared, KEY_ALL_ACCESS) != 0) return 3;
                if (SetNumber(shared, "level", commit ? 2 : 1) != 0) return 4;
                if (Open(HKEY_LOCAL_MACHINE, "software\\app", &denied, KEY_SET_VALUE) != 5) return 5;
                if ((commit ? OrmRegCommitTransaction : OrmRegAbortTransaction)(HKEY_LOCAL_MACHINE) != 0)
                  return 6;
              }
              return OrmRegCommitTransaction(HKEY_LOCAL_MACHINE) == 1 ? 0 : 7;
            }),
            0);
  EXPECT_EQ(GetNumber(open, "level"), 2u);
}

TEST_F(TwoUsers, AreDeniedAStoreThatLostItsLockFile) {
  const auto open = [] {
    Key key;
    return Open(HKEY_LOCAL_MACHINE, "K", &key);
  };
  ASSERT_EQ(InChild([] { return Key(HKEY_LOCAL_MACHINE, "K").code; }), 0);
  ASSERT_EQ(unlink(MachineFile("registry/machine/lock.mdb").c_str()), 0);
  EXPECT_EQ(AsNobody(open), 5);
  EXPECT_EQ(InChild(open), 0) << "its owner makes it anew";
  EXPECT_EQ(AsNobody(open), 0);
}

TEST_F(TwoUsers, APlantedStoreIsRefused) {
  ASSERT_EQ(InChild([] {
              Key key(HKEY_CURRENT_USER, "K");
              return key.code;
            }),
            0);
  // Somebody else makes what would become this user's folder, or replaces the file by a link.
  const std::string other = MachineFile("registry/user-65534");
  ASSERT_EQ(mkdir(other.c_str(), 0777), 0);
  ASSERT_EQ(chown(other.c_str(), 65533, 65533), 0);
  EXPECT_EQ(AsNobody([] { return Key(HKEY_CURRENT_USER, "K").code == 5 ? 0 : 1; }), 0);
  ASSERT_EQ(chown(other.c_str(), 65534, 65534), 0);
  ASSERT_EQ(symlink("/etc/passwd", (other + "/data.mdb").c_str()), 0);
  EXPECT_EQ(AsNobody([] { return Key(HKEY_CURRENT_USER, "K").code == 0 ? 1 : 0; }), 0);
}

}  // namespace
