// The errors of the registry bag: of every operation and of every call that it makes, and what comes of a bag
// that others change meanwhile.
#include <gmock/gmock.h>
#include <ormutil/MemoryProperties.h>

#include <functional>
#include <utility>

#include "FailingRegistry.h"
#include "PersistentTest.h"
#include "support/ErrorLayers.h"
#include "support/ModuleTrace.h"

using namespace orm;
using namespace test;
using testing::IsEmpty;

TEST_F(PersistentTest, ErrorsOfGetters) {
  SetRaw("expand", REG_EXPAND_SZ, "%x%");
  SetRaw("four", REG_BINARY, "4444");
  SetRaw("eight", REG_BINARY, "88888888");
  SetRaw("", REG_DWORD, "dddd");
  SetRaw("text", REG_SZ, std::string("t\0", 2));
  const auto wrong = [](const std::string& name, const std::string& type) {
    return Layer{0xE7220001, "Type of registry value '" + kKeyName + name + "' is unexpected, '" + type +
                                 "' type is required."};
  };
  const struct {
    std::function<void(const Properties&)> get;
    const char* operation;
    DWORD code;
    Layers inner;
    const char* trace;
  } cases[] = {
      {[](auto& b) { b.GetNumber("none"); },
       "GetNumber",
       0xE7220002,
       {{2, "Failed to query registry value '" + kKeyName + "\\none'. The registry value was not found."}},
       "RegistryError"},
      {[](auto& b) { b.GetString("none"); },
       "GetString",
       0xE7220002,
       {{2, "Failed to query registry value '" + kKeyName + "\\none'. The registry value was not found."}},
       "RegistryError"},
      {[](auto& b) { b.GetString("expand"); },
       "GetString",
       0xE7220001,
       {wrong("\\expand", "REG_SZ")},
       "wrong type error"},
      {[](auto& b) { b.GetNumber("four"); },
       "GetNumber",
       0xE7220001,
       {wrong("\\four", "REG_DWORD")},
       "wrong type error"},
      {[](auto& b) { b.GetBinary("text"); },
       "GetBinary",
       0xE7220001,
       {wrong("\\text", "REG_BINARY")},
       "wrong type error"},
      {[](auto& b) { b.GetString(""); }, "GetString", 0xE7220001, {wrong("", "REG_SZ")}, "wrong type error"},
      {[](auto& b) { b.GetNumber("eight"); },
       "GetNumber",
       234,
       {{234, "Failed to query registry value '" + kKeyName + "\\eight'. "}, {234, SystemText(234)}},
       "RegistryError"},
  };
  {
    ModuleTrace trace("pprops", 'e');
    for (const auto& c : cases) LayersOf([&] { c.get(mBag); });
    EXPECT_THAT(trace.Take(), IsEmpty()) << "the lines are warnings";
  }
  ModuleTrace trace("pprops", 'w');
  for (const auto& c : cases) {
    Layers expected{{c.code, "Failed to get the value of property."}};
    expected.insert(expected.end(), c.inner.begin(), c.inner.end());
    EXPECT_EQ(LayersOf([&] { c.get(mBag); }), expected);
    char inner[16], outer[16];
    std::snprintf(inner, sizeof inner, "(%08x)", c.inner[0].code);
    std::snprintf(outer, sizeof outer, "(%08x)", c.code);
    EXPECT_EQ(trace.Take(),
              (std::vector<std::string>{
                  "^ PersistentProperties; " + std::string(c.trace) + ": " + c.inner[0].message + inner,
                  "^ PersistentProperties::" + std::string(c.operation) +
                      "(): Failed to get the value of property." + outer}));
  }
  EXPECT_EQ(mBag.GetString("expand", "d"), "d");
  EXPECT_EQ(mBag.GetNumber("eight", 5), 5u);
  EXPECT_EQ(mBag.GetNumber("four", 5), 5u);
  EXPECT_EQ(trace.Take(), std::vector<std::string>{}) << "getters with a default are silent";
}

