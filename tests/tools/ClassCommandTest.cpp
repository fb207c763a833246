// orm class: classes of libraries, the shared cache, and the examination of good and bad libraries.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>

#include "RunOrm.h"

namespace orm::test {
namespace {

using testing::Contains;
using testing::HasSubstr;

std::string Fixture(const std::string& name) {
  return std::string(FIXTURES) + "/probe_" + name + ".dll";
}

TEST(ClassCommand, ListsShowsAndCreates) {
  const std::string path = Fixture("good");
  EXPECT_THAT(RunOrm({"class", "list"}).out, HasSubstr("CID_ClassManagerPathInfo"));
  EXPECT_THAT(RunOrm({"class", "list", "-p", path}).out, HasSubstr("CID_Good"));
  EXPECT_EQ(nlohmann::json::parse(RunOrm({"class", "list", "--face", "IID_None", "--json"}).out).size(), 0u);
  const auto shown = nlohmann::json::parse(RunOrm({"class", "show", "CID_Good", "-p", path, "--json"}).out);
  EXPECT_EQ(shown["faces"][0]["face"], "IID_BaseFace");
  const Outcome created = RunOrm({"class", "create", "CID_Good", "IID_BaseFace", "-p", path, "--json"});
  ASSERT_EQ(created.code, 0) << created.err;
  EXPECT_EQ(nlohmann::json::parse(created.out)["destroyed"], true);
  EXPECT_THAT(RunOrm({"class", "create", "CID_Good", "IID_Other", "-p", path}).err, HasSubstr("CID_Good"));
  EXPECT_THAT(RunOrm({"class", "show", "CID_None"}).err, HasSubstr("CID_None"));
}

TEST(ClassCommand, DefaultPathsAreForEveryProcess) {
  ASSERT_EQ(RunOrm({"class", "paths", "--add", Fixture("good")}).code, 0);
  EXPECT_THAT(RunOrm({"class", "list"}).out, HasSubstr("CID_Good"));
  EXPECT_EQ(nlohmann::json::parse(RunOrm({"class", "paths", "--json"}).out)["defaults"].size(), 1u);
  ASSERT_EQ(RunOrm({"class", "paths", "--remove", Fixture("good")}).code, 0);
  EXPECT_THAT(RunOrm({"class", "list"}).out, testing::Not(HasSubstr("CID_Good")));
  EXPECT_EQ(RunOrm({"class", "paths", "--remove", Fixture("good")}).code, 1);
}

TEST(ClassCommand, DefaultPathsMayBeLongAndGone) {
  const std::filesystem::path base = std::getenv("ORM_MACHINE");
  const std::filesystem::path gone = base / std::string(150, 'a') / std::string(150, 'b'),
                              tooLong = gone / std::string(250, 'c');
  std::filesystem::create_directories(tooLong);
  EXPECT_THAT(RunOrm({"class", "paths", "--add", tooLong}).err, HasSubstr("515 bytes"));
  for (const std::string& path : {gone.string(), Fixture("good")})
    ASSERT_EQ(RunOrm({"class", "paths", "--add", path}).code, 0);
  EXPECT_THAT(RunOrm({"class", "list"}).out, HasSubstr("CID_Good")) << "the long one keeps nobody from it";
  std::filesystem::remove_all(gone);
  EXPECT_EQ(RunOrm({"class", "paths", "--add", gone}).code, 1);
  const Outcome removed = RunOrm({"class", "paths", "--remove", gone});
  EXPECT_EQ(removed.code, 0) << removed.err;
  EXPECT_EQ(nlohmann::json::parse(RunOrm({"class", "paths", "--json"}).out)["defaults"].size(), 1u);
}

TEST(ClassCommand, ShowsAndVerifiesTheCache) {
  ASSERT_EQ(RunOrm({"class", "list", "-p", Fixture("good")}).code, 0);
  const Outcome outcome = RunOrm({"class", "cache", "--json"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const auto json = nlohmann::json::parse(outcome.out);
  ASSERT_EQ(json["slots"].size(), 1u);
  EXPECT_EQ(json["slots"][0]["classes"][0]["class"], "CID_Good");
  EXPECT_THAT(json["faults"], testing::IsEmpty());
  EXPECT_EQ(RunOrm({"class", "cache", "--verify"}).code, 0);
  const Outcome damaged =
      RunOrm({"class", "cache", "--verify", "--file", WriteFileBytes("zero", std::string(0x10000, '\0'))});
  EXPECT_EQ(damaged.code, 2);
  EXPECT_THAT(damaged.out, HasSubstr("magic word 1 is wrong"));
}

TEST(ClassCommand, ProbeFindsWhatHoldsALibrary) {
  struct {
    const char* fixture;
    bool meetsContract, unloads;
    const char* reason;
  } const cases[] = {
      {"good", true, true, ""},
      {"missing", false, true, "it does not export LibEnumClasses"},
      {"unique", true, false, "GNU-unique symbol fixture::pinned"},
      {"thread", true, false, "a thread that it started still runs"},
      {"local", true, false, "thread_local object with a destructor"},
      {"nodelete", true, false, "linked with -z nodelete"},
      {"kept", true, false, "libprobe_keeper.so"},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.fixture);
    const Outcome outcome = RunOrm({"class", "probe", Fixture(item.fixture), "--json"});
    EXPECT_EQ(outcome.code, item.meetsContract && item.unloads ? 0 : 2) << outcome.err;
    const auto json = nlohmann::json::parse(outcome.out);
    EXPECT_EQ(json["meetsContract"], item.meetsContract) << json;
    EXPECT_EQ(json["unloads"], item.unloads) << json;
    if (*item.reason) {
      EXPECT_THAT(json["reasons"], Contains(HasSubstr(item.reason))) << json;
    }
  }
  EXPECT_EQ(RunOrm({"class", "probe", Fixture("good"), "--create"}).code, 0);
  const Outcome text = RunOrm({"class", "probe", WriteFileBytes("text.dll", "no library")});
  EXPECT_EQ(text.code, 2);
  EXPECT_THAT(text.out, HasSubstr("this is no ELF file"));
}

}  // namespace
}  // namespace orm::test
