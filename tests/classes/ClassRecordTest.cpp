// Normalised class descriptions and the serialised class list.
#include "ClassRecord.h"

#include <gtest/gtest.h>
#include <ormutil/Error.h>

#include <string>

#include "Random.h"
#include "support/BinaryBytes.h"

namespace {

using orm::Binary;
using orm::ClassDescription;
using orm::ClassRecord;
using orm::FaceDescription;
using orm::String;
using test::BinaryOf;
using test::BytesOf;

// "CID_A[IID_X=data,IID_Y=]" and so on.
std::string Describe(const std::vector<ClassRecord>& records) {
  std::string text;
  for (const ClassRecord& record : records) {
    text += std::string(text.empty() ? "" : " ") + record.id.text.GetBegin() + "[";
    for (const orm::FaceRecord& face : record.faces) {
      text += std::string(face.id.text.GetBegin()) + "=" + BytesOf(face.data) + ",";
    }
    text += "]" + BytesOf(record.data);
  }
  return text;
}

class Assertions {
 public:
  Assertions() { orm::TraceSetSink(&Note, this, 'i'); }
  ~Assertions() { orm::TraceSetSink(nullptr, nullptr, 0); }
  std::string text;

 private:
  static void Note(void* pThis, const char* line) { static_cast<Assertions*>(pThis)->text += line; }
};

TEST(ClassRecords, AreSortedAndUnique) {
  Assertions assertions;
  const std::vector<ClassDescription> descriptions = {
      {"CID_b",
       BinaryOf("first"),
       {{"IID_X", BinaryOf("1")}, {"IID_X", {}}, {"IID_A", {}}, {"IID_A", BinaryOf("2")}}},
      {"CID_a", {}, {}},
      // The hash of these two is the same, so their texts decide.
      {"CID_yx", {}, {{"IID_ba", {}}, {"IID_ab", BinaryOf("3")}, {"IID_ab", BinaryOf("4")}}},
      {"CID_xy", {}, {}},
  };
  EXPECT_EQ(Describe(orm::NormalizeClasses(descriptions)),
            "CID_a[] CID_b[IID_A=2,IID_X=1,]first CID_xy[] CID_yx[IID_ab=4,IID_ba=,]");
  EXPECT_EQ(assertions.text, "");
}

TEST(ClassRecords, ARepeatedClassKeepsItsFirstDescriptionAndIsAnAssertion) {
  Assertions assertions;
  const auto records = orm::NormalizeClasses({{"CID_A", BinaryOf("1"), {}}, {"CID_A", BinaryOf("2"), {}}});
  EXPECT_EQ(Describe(records), "CID_A[]1");
  EXPECT_NE(
      assertions.text.find("src/shared/ClassManager(1308):assert fail:clsids.find(clsid) == clsids.end()"),
      std::string::npos)
      << assertions.text;
}

TEST(ClassRecords, FindFaceComparesTextsOfEqualHashes) {
  const auto records = orm::NormalizeClasses({{"CID_A", {}, {{"IID_ab", {}}, {"IID_cd", {}}}}});
  EXPECT_NE(orm::FindFace(records[0].faces, "IID_ab"), nullptr);
  EXPECT_EQ(orm::FindFace(records[0].faces, "IID_ba"), nullptr);
  EXPECT_TRUE(orm::HasFaces(records[0].faces, {"IID_cd", "IID_ab"}));
  EXPECT_FALSE(orm::HasFaces(records[0].faces, {"IID_cd", "IID_Ab"}));
  EXPECT_TRUE(orm::HasFaces({}, {}));
}

TEST(ClassList, HasTheAgreedBytes) {
  using namespace std::string_literals;
  EXPECT_TRUE(orm::WriteClassList({}).IsEmpty());
  const auto records = orm::NormalizeClasses({{"A", BinaryOf("d"), {{"B", BinaryOf("e")}}}});
  EXPECT_EQ(BytesOf(orm::WriteClassList(records)),
            "\x00\x13\x48\x5B"
            "\1\0\0\0"
            "\2\0\0\0\xE4\4\0\0A\0"
            "\1\0\x41\0"
            "\1\0\0\0d"
            "\1\0\0\0"
            "\2\0\0\0\xE4\4\0\0B\0"
            "\1\0\x42\0"
            "\1\0\0\0e"s);
}

class ClassListReading : public testing::Test {
 protected:
  ClassListReading() {
    mRecords =
        orm::NormalizeClasses({{"CID_Alpha", BinaryOf("data"), {{"IID_X", {}}, {"IID_Y", BinaryOf("y")}}},
                               {"CID_Beta", {}, {}},
                               {"CID_Gamma", {}, {{"IID_X", BinaryOf(std::string(200, 'z'))}}}});
    mBytes = BytesOf(orm::WriteClassList(mRecords));
  }
  // Whether it was read; only the archive's errors may be thrown.
  static bool Reads(const std::string& bytes) {
    try {
      orm::ReadClassList(BinaryOf(bytes));
      return true;
    } catch (const orm::Error& error) {
      EXPECT_TRUE(error.GetCode() == orm::ERROR_ARCHIVE_END || error.GetCode() == orm::ERROR_ARCHIVE_INVALID);
      return false;
    }
  }

  Assertions mAssertions;
  std::vector<ClassRecord> mRecords;
  std::string mBytes;
};

TEST_F(ClassListReading, GivesBackWhatWasWritten) {
  EXPECT_EQ(Describe(orm::ReadClassList(BinaryOf(mBytes))), Describe(mRecords));
  EXPECT_TRUE(orm::ReadClassList({}).empty());
}

TEST_F(ClassListReading, RefusesEveryShorterList) {
  for (size_t size = 1; size < mBytes.size(); ++size) EXPECT_FALSE(Reads(mBytes.substr(0, size))) << size;
}

TEST_F(ClassListReading, RefusesCountsHashesAndOrdersThatCannotBe) {
  std::string huge = mBytes;
  huge.replace(4, 4, "\xFF\xFF\xFF\x7F");
  EXPECT_FALSE(Reads(huge));
  std::string hash = mBytes;
  hash[4 + 4 + 8 + 9 + 1] ^= 1;  // header, count, string header, the first class's id
  EXPECT_FALSE(Reads(hash));
  std::vector<ClassRecord> unsorted = mRecords;
  std::swap(unsorted[0], unsorted[1]);
  EXPECT_FALSE(Reads(BytesOf(orm::WriteClassList(unsorted))));
  unsorted[1] = unsorted[0];
  EXPECT_FALSE(Reads(BytesOf(orm::WriteClassList(unsorted))));
}

TEST_F(ClassListReading, SurvivesRandomMutations) {
  Random random(5);
  for (int round = 0; round < 20000; ++round) {
    std::string bytes = mBytes;
    for (unsigned i = 0, count = 1 + random() % 4; i < count; ++i) {
      bytes[random() % bytes.size()] = static_cast<char>(random() % 4 == 0 ? 0xFF : random());
    }
    Reads(bytes);
  }
}

}  // namespace