TEST_F(PersistentTest, MissingBag) {
  EXPECT_EQ(
      LayersOf([&] { mBag.GetNumber("x"); }),
      (Layers{{0xE7220002, "Failed to get the value of property."},
              {2, "Failed to open registry key '" + kKeyName + "'. The registry value was not found."}}));
  PersistentProperties machine;
  machine.Open("None", false);
  EXPECT_EQ(
      LayersOf([&] { machine.GetString("x"); })[1].message,
      "Failed to open registry key 'HKEY_LOCAL_MACHINE\\SOFTWARE\\None'. The registry value was not found.");
}

// The key is deleted by somebody else while the bag holds it open: each operation says what it wanted to do.
TEST_F(PersistentTest, ErrorsOfEveryOperation) {
  const std::string value = kKeyName + "\\v";
  const struct {
    std::function<void(PersistentProperties&)> run;
    const char* operation;
    const char* message;
    std::string context;
  } cases[] = {
      {[](auto& b) { b.GetString("v"); }, "GetString", "Failed to get the value of property.",
       "Failed to query registry value '" + value + "'. "},
      {[](auto& b) { b.SetString("v", ""); }, "SetString", "Failed to set the value of property.",
       "Failed to set registry value '" + value + "'. "},
      {[](auto& b) { b.SetNumber("v", 1); }, "SetNumber", "Failed to set the value of property.",
       "Failed to set registry value '" + value + "'. "},
      {[](auto& b) { b.SetBinary("v", Binary()); }, "SetBinary", "Failed to set the value of property.",
       "Failed to set registry value '" + value + "'. "},
      {[](auto& b) { b.Delete("v"); }, "Delete", "Failed to delete property.",
       "Failed to delete registry value '" + value + "'. "},
      {[](auto& b) { b.GetType("v"); }, "GetType", "Failed to query the type of property.",
       "Failed to query registry value '" + value + "'. "},
      {[](auto& b) { b.EnumProperties(); }, "EnumProperties", "Failed to enumerate properties.",
       "Failed to query information about registry key '" + kKeyName + "'. "},
      {[](auto& b) { b.Clear(); }, "Clear", "Failed to clear properties.",
       "Failed to query information about registry key '" + kKeyName + "'. "},
      {[](auto& b) { b.EnumBags(); }, "EnumBags", "Failed to enumerate properties bags.",
       "Failed to query information about registry key '" + kKeyName + "'. "},
  };
  ModuleTrace trace("pprops", 'w');
  for (const auto& c : cases) {
    PersistentProperties bag;
    bag.Open("Tools\\Editor", true);
    bag.SetNumber("v", 1);
    PersistentProperties other;
    other.Open("tools\\editor", true);
    other.DeleteBag();
    EXPECT_EQ(LayersOf([&] { c.run(bag); }),
              (Layers{{1018, c.message}, {1018, c.context}, {1018, SystemText(1018)}}))
        << c.operation;
    EXPECT_EQ(trace.Take(),
              (std::vector<std::string>{"^ PersistentProperties; RegistryError: " + c.context + "(000003fa)",
                                        std::string("^ PersistentProperties::") + c.operation +
                                            "(): " + c.message + "(000003fa)"}));
    EXPECT_FALSE(bag.IsBagNew()) << "the open key survives a failure";
    EXPECT_EQ(bag.GetNumber("v", 3), 3u);
  }
}

