// Archive streams: their bytes, both byte orders, the reader's errors, and 20,000 damaged streams.
#include <ormutil/Archive.h>
#include <ormutil/Error.h>

#include <functional>
#include <random>
#include <string>

#include "AssertionLog.h"
#include "support/BinaryBytes.h"
#include "support/ScarceMemory.h"

using namespace orm;
using namespace test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::string_literals;

namespace {

const std::string kHeader = "\0\x13\x48\x5B"s;

template <class... Values>
std::string Written(const Values&... values) {
  Binary stream = BinaryOf("dropped");
  WriteArchive writer(stream);
  (void)(writer << ... << values);
  return BytesOf(stream);
}

// The code of the one layer that reading throws, 0 when it throws nothing.
template <class T>
DWORD Failure(const std::string& bytes, T& value) {
  const Binary stream = BinaryOf(bytes);
  ReadArchive reader(stream);
  try {
    reader >> value;
  } catch (const Error& error) {
    EXPECT_EQ(error.GetLayerCount(), 1u);
    EXPECT_EQ(error.GetMessage(), error.GetCode() == ERROR_ARCHIVE_END
                                      ? "End of data reached during archive operation."
                                      : "The data are not valid archive data.");
    return error.GetCode();
  }
  return 0;
}

// Opens the protected operations, as the library's own formats do.
class RawWriter : public WriteArchive {
 public:
  using WriteArchive::WriteArchive;
  using WriteArchive::WriteData;
};
class RawReader : public ReadArchive {
 public:
  using ReadArchive::ReadArchive;
  using ReadArchive::ReadData;
  using ReadArchive::ReadDataEx;
};

}  // namespace

TEST(Archive, WritesFixedBytes) {
  EXPECT_EQ(Written(), "");
  EXPECT_EQ(Written(uint32_t{1}), kHeader + "\1\0\0\0"s);
  EXPECT_EQ(Written(uint8_t{1}, uint16_t{0x0203}, uint64_t{0x0405060708090A0B}, true, int32_t{-1}),
            kHeader + "\1\3\2\xB\xA\x9\x8\x7\x6\x5\x4\1\xFF\xFF\xFF\xFF"s);
  EXPECT_EQ(Written(String()), kHeader + "\0\0\0\0"s);
  EXPECT_EQ(Written("abc"), kHeader + "\4\0\0\0\xE4\x04\0\0abc\0"s);
  EXPECT_EQ(Written(BinaryOf("xyz"), Binary()), kHeader + "\3\0\0\0xyz\0\0\0\0"s);
}

TEST(Archive, ReadsBackInBothByteOrders) {
  const std::string values[] = {kHeader + "\xFF\2\1\4\3\2\1\x8\7\6\5\4\3\2\1\1\3\0\0\0xyz"s,
                                "\xF0\x13\x48\x5B\xFF\1\2\1\2\3\4\1\2\3\4\5\6\7\x8\1\0\0\0\3xyz"s};
  for (const std::string& bytes : values) {
    const Binary stream = BinaryOf(bytes);
    ReadArchive reader(stream);
    EXPECT_EQ(reader.GetFormat(), ARCHIVE_FORMAT_DEFAULT);
    int8_t byte = 0;
    uint16_t word = 0;
    uint32_t number = 0;
    uint64_t large = 0;
    bool flag = false;
    Binary data;
    EXPECT_FALSE(reader.IsEof());
    reader >> byte >> word >> number >> large >> flag >> data;
    EXPECT_EQ(byte, -1);
    EXPECT_EQ(word, 0x0102);
    EXPECT_EQ(number, 0x01020304u);
    EXPECT_EQ(large, 0x0102030405060708u);
    EXPECT_TRUE(flag);
    EXPECT_EQ(BytesOf(data), "xyz");
    EXPECT_TRUE(reader.IsEof());
  }
}

TEST(Archive, RejectsWhatItCannotRead) {
  uint32_t number = 7;
  for (const std::string& bytes :
       {""s, "\0\x13\x48"s, "\1\x13\x48\x5B\1\0\0\0"s, "\0\x13\x48\x5C\1\0\0\0"s}) {
    EXPECT_EQ(Failure(bytes, number), ERROR_ARCHIVE_INVALID);
    EXPECT_EQ(number, 0u);
    String text("old");
    EXPECT_EQ(Failure(bytes, text), ERROR_ARCHIVE_INVALID);
    EXPECT_EQ(text, "");
    const Binary stream = BinaryOf(bytes);
    ReadArchive reader(stream);
    EXPECT_EQ(reader.GetFormat(), ARCHIVE_FORMAT_UNKNOWN);
    EXPECT_THROW(reader.IsEof(), Error);
  }
  number = 7;
  EXPECT_EQ(Failure(kHeader + "\1\0\0"s, number), ERROR_ARCHIVE_END);
  EXPECT_EQ(number, 0u);
  Binary data = BinaryOf("kept");
  EXPECT_EQ(Failure(kHeader + "\4\0\0\0abc"s, data), ERROR_ARCHIVE_END);
  EXPECT_EQ(Failure(kHeader + "\xFF\xFF\xFF\xFF"s, data), ERROR_ARCHIVE_END);
  EXPECT_EQ(BytesOf(data), "kept");
  test::AssertionLog log;
  String text("x");
  EXPECT_EQ(Failure(kHeader + "\4\0\0\0\xE4\x04\0\0abc"s, text), ERROR_ARCHIVE_INVALID);
  EXPECT_TRUE(text.IsEmpty());
  const Binary empty = BinaryOf(kHeader);
  EXPECT_TRUE(ReadArchive(empty).IsEof());
}

