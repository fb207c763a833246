// orm machine.
#include <gmock/gmock.h>
#include <win32.h>

#include <nlohmann/json.hpp>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <functional>

#include "RunOrm.h"
#include "support/Forked.h"

namespace orm::test {
namespace {

TEST(MachineCommand, TellsWhereThingsAreAndWhoHoldsThem) {
  const HANDLE mutex = CreateMutexA(nullptr, FALSE, "held: by \\ me");
  ASSERT_NE(mutex, nullptr);
  ASSERT_EQ(RunOrm({"machine", "init"}).code, 0);
  const Outcome outcome = RunOrm({"machine", "info", "--json"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const auto json = nlohmann::json::parse(outcome.out);
  EXPECT_EQ(json["folder"], std::getenv("ORM_MACHINE"));
  EXPECT_EQ(json["codePage"], 1252);
  bool found = false;
  for (const auto& object : json["objects"]) {
    if (object["name"] != "held: by \\ me") continue;
    found = true;
    EXPECT_EQ(object["processes"], nlohmann::json::array({std::to_string(::getpid())}));
  }
  EXPECT_TRUE(found);
  CloseHandle(mutex);
}

constexpr int NOT_POSSIBLE = 77;

// What every user may do on a machine that root has made, and what only root may. Returns the number of the
// first step that is not as it should be.
int UseSharedMachine() {
  ::setenv("HOME", "/nonexistent", 1);
  if (::access(ORM_COMMAND, X_OK) != 0) return NOT_POSSIBLE;
  if (RunOrm({"machine", "check"}).code != 0) return 1;
  if (nlohmann::json::parse(RunOrm({"machine", "info", "--json"}).out)["folder"] != "/var/lib/ormutil")
    return 2;
  if (RunOrm({"reg", "add", "HKCU\\SOFTWARE\\Own", "-v", "v", "-d", "x"}).code != 0) return 3;
  if (RunOrm({"reg", "undo"}).code != 0) return 4;
  if (RunOrm({"reg", "add", "HKCU\\SOFTWARE\\Own", "-v", "v", "-d", "y"}).code != 0) return 5;
  const Outcome denied = RunOrm({"reg", "add", "HKLM\\SOFTWARE\\Own", "-v", "v", "-d", "x"});
  if (denied.code != 1 || denied.err.find("nothing was changed") == std::string::npos) return 6;
  if (RunOrm({"trace", "set", "ormutil", "thread", "d"}).code != 0) return 7;
  if (RunOrm({"trace", "policy", "i"}).code != 0) return 8;
  if (RunOrm({"class", "list"}).code != 0) return 9;
  if (RunOrm({"class", "paths", "--add", "/tmp"}).code != 1) return 10;
  return 0;
}

// In a namespace of its own, where /var/lib is empty, with the strictest file mode mask.
int MakeSharedMachine() {
  if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      ::mount("tmpfs", "/var/lib", "tmpfs", 0, "mode=755") != 0)
    return NOT_POSSIBLE;
  ::umask(077);
  if (RunOrm({"machine", "init", "--shared"}).code != 0) return 20;
  ::unsetenv("ORM_MACHINE");
  for (const uid_t user : {65533u, 65534u})
    if (const int step = ::test::InChildAs(user, &UseSharedMachine)) return step;
  if (nlohmann::json::parse(RunOrm({"machine", "info", "--json"}).out)["users"].size() != 3) return 21;
  return RunOrm({"reg", "query", "HKCU\\SOFTWARE\\Own"}).code == 1 ? 0 : 22;
}

TEST(MachineCommand, AllUsersShareTheMachineThatRootMakes) {
  const int step = ::geteuid() == 0 ? ::test::InChild(&MakeSharedMachine) : NOT_POSSIBLE;
  if (step == NOT_POSSIBLE)
    GTEST_SKIP() << "needs root, a mount namespace, and a command that others may run";
  EXPECT_EQ(step, 0);
}

TEST(MachineCommand, CheckFindsABrokenDrive) {
  EXPECT_EQ(RunOrm({"machine", "check"}).code, 0) << RunOrm({"machine", "check"}).out;
  std::filesystem::create_symlink("/no/such/folder", TestFile("drives/x:"));
  const Outcome outcome = RunOrm({"machine", "check"});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.out, testing::HasSubstr("FAULT drive x:"));
  const auto json = nlohmann::json::parse(RunOrm({"machine", "check", "--json"}).out);
  for (const auto& item : json) EXPECT_EQ(item["good"], item["item"] != "drive x:") << item;
}

}  // namespace
}  // namespace orm::test
