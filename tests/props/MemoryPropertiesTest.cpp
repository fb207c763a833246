// The memory bag: shared tables, its errors, and its index against a plain map.
#include <gtest/gtest.h>
#include <ormutil/MemoryProperties.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <random>
#include <thread>

#include "support/Child.h"
#include "support/ErrorLayers.h"
#include "support/FailingNew.h"
#include "support/ModuleTrace.h"

using namespace orm;
using namespace test;

TEST(MemoryProperties, Errors) {
  MemoryProperties bag;
  bag.SetNumber("Number", 1);
  bag.SetString("String", "s");
  const std::string wrong = "Type of property '%' is unexpected, '%' type is required.";
  const struct {
    std::function<void()> get;
    Layer inner;
  } cases[] = {
      {[&] { bag.GetNumber("None"); }, {0xE7220002, "Property 'None' does not exist."}},
      {[&] { bag.GetString(""); }, {0xE7220002, "Property '' does not exist."}},
      {[&] { MemoryProperties().GetBinary("100%1"); }, {0xE7220002, "Property '100%1' does not exist."}},
      {[&] { bag.GetNumber("STRING"); },
       {0xE7220001, "Type of property 'STRING' is unexpected, 'TYPE_NUMBER' type is required."}},
      {[&] { bag.GetString("number"); },
       {0xE7220001, "Type of property 'number' is unexpected, 'TYPE_STRING' type is required."}},
      {[&] { bag.GetBinary("Number"); },
       {0xE7220001, "Type of property 'Number' is unexpected, 'TYPE_BINARY' type is required."}},
  };
  {
    ModuleTrace trace("mprops", 'e');
    for (const auto& c : cases) LayersOf(c.get);
    EXPECT_TRUE(trace.Take().empty()) << "the lines are warnings";
  }
  ModuleTrace trace("mprops", 'w');
  for (const auto& c : cases) {
    EXPECT_EQ(LayersOf(c.get), (Layers{{c.inner.code, "Failed to get the value of property."}, c.inner}));
    char code[16];
    std::snprintf(code, sizeof code, "(%08x)", c.inner.code);
    EXPECT_EQ(trace.Take(),
              (std::vector<std::string>{
                  "^ MemoryProperties: " + c.inner.message + code,
                  std::string("^ MemoryProperties: Failed to get the value of property.") + code}));
  }
}

TEST(MemoryProperties, CopiesShareUntilOneIsChanged) {
  MemoryProperties bag;
  bag.SetNumber("a", 1);
  bag.SetString("b", "text");
  MemoryProperties copy = bag;
  EXPECT_EQ(copy.GetString("b").GetBegin(), bag.GetString("b").GetBegin()) << "one block";
  copy.SetNumber("a", 2);
  copy.Delete("b");
  copy.SetNumber("c", 3);
  EXPECT_EQ(bag.GetNumber("a"), 1u);
  EXPECT_EQ(bag.GetString("b"), "text");
  EXPECT_EQ(bag.GetType("c"), Properties::TYPE_NONE);
  MemoryProperties third = copy;
  copy.Clear();
  EXPECT_EQ(third.GetNumber("c"), 3u);
  EXPECT_TRUE(copy.EnumProperties().empty());
  copy = third;
  const MemoryProperties& itself = third;
  third = itself;
  EXPECT_EQ(third.GetNumber("a"), 2u);
}

