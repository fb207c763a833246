// The exported form of a bag: its bytes, and what damaged data do.
#include <gtest/gtest.h>
#include <ormutil/MemoryProperties.h>

#include <random>

#include "support/BinaryBytes.h"
#include "support/ErrorLayers.h"
#include "support/ModuleTrace.h"

using namespace orm;
using namespace test;

namespace {

const Layer kOuter{0xE7220005, "Failed to deserialize properties from external data."};
const Layer kEnd{0xE7240001, "End of data reached during archive operation."};
const Layer kInvalid{0xE7240002, "The data are not valid archive data."};
constexpr const char* kSuggestion =
    "Make sure that you are not mixing incompatible versions of this software.";

std::string Word(DWORD value) {
  std::string bytes;
  for (int i = 0; i < 4; ++i) bytes += static_cast<char>(value >> 8 * i);
  return bytes;
}

std::string Text(const std::string& text) {
  return text.empty() ? Word(0) : Word(static_cast<DWORD>(text.size() + 1)) + Word(1252) + text + '\0';
}

const std::string kHeader("\0\x13\x48\x5B", 4);
const std::string kVersion = Word(0x80000001);

MemoryProperties SampleBag() {
  MemoryProperties bag;
  bag.SetNumber("zoom", 100);
  bag.SetString("Language", "en");
  bag.SetString("", "");
  bag.SetBinary("layout", Binary("\1\2\3", 3));
  return bag;
}

}  // namespace

TEST(Export, Bytes) {
  const std::string expected = kHeader + kVersion + Word(4) + Text("") + Word(2) + Text("") +  //
                               Text("Language") + Word(2) + Text("en") +                       //
                               Text("layout") + Word(3) + Word(3) + "\1\2\3" +                 //
                               Text("zoom") + Word(1) + Word(100);
  EXPECT_EQ(SampleBag().Export(), BinaryOf(expected));

  Binary stream;
  WriteArchive archive(stream);
  archive << MemoryProperties();
  EXPECT_EQ(stream, BinaryOf(kHeader + kVersion + Word(0)));
}

TEST(Export, BigEndianData) {
  const std::string data = std::string("\x10\x13\x48\x5B", 4) + std::string("\x80\0\0\1\0\0\0\1", 8) +
                           Text("n") + std::string("\0\0\0\1\0\0\1\2", 8);
  MemoryProperties bag;
  bag.Import(BinaryOf(data));
  EXPECT_EQ(bag.GetNumber("n"), 0x102u);
}

TEST(Export, DamagedData) {
  const std::string start = kHeader + kVersion;
  const std::string first = Text("first") + Word(1) + Word(1);
  const struct {
    std::string data;
    Layers inner;
    const char* suggestion;
    bool firstIsSet;
  } cases[] = {
      {"x", {kInvalid}, "", false},
      {std::string("\x01\x13\x48\x5B", 4) + kVersion + Word(0), {kInvalid}, "", false},
      {kHeader + Word(0x80000002) + Word(0),
       {{0xE7220005, "Incompatible version (0x80000002) of external data was detected."}},
       kSuggestion,
       false},
      {kHeader + Word(0xA),
       {{0xE7220005, "Incompatible version (0xa) of external data was detected."}},
       kSuggestion,
       false},
      {kHeader, {kEnd}, "", false},
      {start, {kEnd}, "", false},
      {start + Word(0xFFFFFFFF), {kInvalid}, "", false},
      {start + Word(0xFFFFFFFF) + first, {kInvalid}, "", true},
      {start + Word(2) + first + Text("s") + Word(2) + Word(0xFFFFFFFF) + Word(1252) + "x",
       {kInvalid},
       "",
       true},
      {start + Word(2) + first + Text("b") + Word(3) + Word(0xFFFFFFFF) + "x", {kEnd}, "", true},
      {start + Word(2) + first + Text("n") + Word(1) + "xyz", {kEnd}, "", true},
      {start + Word(2) + first + Text("n") + Word(4) + Word(0),
       {{0xE7220005, "Unknown data format or data are corrupted."}},
       "",
       true},
      {start + Word(2) + first + Text("n") + Word(0),
       {{0xE7220005, "Unknown data format or data are corrupted."}},
       "",
       true},
  };
  for (const auto& c : cases) {
    MemoryProperties bag;
    bag.SetString("kept", "text");
    const Error error = ErrorOf([&] { bag.Import(BinaryOf(c.data)); });
    Layers expected{kOuter};
    expected.insert(expected.end(), c.inner.begin(), c.inner.end());
    EXPECT_EQ(LayersOf(error), expected);
    EXPECT_EQ(error.GetSuggestion(), c.suggestion);
    EXPECT_EQ(bag.GetString("kept", ""), "text");
    EXPECT_EQ(bag.GetNumber("first", 0), c.firstIsSet ? 1u : 0u);
  }
}

