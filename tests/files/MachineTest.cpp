// The machine folder: where it lies, what is made, what is refused.
#include "files/Files.h"

#include "kernel/Machine.h"

using namespace filestest;
using orm::platform::MachineFolder;

namespace {

std::string Base() {
  return getenv("ORM_MACHINE");
}

// The folder as a process with these variables finds it.
int Finds(const std::string& variable, const std::string& value, const std::string& expected,
          uid_t user = 0) {
  return InChild([&]() -> int {
    unsetenv("ORM_MACHINE");
    setenv(variable.c_str(), value.c_str(), 1);
    if (user != 0 && setuid(user) != 0) return 99;
    return MachineFolder() == expected ? 0 : 1;
  });
}

// Looks at the modes of rooms, of which the ones on a shared machine are given.
void ExpectRooms(mode_t mask) {
  const struct {
    const char* name;
    mode_t mode;
  } rooms[] = {{"registry", 01777},
               {"named", 01777},
               {"drives", 0755},
               {"drives/drive_c/Windows/System32", 0755},
               {"drives/drive_c/Windows/Temp", 01777}};
  for (const auto& room : rooms) {
    struct stat status {};
    ASSERT_EQ(stat((Base() + '/' + room.name).c_str(), &status), 0) << room.name;
    EXPECT_EQ(status.st_mode & 07777, room.mode & mask) << room.name;
  }
}

TEST(Machine, IsMadeWithItsRoomsAndSharedOnlyWhenToldTo) {
  umask(077);
  ASSERT_EQ(MachineFolder(), Base());
  ExpectRooms(0700);
  EXPECT_FALSE(orm::platform::MachineIsShared());
  ASSERT_EQ(orm::platform::ShareMachine(), 0);
  ExpectRooms(07777);
  EXPECT_TRUE(orm::platform::MachineIsShared());
  struct stat status {};
  ASSERT_EQ(stat(Base().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0755u);
  ASSERT_EQ(orm::platform::ShareMachine(getgid()), 0);
  ASSERT_EQ(stat(Base().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0750u);
  char target[100] = "";
  EXPECT_EQ(readlink((Base() + "/drives/c:").c_str(), target, sizeof target), 7);
  EXPECT_EQ(std::string(target, 7), "drive_c");
  EXPECT_EQ(readlink((Base() + "/drives/z:").c_str(), target, sizeof target), 1);
}

TEST(Machine, IsFoundByItsVariables) {
  if (access("/var/lib/ormutil", F_OK) == 0) GTEST_SKIP() << "this system has a machine of its own";
  EXPECT_EQ(Finds("ORM_MACHINE", Base() + "/new/deep/", Base() + "/new/deep"), 0);
  EXPECT_EQ(Finds("XDG_STATE_HOME", Base() + "/state", Base() + "/state/ormutil"), 0);
  EXPECT_EQ(InChild([]() -> int {
              setenv("HOME", Base().c_str(), 1);
              unsetenv("XDG_STATE_HOME");
              return Finds("OTHER", "", Base() + "/.local/state/ormutil");
            }),
            0);
  EXPECT_EQ(Finds("ORM_MACHINE", "/proc/none", ""), 0);
}

TEST(Machine, MadeByManyAtOnceIsOneMachine) {
  for (int round = 0; round < 20; ++round) {
    const std::string folder = Base() + "/m" + std::to_string(round);
    int gate[2];
    ASSERT_EQ(pipe(gate), 0);
    pid_t children[6];
    for (pid_t& child : children) {
      child = test::StartForked([&] {
        char c;
        close(gate[1]);
        [[maybe_unused]] const auto opened = read(gate[0], &c, 1);
        setenv("ORM_MACHINE", folder.c_str(), 1);
        HKEY key = nullptr;
        return MachineFolder() == folder && RegCreateKeyExA(HKEY_CURRENT_USER, "K", 0, nullptr, 0,
                                                            KEY_ALL_ACCESS, nullptr, &key, nullptr) == 0
                   ? 0
                   : 1;
      });
    }
    close(gate[0]);
    close(gate[1]);
    for (const pid_t child : children) ASSERT_EQ(test::WaitFor(child), 0) << "round " << round;
  }
}

TEST(Machine, OfAnotherUserOrOpenToAllIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a second user";
  ASSERT_EQ(chmod(Base().c_str(), 0755), 0);
  const std::string planted = Base() + "/planted", open = Base() + "/open", file = Base() + "/file";
  ASSERT_EQ(mkdir(planted.c_str(), 0755), 0);
  ASSERT_EQ(chown(planted.c_str(), 65533, 65533), 0);
  ASSERT_EQ(mkdir(open.c_str(), 0755), 0);
  ASSERT_EQ(chmod(open.c_str(), 0777), 0);
  std::ofstream(file) << "x";
  EXPECT_EQ(Finds("ORM_MACHINE", planted, ""), 0) << "not even root uses a machine of somebody else";
  EXPECT_EQ(Finds("ORM_MACHINE", planted, "", 65534), 0);
  EXPECT_EQ(Finds("ORM_MACHINE", planted, planted, 65533), 0);
  EXPECT_EQ(Finds("ORM_MACHINE", open, ""), 0);
  EXPECT_EQ(Finds("ORM_MACHINE", file, ""), 0);
  EXPECT_EQ(Finds("ORM_MACHINE", Base(), "", 65534), 0) << "root's, and not shared";
  std::ofstream(Base() + "/shared") << "";
  EXPECT_EQ(Finds("ORM_MACHINE", Base(), Base(), 65534), 0);
  ASSERT_EQ(chown((Base() + "/shared").c_str(), 65533, 65533), 0);
  EXPECT_EQ(Finds("ORM_MACHINE", Base(), "", 65534), 0) << "not by its owner";
  // A link is followed, and what it leads to is judged.
  ASSERT_EQ(symlink("planted", (Base() + "/link").c_str()), 0);
  EXPECT_EQ(Finds("ORM_MACHINE", Base() + "/link", ""), 0);
  ASSERT_EQ(chmod(open.c_str(), 01777), 0);
  EXPECT_EQ(Finds("ORM_MACHINE", open, open), 0);
  // A planted room: the machine stands, the room is not used.
  const std::string rooms = Base() + "/rooms";
  ASSERT_EQ(mkdir(rooms.c_str(), 0755), 0);
  ASSERT_EQ(symlink("/tmp", (rooms + "/registry").c_str()), 0);
  EXPECT_EQ(
      InChild([&] { return orm::platform::EnsureFolder(rooms + "/registry", 0755) == ENOTDIR ? 0 : 1; }), 0);
}

}  // namespace