TEST(Archive, RawBytesCarryNoHeaderOfTheirOwn) {
  Binary stream;
  RawWriter writer(stream);
  writer.WriteData(nullptr, 0);
  EXPECT_TRUE(stream.IsEmpty());
  writer.WriteData(reinterpret_cast<const unsigned char*>("raw"), 3);
  writer.WriteData(nullptr, 0);
  EXPECT_EQ(BytesOf(stream), kHeader + "raw");
  // The bytes of the stream itself, while it grows.
  for (int i = 0; i < 10; ++i) writer.WriteData(stream.GetData(), stream.GetSize());
  EXPECT_EQ(stream.GetSize(), 7u << 10);
  EXPECT_EQ(BytesOf(stream).substr(3 * 7, 7), kHeader + "raw");
  writer << stream;
  EXPECT_EQ(stream.GetSize(), (7u << 11) + 4);
  RawReader reader(stream);
  unsigned char odd[3];
  reader.ReadData(odd, 3);
  EXPECT_EQ(std::string(odd, odd + 3), "raw");
}

TEST(Archive, StreamsGrowAndMayBeSharedWhileTheyAreWritten) {
  Binary stream;
  WriteArchive writer(stream);
  EXPECT_EQ(stream.GetAllocated(), 512u);
  EXPECT_EQ(stream.GetSize(), 0u);
  std::string expected = kHeader;
  Binary early;
  for (uint32_t i = 0; i < 20000; ++i) {
    writer << i;
    expected.append(reinterpret_cast<const char*>(&i), sizeof i);
    if (i == 99) early = stream;
  }
  EXPECT_EQ(BytesOf(stream), expected);
  EXPECT_EQ(BytesOf(early), expected.substr(0, 404));
  writer.Reserve(100000);
  EXPECT_GE(stream.GetAllocated(), stream.GetSize() + 100000);
  EXPECT_EQ(stream.GetSize(), expected.size());
}

TEST(Archive, ArchiveHoldsBothDirections) {
  Binary stream;
  Archive archive(stream, Archive::MODE_WRITE);
  archive << uint16_t{7} << "text";
  archive.SetStream(stream, Archive::MODE_READ);
  uint16_t number = 0;
  String text;
  archive >> number >> text;
  EXPECT_EQ(number, 7);
  EXPECT_EQ(text, "text");
}

TEST(Archive, MisuseIsAsserted) {
  test::AssertionLog log;
  const auto failure = [](int line, const char* text) {
    return test::Failure("src/shared/Archive", line, text);
  };
  WriteArchive writer;
  writer << uint8_t{1};
  EXPECT_THAT(log.Take(), ElementsAre(failure(97, "mpData != 0")));
  writer << String("x");
  EXPECT_THAT(log.Take(), ElementsAre(failure(123, "mpData != 0"), failure(150, "mpData != 0")));
  writer.Reserve(1);
  EXPECT_THAT(log.Take(), ElementsAre(failure(91, "mpData != 0")));
  Binary stream;
  writer.SetStream(stream, ARCHIVE_FORMAT_UNKNOWN);
  EXPECT_THAT(log.Take(), ElementsAre(failure(81, "format != ARCHIVE_FORMAT_UNKNOWN")));
  Archive archive;
  archive.SetStream(stream, static_cast<Archive::ModeType>(2));
  EXPECT_THAT(log.Take(), ElementsAre(failure(299, "forced assert")));
  RawReader reader;
  unsigned char byte = 1;
  EXPECT_THROW(reader.ReadData(&byte, 1), Error);
  EXPECT_EQ(byte, 0);
  EXPECT_THAT(log.Take(), ElementsAre(failure(231, "mpData != 0"), failure(182, "mpData != 0")));
  EXPECT_THROW(reader.ReadDataEx(&byte, 1), Error);
  EXPECT_THAT(log.Take(), ElementsAre(failure(239, "mpData != 0"), failure(182, "mpData != 0")));
  const Binary valid = BinaryOf(kHeader + "x");
  reader.SetStream(valid);
  reader.ReadData(&byte, 0);
  reader.ReadDataEx(&byte, 0);
  EXPECT_THAT(log.Take(), ElementsAre(failure(232, "size != 0"), failure(240, "size != 0")));
  // A stream that shrinks under its reader.
  Binary shrinking = BinaryOf(kHeader + "12345678"s);
  reader.SetStream(shrinking);
  uint64_t number = 0;
  reader >> number;
  shrinking.SetSize(4, true);
  EXPECT_TRUE(reader.IsEof());
  EXPECT_THROW(reader >> number, Error);
  EXPECT_THAT(log.Take(), ElementsAre(failure(208, "mPos <= mpData->GetSize()"),
                                      failure(220, "mPos <= mpData->GetSize()")));
}