// Each registry call of an operation, failing in its turn.
TEST_F(PersistentTest, ErrorsOfEveryCall) {
  const std::string openKey = "Failed to open registry key '" + kKeyName + "'. ";
  const std::string queryKey = "Failed to query information about registry key '" + kKeyName + "'. ";
  const std::string enumValues = "Failed to enumerate values of registry key '" + kKeyName + "'. ";
  const std::string enumKeys = "Failed to enumerate subkeys of registry key '" + kKeyName + "'. ";
  const std::string deleteKey = "Failed to delete registry key '" + kKeyName + "'. ";
  const std::string deleteValue = "Failed to delete registry value '" + kKeyName;
  constexpr const char* kSet = "Failed to set the value of property.";
  constexpr const char* kGet = "Failed to get the value of property.";
  constexpr const char* kEnum = "Failed to enumerate properties.";
  constexpr const char* kClear = "Failed to clear properties.";
  constexpr const char* kEnumBags = "Failed to enumerate properties bags.";
  constexpr const char* kDeleteBag = "Failed to delete property bag.";
  const struct {
    const char* call;
    std::function<void(PersistentProperties&)> run;
    const char* operation;
    const char* message;
    std::string context;
  } cases[] = {
      {"RegOpenKeyExA", [](auto& b) { b.GetString("v"); }, "GetString", kGet, openKey},
      {"RegOpenKeyExA", [](auto& b) { b.GetNumber("v"); }, "GetNumber", kGet, openKey},
      {"RegOpenKeyExA", [](auto& b) { b.GetBinary("v"); }, "GetBinary", kGet, openKey},
      {"RegOpenKeyExA", [](auto& b) { b.GetType("v"); }, "GetType", "Failed to query the type of property.",
       openKey},
      {"RegOpenKeyExA", [](auto& b) { b.Delete("v"); }, "Delete", "Failed to delete property.", openKey},
      {"RegCreateKeyExA", [](auto& b) { b.Delete("v"); }, "Delete", "Failed to delete property.", openKey},
      {"RegDeleteValueA", [](auto& b) { b.Delete("v"); }, "Delete", "Failed to delete property.",
       deleteValue + "\\v'. "},
      {"RegCreateKeyExA", [](auto& b) { b.SetString("v", ""); }, "SetString", kSet, openKey},
      {"RegCreateKeyExA", [](auto& b) { b.SetNumber("v", 1); }, "SetNumber", kSet, openKey},
      {"RegCreateKeyExA", [](auto& b) { b.SetBinary("v", Binary()); }, "SetBinary", kSet, openKey},
      {"RegOpenKeyExA", [](auto& b) { b.EnumProperties(); }, "EnumProperties", kEnum, openKey},
      {"RegQueryInfoKeyA", [](auto& b) { b.EnumProperties(); }, "EnumProperties", kEnum, queryKey},
      {"RegEnumValueA", [](auto& b) { b.EnumProperties(); }, "EnumProperties", kEnum, enumValues},
      {"RegOpenKeyExA", [](auto& b) { b.Clear(); }, "Clear", kClear, openKey},
      {"RegQueryInfoKeyA", [](auto& b) { b.Clear(); }, "Clear", kClear, queryKey},
      {"RegEnumValueA", [](auto& b) { b.Clear(); }, "Clear", kClear, enumValues},
      {"RegCreateKeyExA", [](auto& b) { b.Clear(); }, "Clear", kClear, openKey},
      {"RegDeleteValueA", [](auto& b) { b.Clear(); }, "Clear", kClear, deleteValue + "'. "},
      {"RegOpenKeyExA", [](auto& b) { b.EnumBags(); }, "EnumBags", kEnumBags, openKey},
      {"RegQueryInfoKeyA", [](auto& b) { b.EnumBags(); }, "EnumBags", kEnumBags, queryKey},
      {"RegEnumKeyExA", [](auto& b) { b.EnumBags(); }, "EnumBags", kEnumBags, enumKeys},
      {"RegOpenKeyExA", [](auto& b) { b.DeleteBag(); }, "DeleteBag", kDeleteBag, deleteKey},
      {"RegQueryInfoKeyA", [](auto& b) { b.DeleteBag(); }, "DeleteBag", kDeleteBag, deleteKey},
      {"RegEnumKeyExA", [](auto& b) { b.DeleteBag(); }, "DeleteBag", kDeleteBag, deleteKey},
      {"RegDeleteKeyA", [](auto& b) { b.DeleteBag(); }, "DeleteBag", kDeleteBag, deleteKey},
  };
  mBag.SetNumber("v", 1);
  {
    ModuleTrace trace("pprops", 'e');
    for (const auto& c : cases) {
      PersistentProperties bag;
      bag.Open("Tools\\Editor", true);
      const FailingRegistry failing(c.call, 5);
      LayersOf([&] { c.run(bag); });
    }
    EXPECT_THAT(trace.Take(), IsEmpty()) << "the lines are warnings";
  }
  ModuleTrace trace("pprops", 'w');
  for (const auto& c : cases) {
    PersistentProperties bag;
    bag.Open("Tools\\Editor", true);
    // The operation's layer: denied access has a code of its own, others are taken over.
    for (const auto& [code, top] : {std::pair{DWORD{5}, DWORD{0xE7220004}}, std::pair{DWORD{8}, DWORD{8}}}) {
      Layers layers;
      {
        const FailingRegistry failing(c.call, static_cast<LSTATUS>(code));
        layers = LayersOf([&] { c.run(bag); });
      }
      EXPECT_EQ(layers, (Layers{{top, c.message}, {code, c.context}, {code, SystemText(code)}}))
          << c.operation << " " << c.call;
      const std::vector<std::string> lines = trace.Take();
      ASSERT_EQ(lines.size(), 2u);
      EXPECT_THAT(lines[0], testing::StartsWith("^ PersistentProperties; RegistryError: " + c.context + "("));
      EXPECT_THAT(lines[1], testing::StartsWith(std::string("^ PersistentProperties::") + c.operation +
                                                "(): " + c.message + "("));
    }
    EXPECT_EQ(bag.GetNumber("v"), 1u) << "what failed has changed nothing";
  }
  PersistentProperties bag;
  bag.Open("Tools\\Editor", true);
  const FailingRegistry failing("RegOpenKeyExA", 5);
  EXPECT_TRUE(bag.IsBagNew());
  EXPECT_EQ(bag.GetNumber("v", 3), 3u);
  EXPECT_EQ(bag.GetString("v", "d"), "d");
  EXPECT_EQ(bag.GetBinary("v", Binary("d", 1)), Binary("d", 1));
  EXPECT_THAT(trace.Take(), IsEmpty());
}

