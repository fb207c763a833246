// What every property bag promises, run over both kinds of bags.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ormutil/MemoryProperties.h>
#include <ormutil/PersistentProperties.h>

#include "support/ErrorLayers.h"

using namespace orm;
using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

template <class Bag>
class BagTest : public testing::Test {
 protected:
  BagTest() {
    if constexpr (std::is_same_v<Bag, PersistentProperties>) {
      mBag.Open("BagTest", true);
      mBag.DeleteBag();
    }
  }
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const String& name : mBag.EnumProperties()) names.push_back(name.GetBegin());
    return names;
  }
  Bag mBag;
};

using Bags = testing::Types<MemoryProperties, PersistentProperties>;
TYPED_TEST_SUITE(BagTest, Bags);

const Binary kBytes("\0\1\2", 3);

}  // namespace

TYPED_TEST(BagTest, EmptyBag) {
  Properties& bag = this->mBag;
  EXPECT_EQ(bag.GetType("x"), Properties::TYPE_NONE);
  EXPECT_THAT(this->Names(), IsEmpty());
  bag.Delete("x");
  bag.Clear();
  EXPECT_EQ(bag.GetNumber("x", 7), 7u);
  EXPECT_EQ(bag.GetString("x", "default"), "default");
  EXPECT_EQ(bag.GetBinary("x", kBytes), kBytes);
  for (const Layers& layers : {LayersOf([&] { bag.GetNumber("x"); }), LayersOf([&] { bag.GetString("x"); }),
                               LayersOf([&] { bag.GetBinary("x"); })}) {
    ASSERT_EQ(layers.size(), 2u);
    EXPECT_EQ(layers[0], (Layer{0xE7220002, "Failed to get the value of property."}));
  }
}

TYPED_TEST(BagTest, EveryTypeReplacesEveryOther) {
  Properties& bag = this->mBag;
  const std::function<void()> setters[] = {[&] { bag.SetNumber("Name", 0xFFFFFFFF); },
                                           [&] { bag.SetString("NAME", "txt"); },
                                           [&] { bag.SetBinary("name", kBytes); }};
  for (int before = 0; before < 3; ++before) {
    for (int type = 0; type < 3; ++type) {
      setters[before]();
      setters[type]();
      EXPECT_EQ(bag.GetType("nAmE"), static_cast<Properties::PropertyType>(type + 1));
      EXPECT_EQ(bag.GetNumber("nAmE", 1), type == 0 ? 0xFFFFFFFF : 1);
      EXPECT_EQ(bag.GetString("nAmE", "d"), type == 1 ? "txt" : "d");
      EXPECT_EQ(bag.GetBinary("nAmE", Binary()), type == 2 ? kBytes : Binary());
      EXPECT_EQ(LayersOf([&] { bag.GetNumber("nAmE"); }).size(), type == 0 ? 0u : 2u);
      EXPECT_EQ(LayersOf([&] { bag.GetString("nAmE"); }).size(), type == 1 ? 0u : 2u);
      EXPECT_EQ(LayersOf([&] { bag.GetBinary("nAmE"); }).size(), type == 2 ? 0u : 2u);
    }
  }
  EXPECT_THAT(this->Names(), ElementsAre("Name")) << "in the spelling of the first setter";
}

TYPED_TEST(BagTest, NamesInOrderWithoutRegardToCase) {
  Properties& bag = this->mBag;
  for (const char* name : {"beta", "Alpha", "gamma", "", "_x", "ALPHABET", "alph", "b\xC9", "B\xE8",
                           "longer than eight B", "LONGER than eight a"}) {
    bag.SetNumber(name, 1);
  }
  EXPECT_THAT(this->Names(), ElementsAre("", "_x", "alph", "Alpha", "ALPHABET", "beta", "B\xE8", "b\xC9",
                                         "gamma", "LONGER than eight a", "longer than eight B"));
  EXPECT_EQ(bag.GetNumber("b\xE9"), 1u) << "letters of the code page";
  bag.Delete("B\xC8");
  bag.Delete("ALPHA");
  bag.Delete("absent");
  EXPECT_THAT(this->Names(), ElementsAre("", "_x", "alph", "ALPHABET", "beta", "b\xC9", "gamma",
                                         "LONGER than eight a", "longer than eight B"));
  bag.Clear();
  EXPECT_THAT(this->Names(), IsEmpty());
}

TYPED_TEST(BagTest, ValuesOfAnySize) {
  Properties& bag = this->mBag;
  bag.SetBinary("empty", Binary());
  EXPECT_EQ(bag.GetType("empty"), Properties::TYPE_BINARY);
  EXPECT_EQ(bag.GetBinary("empty").GetSize(), 0u);
  bag.SetString("empty text", "");
  EXPECT_TRUE(bag.GetString("empty text").IsEmpty());
  const std::string megabyte(1 << 20, 'x');
  bag.SetString("long text", megabyte.c_str());
  bag.SetBinary("long bytes", Binary(megabyte.data(), 1 << 20));
  EXPECT_EQ(bag.GetString("long text").GetSize(), megabyte.size());
  EXPECT_EQ(bag.GetBinary("long bytes"), Binary(megabyte.data(), 1 << 20));
}

