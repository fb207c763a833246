// The registry bag against a map, through two objects, one of which opens the bag anew now and then.
#include <gtest/gtest.h>
#include <ormutil/PersistentProperties.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <variant>
#include <vector>

#include "support/BinaryBytes.h"

using namespace orm;

namespace {

using Stored = std::variant<std::monostate, DWORD, String, Binary>;
// The names are in lower case, in which a bag sorts them as a map does.
using Model = std::map<std::string, Stored>;

constexpr Properties::PropertyType kTypes[] = {Properties::TYPE_NONE, Properties::TYPE_NUMBER,
                                               Properties::TYPE_STRING, Properties::TYPE_BINARY};

Stored RandomValue(std::mt19937& rRandom) {
  // Larger than a page of the store now and then.
  const std::string text(rRandom() % 8 == 0 ? rRandom() % 9'000 : rRandom() % 50,
                         static_cast<char>('a' + rRandom() % 26));
  switch (rRandom() % 3) {
    case 0:
      return static_cast<DWORD>(rRandom());
    case 1:
      return String(text.c_str());
    default:
      return test::BinaryOf(text);
  }
}

void Set(Properties& rBag, const char* name, const Stored& value) {
  if (const auto* number = std::get_if<DWORD>(&value)) rBag.SetNumber(name, *number);
  if (const auto* text = std::get_if<String>(&value)) rBag.SetString(name, *text);
  if (const auto* data = std::get_if<Binary>(&value)) rBag.SetBinary(name, *data);
}

template <class T>
T ValueOr(const Stored& stored, const T& other) {
  const T* value = std::get_if<T>(&stored);
  return value ? *value : other;
}

void ExpectStored(Properties& rBag, const char* name, const Stored& stored) {
  const Binary noData("?", 1);
  ASSERT_EQ(rBag.GetType(name), kTypes[stored.index()]);
  ASSERT_EQ(rBag.GetNumber(name, 7), ValueOr<DWORD>(stored, 7));
  ASSERT_EQ(rBag.GetString(name, "?"), ValueOr<String>(stored, "?"));
  ASSERT_EQ(rBag.GetBinary(name, noData), ValueOr<Binary>(stored, noData));
}

void ExpectNames(Properties& rBag, const Model& model) {
  std::vector<std::string> names, expected;
  for (const String& name : rBag.EnumProperties()) names.emplace_back(name.GetBegin());
  for (const auto& [name, value] : model) expected.push_back(name);
  std::sort(names.begin(), names.end());
  ASSERT_EQ(names, expected);
}

}  // namespace

TEST(PersistentProperties, BehavesAsAMap) {
  std::mt19937 random(52);
  Model model;
  PersistentProperties first, second;
  first.Open("Modelled", true);
  for (int i = 0; i < 6'000 && !testing::Test::HasFatalFailure(); ++i) {
    if (i % 50 == 0) {
      second.Open(i % 100 == 0 ? "Other" : "modelled", true);
      second.Open("Modelled", true);
      ExpectNames(second, model);
    }
    PersistentProperties& bag = random() % 2 == 0 ? first : second;
    const std::string name = "p" + std::to_string(random() % 40);
    const auto dice = random() % 100;
    if (dice == 0) {
      bag.Clear();
      model.clear();
    } else if (dice < 15) {
      bag.Delete(name.c_str());
      model.erase(name);
    } else if (dice < 60) {
      model[name] = RandomValue(random);
      Set(bag, name.c_str(), model[name]);
    } else {
      const auto found = model.find(name);
      ExpectStored(bag, name.c_str(), found == model.end() ? Stored() : found->second);
    }
  }
}
