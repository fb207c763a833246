// Value: its types, its archived form in bytes, and damaged archives.
#include <gtest/gtest.h>
#include <ormutil/Value.h>

#include <cstring>
#include <random>

#include "support/ErrorLayers.h"
#include "support/ModuleTrace.h"

using namespace orm;
using namespace test;

namespace {

// The way into a private member that an explicit instantiation is granted.
void (*throwBadTypeError)(Value::Type) = nullptr;
template <void (*kFunction)(Value::Type)>
struct Grant {
  Grant() { throwBadTypeError = kFunction; }
  static Grant instance;
};
template <void (*kFunction)(Value::Type)>
Grant<kFunction> Grant<kFunction>::instance;
template struct Grant<&Value::ThrowBadTypeError>;

const std::vector<Value> kValues{Value(), Value(7), Value(String("seven")), Value(Binary("\0\1", 2)),
                                 Value(UtcTime::FromTicks(0x0102030405060708))};

Binary Write(const Value& value) {
  Binary stream;
  WriteArchive archive(stream);
  archive << value;
  return stream;
}

std::string Hex(const Binary& data) {
  std::string text;
  for (unsigned i = 4; i < data.GetSize(); ++i) {
    char byte[4];
    std::snprintf(byte, sizeof byte, "%02X ", data.GetData()[i]);
    text += byte;
  }
  return text;
}

bool Equal(const Value& a, const Value& b) {
  return Write(a) == Write(b);
}

}  // namespace

TEST(Value, ArchivedForm) {
  const char* const forms[] = {
      "00 00 00 00 ",
      "01 00 00 00 07 00 00 00 ",
      "02 00 00 00 06 00 00 00 E4 04 00 00 73 65 76 65 6E 00 ",
      "03 00 00 00 02 00 00 00 00 01 ",
      "04 00 00 00 08 07 06 05 04 03 02 01 ",
  };
  for (size_t i = 0; i < kValues.size(); ++i) {
    const Binary stream = Write(kValues[i]);
    EXPECT_EQ(Hex(stream), forms[i]);
    for (const Value& before : kValues) {
      Value value = before;
      ReadArchive archive(stream);
      archive >> value;
      EXPECT_EQ(value.GetType(), kValues[i].GetType());
      EXPECT_TRUE(Equal(value, kValues[i]));
      EXPECT_TRUE(archive.IsEof());
    }
  }
}

TEST(Value, BigEndianArchive) {
  const Binary stream("\x10\x13\x48\x5B\0\0\0\4\5\6\7\x08\1\2\3\4", 16);
  Value value;
  ReadArchive archive(stream);
  archive >> value;
  EXPECT_EQ(value.GetTime().GetTicks(), 0x0102030405060708u);
}

TEST(Value, SettersAndCopies) {
  for (const Value& from : kValues) {
    for (const Value& to : kValues) {
      Value value = from;
      value = to;
      EXPECT_TRUE(Equal(value, to));
    }
  }
  const Binary bytes("abc", 3);
  Value value(bytes);
  EXPECT_EQ(value.GetBinary().GetData(), bytes.GetData()) << "shared";
  value.SetString("text");
  EXPECT_EQ(bytes, Binary("abc", 3));
  value.SetString(value.GetString());
  EXPECT_EQ(value.GetString(), "text");
  value.SetTime(UtcTime::FromTicks(5));
  value.SetTime(value.GetTime());
  EXPECT_EQ(value.GetTime().GetTicks(), 5u);
}

TEST(Value, TypeErrors) {
  const struct {
    Value::Type required;
    const char* name;
    void (*get)(const Value&);
  } accessors[] = {
      {Value::TYPE_NUMBER, "NUMBER", [](const Value& v) { v.GetNumber(); }},
      {Value::TYPE_STRING, "STRING", [](const Value& v) { v.GetString(); }},
      {Value::TYPE_BINARY, "BINARY", [](const Value& v) { v.GetBinary(); }},
      {Value::TYPE_TIME, "TIME", [](const Value& v) { v.GetTime(); }},
  };
  for (const auto& accessor : accessors) {
    const Layers error{
        {0xE7400001, std::string("The type of the value is not the required type '") + accessor.name + "'."}};
    for (const Value& value : kValues) {
      EXPECT_EQ(LayersOf([&] { accessor.get(value); }),
                value.GetType() == accessor.required ? Layers{} : error);
    }
  }
}

TEST(Value, TypesThatAreNone) {
  ModuleTrace trace("assert", 'e');
  ASSERT_NE(throwBadTypeError, nullptr);
  EXPECT_EQ(LayersOf([] { throwBadTypeError(Value::TYPE_NONE); }), (Layers{{0xE7210001, ""}}));
  EXPECT_EQ(trace.Take(), (std::vector<std::string>{"src/shared/Value(35):assert fail:forced assert"}));

  Value value(String("kept"));
  ReadArchive archive;
  const Binary stream("\0\x13\x48\x5B\5\0\0\0\0\0\0\0", 12);
  archive.SetStream(stream);
  EXPECT_EQ(LayersOf([&] { archive >> value; }),
            (Layers{{0xE7400001, "The type of the value is not supported."}}));
  EXPECT_EQ(value.GetString(), "kept");

  // A value that something has written over.
  Value broken;
  const DWORD tag = 9;
  std::memcpy(static_cast<void*>(&broken), &tag, sizeof tag);
  EXPECT_EQ(Hex(Write(broken)), "09 00 00 00 ");
  EXPECT_EQ(trace.Take(),
            (std::vector<std::string>{"src/shared/Value(60):assert fail:type == Value::TYPE_NONE"}));
}

TEST(Value, DamagedArchives) {
  const Binary announcements[] = {
      Binary("\0\x13\x48\x5B\3\0\0\0\xFF\xFF\xFF\xFFxy", 14),
      Binary("\0\x13\x48\x5B\2\0\0\0\xFF\xFF\xFF\xFF\xE4\4\0\0x", 17),
  };
  for (const Binary& stream : announcements) {
    Value value(1);
    ReadArchive archive(stream);
    EXPECT_EQ(LayersOf([&] { archive >> value; }).size(), 1u);
    EXPECT_EQ(value.GetNumber(), 1u);
  }

  std::mt19937 random(32);
  for (int i = 0; i < 20'000; ++i) {
    Binary stream = Write(kValues[random() % kValues.size()]);
    for (auto changes = random() % 4; changes-- > 0;) {
      const unsigned pos = static_cast<unsigned>(random()) % stream.GetSize();
      stream.Set(static_cast<unsigned char>(random()), pos, 1);
    }
    if (random() % 4 == 0) stream.SetSize(static_cast<unsigned>(random()) % (stream.GetSize() + 1), true);
    Value value(42);
    ReadArchive archive(stream);
    const Error error = ErrorOf([&] { archive >> value; });
    if (error.IsEmpty()) continue;
    ASSERT_EQ(value.GetNumber(), 42u);
    ASSERT_TRUE(error.GetCode() == 0xE7400001 || error.GetCode() == ERROR_ARCHIVE_END ||
                error.GetCode() == ERROR_ARCHIVE_INVALID);
  }
}