TEST(MemoryProperties, BagsOfOneTableInManyThreads) {
  MemoryProperties shared;
  for (int i = 0; i < 50; ++i) shared.SetNumber(std::to_string(i).c_str(), 1);
  std::vector<std::thread> threads;
  for (DWORD t = 0; t < 4; ++t) {
    threads.emplace_back([&shared, t] {
      for (int round = 0; round < 100; ++round) {
        MemoryProperties mine = shared;
        mine.SetNumber("7", t);
        EXPECT_EQ(mine.GetNumber("7"), t);
        EXPECT_EQ(shared.GetNumber("7"), 1u);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// The other thread puts the names in order while this one forks; the child does not have it to finish that.
TEST(MemoryProperties, AreListedByAForkedChildWhoeverListsThem) {
  constexpr int kNames = 5'000;
  for (int round = 0; round < 20; ++round) {
    MemoryProperties shared;
    for (int i = 0; i < kNames; ++i) shared.SetNumber(std::to_string(i * 7919 % kNames).c_str(), 1);
    std::atomic<bool> isListing{false};
    std::thread lister([&] {
      isListing = true;
      isListing.notify_one();
      EXPECT_EQ(shared.EnumProperties().size(), size_t{kNames});
    });
    isListing.wait(false);
    const bool isListed = ForkSome(1, [&shared] {
      const std::vector<String> names = shared.EnumProperties();
      if (names.size() != kNames || !std::is_sorted(names.begin(), names.end())) _exit(1);
    });
    lister.join();
    ASSERT_TRUE(isListed) << round;
  }
}

// An operation that lacks memory has not happened; a deletion lacks none that it cannot do without.
TEST(MemoryProperties, WithoutMemoryNothingIsLost) {
  const auto name = [](int i) {
    return String(((i % 8 == 0 ? "\xC9" : "name") + std::to_string(i)).c_str());
  };
  std::vector<String> names;
  for (int i = 0; i < 200; ++i) names.push_back(name(i));
  const struct {
    const char* what;
    int count, deleted;  // before it
    std::function<void(MemoryProperties&)> run;
  } cases[] = {
      {"the first", 0, 0, [&](auto& b) { b.SetNumber(names[199], 1); }},
      {"an insertion into a full index", 32, 0, [&](auto& b) { b.SetNumber(names[199], 1); }},
      {"a name of the code page", 40, 0, [&](auto& b) { b.SetNumber(names[192], 1); }},
      {"a deletion that leaves little", 40, 20, [&](auto& b) { b.Delete(names[20]); }},
      {"a change of a shared table", 60, 5,
       [&](auto& b) {
         const MemoryProperties copy = b;
         b.SetNumber(names[59], 0);
       }},
      {"the order", 60, 5, [](auto& b) { b.EnumProperties(); }},
  };
  for (const auto& c : cases) {
    int lacking = 0;
    bool failed = true;
    for (unsigned at = 1; failed; ++at) {
      MemoryProperties bag;
      for (int i = 0; i < c.count; ++i) bag.SetNumber(names[static_cast<size_t>(i)], 7);
      for (int i = 0; i < c.deleted; ++i) bag.Delete(names[static_cast<size_t>(i)]);
      {
        const FailingNew failing(at);
        try {
          c.run(bag);
        } catch (const std::bad_alloc&) {
          ++lacking;
        }
        failed = failing.HasFailed();
      }
      size_t found = 0;
      for (int i = c.deleted + 1; i < c.count - 1; ++i) {
        ASSERT_EQ(bag.GetNumber(names[static_cast<size_t>(i)], 0), 7u) << c.what << ' ' << at;
        ++found;
      }
      const size_t listed = bag.EnumProperties().size();
      ASSERT_TRUE(listed >= found && listed <= found + 3) << c.what << ' ' << at;
      for (const String& each : names) bag.SetNumber(each, 1);
      ASSERT_EQ(bag.EnumProperties().size(), names.size()) << c.what << ' ' << at;
    }
    EXPECT_EQ(lacking > 0, std::string(c.what).find("deletion") == std::string::npos) << c.what;
  }
}

// Against a map with the code page's own comparison: names that collide, differ behind the eighth character
// only, are not ASCII, come and go.
TEST(MemoryProperties, BehavesAsAMap) {
  struct NoCase {
    bool operator()(const std::string& a, const std::string& b) const {
      return String(a.c_str()).CompareNoCase(b.c_str()) < 0;
    }
  };
  std::mt19937 random(5);
  std::map<std::string, DWORD, NoCase> reference;
  MemoryProperties bag;
  const auto name = [&random] {
    static const char* const parts[] = {"a", "B",    "Window.", "WINDOW.", "[", "_",
                                        "@", "\xE9", "\xC9",    "\xDF",    "z", "12345678"};
    std::string text;
    for (auto count = random() % 6; count > 0; --count) text += parts[random() % std::size(parts)];
    return text;
  };
  for (DWORD i = 0; i < 60'000; ++i) {
    const std::string key = name();
    switch (random() % 4) {
      case 0:
        bag.Delete(key.c_str());
        reference.erase(key);
        break;
      case 1:
        bag.SetNumber(key.c_str(), i);
        reference[key] = i;
        break;
      default: {
        const auto found = reference.find(key);
        ASSERT_EQ(bag.GetNumber(key.c_str(), 0xFFFFFFFF),
                  found == reference.end() ? 0xFFFFFFFF : found->second)
            << key;
      }
    }
    if (i % 1'000 != 0) continue;
    std::vector<std::string> names, expected;
    for (const String& n : bag.EnumProperties()) names.push_back(n.GetBegin());
    for (const auto& [n, value] : reference) expected.push_back(n);
    ASSERT_EQ(names, expected);
    if (i % 20'000 == 0) bag = MemoryProperties(bag);
    if (i % 20'000 == 10'000) {
      const Binary data = bag.Export();
      bag.Import(data);  // onto the same names
      MemoryProperties imported;
      imported.Import(data);
      EXPECT_EQ(imported.Export(), data);
      bag = imported;
    }
  }
}