TEST(Export, MutatedBags) {
  const Binary good = SampleBag().Export();
  std::mt19937 random(53);
  int failed = 0;
  for (int i = 0; i < 20'000; ++i) {
    Binary data = good;
    for (auto changes = 1 + random() % 3; changes > 0; --changes) {
      data.Set(static_cast<unsigned char>(random()), static_cast<unsigned>(random()) % data.GetSize(), 1);
    }
    if (random() % 4 == 0) data.SetSize(static_cast<unsigned>(random()) % (data.GetSize() + 1), true);
    MemoryProperties bag;
    bag.SetNumber("kept before", 1);
    const Error error = ErrorOf([&] { bag.Import(data); });
    if (!error.IsEmpty()) {
      ++failed;
      ASSERT_EQ(error.GetLayerCount(), 2u);
      ASSERT_EQ(error.GetCode(), 0xE7220005u);
    }
    ASSERT_EQ(bag.GetNumber("kept before"), 1u);
    // What was taken in is a bag like any other.
    MemoryProperties copy;
    copy.Import(bag.Export());
    ASSERT_TRUE(copy.IsSubsetOf(bag, true) && bag.IsSubsetOf(copy, true));
  }
  EXPECT_GT(failed, 5'000);
}

namespace {

// A bag that another process changes right after its names were listed.
class ChangingBag : public MemoryProperties {
 public:
  std::function<void(ChangingBag&)> change;
  std::function<void(ChangingBag&)> changeAfterType;
  PropertyType GetType(const String& name) const override {
    const PropertyType type = MemoryProperties::GetType(name);
    if (changeAfterType) changeAfterType(const_cast<ChangingBag&>(*this));
    return type;
  }
  std::vector<String> EnumProperties() const override {
    auto names = MemoryProperties::EnumProperties();
    if (change) change(const_cast<ChangingBag&>(*this));
    return names;
  }
};

}  // namespace

TEST(Export, BagChangedAfterItsNamesWereListed) {
  ChangingBag bag;
  bag.SetNumber("a", 1);
  bag.SetNumber("b", 2);
  bag.change = [](ChangingBag& self) { self.Delete("b"); };
  ModuleTrace trace("assert", 'e');

  MemoryProperties target;
  target.Merge(bag, {}, true);
  EXPECT_EQ(trace.Take().size(), 1u) << "asserts and leaves the property out";
  EXPECT_EQ(target.GetNumber("a"), 1u);
  EXPECT_EQ(target.GetType("b"), Properties::TYPE_NONE);

  bag.SetNumber("b", 2);
  EXPECT_TRUE(bag.IsSubsetOf(target, true)) << "what both lack is equal";
  EXPECT_EQ(trace.Take().size(), 1u);

  bag.SetNumber("b", 2);
  const Binary data = bag.Export();
  EXPECT_EQ(trace.Take().size(), 1u);
  EXPECT_EQ(data,
            BinaryOf(kHeader + kVersion + Word(2) + Text("a") + Word(1) + Word(1) + Text("b") + Word(0)));
  MemoryProperties reader;
  EXPECT_EQ(LayersOf([&] { reader.Import(data); })[1].message, "Unknown data format or data are corrupted.");
}

TEST(Export, BagChangedAfterATypeWasRead) {
  const Layers missing{{0xE7220002, "Failed to get the value of property."},
                       {0xE7220002, "Property 'a' does not exist."}};
  const auto make = [] {
    ChangingBag bag;
    bag.SetNumber("a", 1);
    bag.changeAfterType = [](ChangingBag& self) { self.Delete("a"); };
    return bag;
  };
  MemoryProperties same, target;
  same.SetNumber("a", 1);
  EXPECT_EQ(LayersOf([&] { target.Merge(make(), {}, true); }), missing);
  EXPECT_EQ(LayersOf([&] { make().Export(); }), missing);
  EXPECT_EQ(LayersOf([&] { same.IsSubsetOf(make(), true); }), missing);
  EXPECT_EQ(LayersOf([&] { make().IsSubsetOf(same, true); }), missing);
}
