// orm machine.
#include <gmock/gmock.h>
#include <win32.h>

#include <nlohmann/json.hpp>

#include "RunOrm.h"

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

TEST(MachineCommand, CheckFindsABrokenDrive) {
  EXPECT_EQ(RunOrm({"machine", "check"}).code, 0) << RunOrm({"machine", "check"}).out;
  std::filesystem::create_symlink("/no/such/folder", TestFile("drives/x:"));
  const Outcome outcome = RunOrm({"machine", "check"});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.out, testing::HasSubstr("FAULT drive x:"));
}

}  // namespace
}  // namespace orm::test