// Another process comes in between two calls of one operation.
TEST_F(PersistentTest, ChangedBetweenTwoCalls) {
  const auto outcome = [](const std::function<std::string()>& run) {
    std::string result;
    const Layers layers = LayersOf([&] { result = run(); });
    if (layers.empty()) return result;
    char codes[32];
    std::snprintf(codes, sizeof codes, "%x %x", layers[0].code, layers[1].code);
    return std::string(codes);
  };
  const auto text = [](auto& b) { return std::string(b.GetString("v").GetBegin()); };
  const auto bytes = [](auto& b) {
    const Binary data = b.GetBinary("v");
    return std::string(reinterpret_cast<const char*>(data.GetData()), data.GetSize());
  };
  const auto names = [](auto& b) {
    std::string all;
    for (const String& name : b.EnumProperties()) all += name.GetBegin();
    return all;
  };
  const std::string longer(50, 'l');
  using Bag = PersistentProperties;
  const struct {
    const char* what;
    const char* call;
    std::function<void(Bag&)> change;
    std::function<std::string(Bag&)> run;
    std::string result;  // or the codes of the two outer layers
  } cases[] = {
      {"shorter text", "RegQueryValueExA", [](Bag& b) { b.SetString("v", "a"); }, text, "a"},
      {"longer text", "RegQueryValueExA", [&](Bag& b) { b.SetString("v", longer.c_str()); }, text, "ea ea"},
      {"no text", "RegQueryValueExA", [](Bag& b) { b.SetNumber("v", 1); }, text, "e7220001 e7220001"},
      {"text gone", "RegQueryValueExA", [](Bag& b) { b.Delete("v"); }, text, "e7220002 2"},
      {"shorter bytes", "RegQueryValueExA", [](Bag& b) { b.SetBinary("v", Binary("b", 1)); }, bytes, "b"},
      {"no bytes", "RegQueryValueExA", [](Bag& b) { b.SetBinary("v", Binary()); }, bytes, ""},
      {"longer bytes", "RegQueryValueExA", [](Bag& b) { b.SetBinary("v", Binary("12345678", 8)); }, bytes,
       "ea ea"},
      {"bytes become text", "RegQueryValueExA", [](Bag& b) { b.SetString("v", "t"); }, bytes,
       "e7220001 e7220001"},
      {"bytes gone", "RegQueryValueExA", [](Bag& b) { b.Delete("v"); }, bytes, "e7220002 2"},
      {"a longer name", "RegQueryInfoKeyA", [&](Bag& b) { b.SetNumber(longer.c_str(), 1); }, names, "ea ea"},
      {"a shorter name", "RegQueryInfoKeyA", [](Bag& b) { b.SetNumber("a", 1); }, names, "av"},
      {"no name", "RegQueryInfoKeyA", [](Bag& b) { b.Clear(); }, names, ""},
      {"the rest gone", "RegEnumValueA", [](Bag& b) { b.Clear(); }, names, "v"},
      {"gone before it is cleared", "RegEnumValueA", [](Bag& b) { b.Clear(); },
       [](Bag& b) {
         b.Clear();
         return std::string("cleared");
       },
       "e7220002 2"},
      {"gone before it is deleted", "RegCreateKeyExA", [](Bag& b) { b.Delete("v"); },
       [](Bag& b) {
         b.Delete("v");
         return std::string("deleted");
       },
       "deleted"},
      {"the bag gone before it is written", "RegCreateKeyExA", [](Bag& b) { b.DeleteBag(); },
       [](Bag& b) {
         b.SetNumber("v", 2);
         return std::string("written");
       },
       "3fa 3fa"},
      {"a longer bag", "RegQueryInfoKeyA",
       [&](Bag& b) {
         Bag below;
         below.Open(("Tools\\Editor\\" + longer).c_str(), true);
         below.SetNumber("v", 1);
         b.Delete("v");
       },
       [](Bag& b) { return std::to_string(b.EnumBags().size()); }, "ea ea"},
      {"deleted by two", "RegQueryInfoKeyA", [](Bag& b) { b.DeleteBag(); },
       [](Bag& b) {
         b.DeleteBag();
         return std::string("deleted");
       },
       "3fa 3fa"},
  };
  for (const auto& c : cases) {
    PersistentProperties bag, other;
    other.Open("tools\\editor", true);
    other.DeleteBag();
    if (c.run.target_type() == typeid(bytes)) {
      other.SetBinary("v", Binary("1234", 4));
    } else {
      other.SetString("v", "text");
    }
    bag.Open("Tools\\Editor", true);
    const AfterRegistryCall after(c.call, [&] { c.change(other); });
    EXPECT_EQ(outcome([&] { return c.run(bag); }), c.result) << c.what;
  }
  mBag.SetString("v", "text");
  const AfterRegistryCall after("RegQueryValueExA", [&] {
    PersistentProperties other;
    other.Open("tools\\editor", true);
    other.SetString("v", longer.c_str());
  });
  EXPECT_EQ(mBag.GetString("v", "default"), "default");
}

