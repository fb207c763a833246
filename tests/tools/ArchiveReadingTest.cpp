// Archives are recognised, and a damaged one is told by the byte at which it breaks.
#include <gmock/gmock.h>
#include <ormutil/Error.h>
#include <ormutil/MemoryProperties.h>
#include <ormutil/Value.h>

#include "ArchiveText.h"
#include "support/BinaryBytes.h"

namespace orm::tool {
namespace {

std::string SampleError() {
  Error error(5, "Access is denied.");
  error.AddLayer(ERROR_LAYER_BELOW, "Cannot read store 'a'.", true);
  error.SetSuggestion("Ask the owner.");
  return test::BytesOf(error.Export());
}

std::string SampleProperties() {
  MemoryProperties bag;
  bag.SetNumber("Width", 80);
  bag.SetString("Language", "en");
  bag.SetBinary("Key", Binary("\1\2\3", 3));
  return test::BytesOf(bag.Export());
}

std::string SampleValue(const Value& value) {
  Binary stream;
  WriteArchive writer(stream);
  writer << value;
  return test::BytesOf(stream);
}

TEST(ArchiveReading, EveryKindIsRecognisedAndComesBackFromJson) {
  const std::pair<std::string, ArchiveKind> cases[] = {
      {SampleError(), ArchiveKind::Error},
      {SampleProperties(), ArchiveKind::Properties},
      {SampleValue(Value()), ArchiveKind::Value},
      {SampleValue(Value(7)), ArchiveKind::Value},
      {SampleValue(Value(String("seven \xE4"))), ArchiveKind::Value},
      {SampleValue(Value(Binary("\7", 1))), ArchiveKind::Value},
      {SampleValue(Value(UtcTime::GetUtc(2004, 3, 15, 12, 30, 0, 0))), ArchiveKind::Value},
  };
  for (const auto& [bytes, kind] : cases) {
    const ArchiveReading reading = RecogniseArchive(bytes);
    ASSERT_TRUE(reading.isSound) << reading.fault;
    EXPECT_EQ(reading.kind, kind);
    EXPECT_EQ(ArchiveFromJson(reading.json), bytes);
    // The fields cover every byte, one after the other.
    std::size_t end = 0;
    for (const ArchiveField& field : reading.fields) {
      EXPECT_EQ(field.offset, end);
      end += field.size;
    }
    EXPECT_EQ(end, bytes.size());
  }
}

TEST(ArchiveReading, EveryTruncationBreaksAtItsEnd) {
  for (const std::string& bytes : {SampleError(), SampleProperties(), SampleValue(Value(String("text")))}) {
    for (std::size_t size = 0; size < bytes.size(); ++size) {
      const ArchiveReading reading = ReadArchiveAs(bytes.substr(0, size), RecogniseArchive(bytes).kind);
      EXPECT_FALSE(reading.isSound);
      EXPECT_LE(reading.faultAt, size);
      EXPECT_NE(reading.fault, "");
    }
  }
}

TEST(ArchiveReading, NamesTheByteOfTheFault) {
  std::string wrongType = SampleProperties();
  wrongType[wrongType.find("Key") + 4] = 9;  // the type word behind the name
  struct {
    std::string bytes;
    std::size_t at;
    const char* message;
  } const cases[] = {
      {"", 0, "before the end of header"},
      {std::string("\0\x13\x48\x5C", 4), 3, "not the header"},
      {std::string("\x01\x13\x48\x5B", 4), 0, "format 1"},
      {wrongType, wrongType.find("Key") + 4, "no type 9"},
      {SampleProperties() + "xy", SampleProperties().size(), "2 bytes follow"},
      {std::string("\0\x13\x48\x5B\x01\0\0\x80\xFF\xFF\xFF\xFF", 12), 8,
       "larger than what the remaining bytes"},
  };
  for (const auto& item : cases) {
    const ArchiveReading reading = RecogniseArchive(item.bytes);
    EXPECT_FALSE(reading.isSound);
    EXPECT_EQ(reading.faultAt, item.at) << reading.fault;
    EXPECT_THAT(reading.fault, testing::HasSubstr(item.message));
  }
}

TEST(ArchiveReading, BigEndianNumbersAreRead) {
  const ArchiveReading reading = RecogniseArchive(std::string("\x10\x13\x48\x5B\0\0\0\1\0\0\0\7", 12));
  ASSERT_TRUE(reading.isSound);
  EXPECT_EQ(reading.json["number"], 7);
}

}  // namespace
}  // namespace orm::tool