TYPED_TEST(BagTest, MergeAndCompare) {
  Properties& bag = this->mBag;
  MemoryProperties other;
  other.SetNumber("ALPHA", 1);
  other.SetString("beta", "Abc");
  other.SetBinary("gamma", kBytes);
  bag.SetString("alpha", "old");
  bag.SetNumber("own", 9);

  const struct {
    std::vector<String> list;
    bool exclude;
    std::vector<std::string> copied;
  } cases[] = {{{}, false, {}},
               {{"Alpha"}, false, {}},  // the list is matched with regard to case
               {{"beta", "beta", "none"}, false, {"beta"}},
               {{"ALPHA", "gamma"}, true, {"beta"}},
               {{}, true, {"ALPHA", "beta", "gamma"}}};
  for (const auto& c : cases) {
    MemoryProperties target;
    target.Merge(other, c.list, c.exclude);
    std::vector<std::string> names;
    for (const String& name : target.EnumProperties()) names.push_back(name.GetBegin());
    EXPECT_EQ(names, c.copied);
  }

  EXPECT_FALSE(other.IsSubsetOf(bag, true));
  bag.Merge(other, {}, true);
  EXPECT_EQ(bag.GetNumber("alpha"), 1u);
  EXPECT_EQ(bag.GetNumber("own"), 9u);
  EXPECT_TRUE(other.IsSubsetOf(bag, true));
  EXPECT_FALSE(bag.IsSubsetOf(other, true));
  EXPECT_TRUE(bag.IsSubsetOf(bag, true));
  EXPECT_TRUE(MemoryProperties().IsSubsetOf(bag, true));

  bag.SetString("BETA", "abc");
  EXPECT_TRUE(other.IsSubsetOf(bag, false));
  EXPECT_FALSE(other.IsSubsetOf(bag, true));
  bag.SetString("beta", "Abc");
  bag.SetBinary("gamma", Binary("\0\1\2\3", 4));
  EXPECT_FALSE(other.IsSubsetOf(bag, false)) << "a longer buffer";
  bag.SetString("gamma", "");
  EXPECT_FALSE(other.IsSubsetOf(bag, false)) << "another type";
}

TYPED_TEST(BagTest, SubsetsDependOnEachTypeAndValue) {
  using Set = void (*)(Properties&);
  const Set number = [](Properties& b) { b.SetNumber("V", 1); };
  const Set other = [](Properties& b) { b.SetNumber("v", 2); };
  const Set digit = [](Properties& b) { b.SetString("v", "1"); };
  const Set upper = [](Properties& b) {
    b.SetString("v",
                "\xC9"
                "A");
  };
  const Set lower = [](Properties& b) {
    b.SetString("v",
                "\xE9"
                "a");
  };
  const Set longer = [](Properties& b) {
    b.SetString("v",
                "\xC9"
                "AB");
  };
  const Set bytes = [](Properties& b) { b.SetBinary("v", kBytes); };
  const Set others = [](Properties& b) { b.SetBinary("v", Binary("\0\1\3", 3)); };
  const Set fewer = [](Properties& b) { b.SetBinary("v", Binary("\0\1", 2)); };
  const Set none = [](Properties& b) { b.SetBinary("v", Binary()); };
  const Set absent = [](Properties&) {};
  const struct {
    Set mine, theirs;
    bool cased, folded;  // the result with and without regard to case
  } cases[] = {
      {absent, absent, true, true},  {absent, number, true, true},  {number, absent, false, false},
      {number, number, true, true},  {number, other, false, false}, {number, digit, false, false},
      {digit, number, false, false}, {upper, upper, true, true},    {upper, lower, false, true},
      {lower, upper, false, true},   {upper, longer, false, false}, {longer, upper, false, false},
      {bytes, bytes, true, true},    {bytes, others, false, false}, {bytes, fewer, false, false},
      {fewer, bytes, false, false},  {none, none, true, true},      {none, fewer, false, false},
      {fewer, none, false, false},   {none, absent, false, false},  {bytes, upper, false, false},
  };
  for (const auto& c : cases) {
    MemoryProperties mine;
    Properties& theirs = this->mBag;
    theirs.Clear();
    theirs.SetNumber("more", 1);
    c.mine(mine);
    c.theirs(theirs);
    const auto row = &c - cases;
    EXPECT_EQ(mine.IsSubsetOf(theirs, true), c.cased) << "row " << row;
    EXPECT_EQ(mine.IsSubsetOf(theirs, false), c.folded) << "row " << row;
  }
}

TYPED_TEST(BagTest, ExportAndImport) {
  Properties& bag = this->mBag;
  EXPECT_EQ(bag.Export().GetSize(), 0u);
  bag.Import(Binary());
  EXPECT_THAT(this->Names(), IsEmpty());

  MemoryProperties source;
  source.SetNumber("number", 0x01020304);
  source.SetString("string", "text");
  source.SetString("empty", "");
  source.SetBinary("binary", kBytes);
  source.SetBinary("null", Binary());
  source.SetNumber("", 7);
  bag.SetNumber("kept", 5);
  bag.SetNumber("STRING", 5);
  bag.Import(source.Export());
  EXPECT_TRUE(source.IsSubsetOf(bag, true));
  EXPECT_EQ(bag.GetNumber("kept"), 5u);

  MemoryProperties copy;
  copy.Import(bag.Export());
  EXPECT_TRUE(copy.IsSubsetOf(bag, true) && bag.IsSubsetOf(copy, true));
}
