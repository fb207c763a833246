// orm archive: there and back.
#include <gmock/gmock.h>

#include "RunOrm.h"

namespace orm::test {
namespace {

using testing::HasSubstr;

TEST(ArchiveCommand, JsonThereAndBack) {
  const char* cases[] = {
      R"({"kind":"value","type":"NUMBER","number":7})",
      R"({"kind":"error","data":"","suggestion":"Try again.","marked":0,"layers":[{"code":"0x00000005","message":"a"},{"code":"0xE7230001","message":"b"}]})",
      R"({"kind":"properties","properties":[{"name":"A","type":"STRING","text":"ä"},{"name":"B","type":"BINARY","hex":"00ff"}]})",
  };
  for (const char* json : cases) {
    const std::string first = TestFile("first.bin");
    const std::string second = TestFile("second.bin");
    ASSERT_EQ(RunOrm({"archive", "make", WriteFileBytes("in.json", json), "-o", first}).code, 0);
    const Outcome shown = RunOrm({"archive", "show", first, "--json"});
    ASSERT_EQ(shown.code, 0) << shown.err;
    ASSERT_EQ(RunOrm({"archive", "make", WriteFileBytes("out.json", shown.out), "-o", second}).code, 0);
    EXPECT_EQ(ReadFileBytes(first), ReadFileBytes(second));
    EXPECT_EQ(RunOrm({"archive", "show", first}).code, 0);
  }
}

TEST(ArchiveCommand, DumpsEveryField) {
  const std::string file = WriteFileBytes("seven.bin", std::string("\0\x13\x48\x5B\1\0\0\0\7\0\0\0", 12));
  EXPECT_EQ(RunOrm({"archive", "show", file, "--dump"}).out,
            "OFFSET  BYTES        FIELD   VALUE\n"
            "     0  00 13 48 5b  header  format 0, little-endian\n"
            "     4  01 00 00 00  tag     1\n"
            "     8  07 00 00 00  number  7\n");
}

TEST(ArchiveCommand, SaysWhereADamagedOneBreaks) {
  const std::string file = WriteFileBytes("cut.bin", std::string("\0\x13\x48\x5B\1\0\0\0\7\0", 10));
  const Outcome outcome = RunOrm({"archive", "show", file});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.err, HasSubstr("damaged at byte 10, read as value"));
}

TEST(ArchiveCommand, RefusesJsonThatDescribesNone) {
  for (const char* json : {"", "[]", "{}", R"({"kind":"value","type":"NUMBER","number":-1})",
                           R"({"kind":"value","type":"NUMBER","number":4294967296})",
                           R"({"kind":"value","type":"BINARY","hex":"0"})", R"({"kind":"error","layers":7})",
                           R"({"kind":"value","type":"STRING","text":"Ж"})"}) {
    EXPECT_EQ(RunOrm({"archive", "make", WriteFileBytes("in.json", json)}).code, 1) << json;
  }
}

}  // namespace
}  // namespace orm::test