TEST_F(PersistentTest, Location) {
  EXPECT_NO_THROW(mBag.SetLocation("CFG://LOCALHOST", "cfg://localuser"));
  {
    ModuleTrace trace("pprops", 'e');
    LayersOf([&] { mBag.SetLocation("", ""); });
    EXPECT_THAT(trace.Take(), IsEmpty()) << "the line is a warning";
  }
  ModuleTrace trace("pprops", 'w');
  const char* const others[][2] = {{"cfg://localuser", "cfg://localhost"},
                                   {"cfg://localhost", ""},
                                   {"", "cfg://localuser"},
                                   {"cfg://localhost/", "cfg://localuser"}};
  for (const auto& other : others) {
    EXPECT_EQ(LayersOf([&] { mBag.SetLocation(other[0], other[1]); }),
              (Layers{{0xE7220003, "Specified persistent property location is not supported."}}));
    EXPECT_EQ(trace.Take(), (std::vector<std::string>{
                                "^ PersistentProperties::SetLocation(): Specified persistent property "
                                "location is not supported.(e7220003)"}));
  }
}

// A setter of the target that fails is wrapped like a fault in the data.
TEST_F(PersistentTest, ImportIntoADeletedBag) {
  MemoryProperties source;
  source.SetNumber("a", 1);
  mBag.SetNumber("x", 1);
  PersistentProperties other;
  other.Open("tools\\Editor", true);
  other.DeleteBag();
  const Layers layers = LayersOf([&] { mBag.Import(source.Export()); });
  ASSERT_EQ(layers.size(), 4u);
  EXPECT_EQ(layers[0], (Layer{0xE7220005, "Failed to deserialize properties from external data."}));
  EXPECT_EQ(layers[1], (Layer{1018, "Failed to set the value of property."}));
}