// A value is in the stream with all of its bytes or not at all.
TEST(Archive, AWriterWithoutMemoryKeepsWhatItHas) {
  test::AssertionLog log;
  const std::string large(1000, 'x');
  const std::pair<const char*, std::function<void(RawWriter&, const Binary&)>> table[] = {
      {"bytes",
       [&](RawWriter& writer, const Binary&) {
         writer.WriteData(reinterpret_cast<const unsigned char*>(large.data()), 1000);
       }},
      {"string", [&](RawWriter& writer, const Binary&) { writer << large.c_str(); }},
      {"buffer", [&](RawWriter& writer, const Binary&) { writer << BinaryOf("0123456789"); }},
      {"the stream itself", [&](RawWriter& writer, const Binary& stream) { writer << stream; }},
      {"room", [&](RawWriter& writer, const Binary&) { writer.Reserve(1000); }},
  };
  for (const auto& [what, write] : table) {
    const auto operation = [&write = write] {
      Binary stream;
      RawWriter writer(stream);
      writer << BinaryOf(std::string(497, 'f'));  // leaves room for the count of a buffer, not for its bytes
      const std::string before = BytesOf(stream);
      try {
        write(writer, stream);
      } catch (const std::bad_alloc&) {
        EXPECT_EQ(BytesOf(stream), before);
        writer << uint8_t{'!'};
        EXPECT_EQ(BytesOf(stream), before + "!");
        throw;
      }
    };
    EXPECT_GT(test::RefuseEachAllocation(operation, [&] { log.Take(); }), 0) << what;
  }
  Binary former, next;
  WriteArchive writer(former);
  writer << uint8_t{1};
  bool isRefused = false;
  const auto operation = [&] { writer.SetStream(next); };
  test::RefuseAllocation(0, operation, isRefused);
  EXPECT_TRUE(isRefused);
  log.Take();
  writer << uint8_t{2};
  EXPECT_EQ(BytesOf(former), kHeader + "\1");
  EXPECT_EQ(BytesOf(next), kHeader + "\2");
}

// Of a code page whose tables this process has not made yet.
TEST(Archive, ATextWhosePageLacksMemoryIsReadLater) {
  test::AssertionLog log;
  const unsigned char form[] = {2, 0, 0, 0, 0xE9, 4, 0, 0, 0xE0, 0};  // 1257
  WideString text;
  const unsigned short kept[] = {'k', 0};
  text = kept;
  const WideString before = text;
  test::refusedSize = 0x400;
  EXPECT_THROW(text.Deserialize(form, sizeof form, 0), std::bad_alloc);
  test::refusedSize = 0;
  EXPECT_EQ(text, before);
  EXPECT_EQ(text.Deserialize(form, sizeof form, 0), sizeof form);
  EXPECT_EQ(text.GetAt(0), 0x105u);
  EXPECT_EQ(text.GetLength(), 1u);
}

// Whatever the bytes are, a reader throws an Error or yields values; it never needs more memory than there
// are bytes. Run under the address sanitizer to see it look outside.
TEST(Archive, DamagedStreamsThrowOrRead) {
  test::AssertionLog log;
  test::refusedSize = 0x4000;
  Binary stream;
  WriteArchive writer(stream);
  Error error(5, "Access is denied.", true);
  error.AddLayer(ERROR_LAYER_BELOW, "Cannot open the store.");
  error.SetSuggestion("Ask the owner.");
  writer << uint32_t{3} << "text" << error << BinaryOf("0123456789") << uint64_t{9} << true << String();
  const std::string intact = BytesOf(stream);
  std::mt19937 random(20260817);
  int failures = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string bytes = intact;
    for (auto changes = 1 + random() % 4; changes > 0; --changes) {
      bytes[random() % bytes.size()] = static_cast<char>(random() % 3 ? random() : 0xFF);
    }
    bytes.resize(bytes.size() - (random() % 4 ? 0 : random() % bytes.size()));
    const Binary damaged = BinaryOf(bytes);
    ReadArchive reader(damaged);
    uint32_t number;
    uint64_t large;
    bool flag;
    String text;
    Binary data;
    Error read;
    try {
      reader >> number >> text >> read >> data >> large >> flag >> text;
      EXPECT_LE(read.Format().GetSize() + data.GetSize(), 2 * bytes.size() + 100);
    } catch (const Error& failure) {
      ++failures;
      EXPECT_FALSE(failure.IsEmpty());
    }
    log.Take();
  }
  EXPECT_GT(failures, 5000);
  EXPECT_LT(failures, 20000);
}
