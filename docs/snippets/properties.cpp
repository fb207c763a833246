// Property bags in memory and in the registry.
#include <ormutil/Error.h>
#include <ormutil/MemoryProperties.h>
#include <ormutil/PersistentProperties.h>

#include <cassert>

using namespace orm;

int main() {
  MemoryProperties defaults;
  defaults.SetNumber("Width", 80);
  defaults.SetString("Language", "en");

  PersistentProperties settings;
  settings.Open("Tools\\Editor", true);  // HKEY_CURRENT_USER\SOFTWARE\Tools\Editor
  assert(settings.IsBagNew());
  settings.Merge(defaults, {}, true);  // everything, nothing excluded; makes the bag
  assert(settings.GetNumber("WIDTH") == 80);
  assert(settings.GetNumber("Height", 25) == 25);  // the default for what is not there
  assert(defaults.IsSubsetOf(settings, true));

  const Binary carried = settings.Export();
  MemoryProperties copy;
  copy.Import(carried);
  assert(copy.EnumProperties().size() == 2);

  try {
    settings.GetString("Width");
    assert(false);
  } catch (const Error& error) {
    assert(error.HasCode(0xE7220001));  // it is a number
  }
  settings.DeleteBag();
  assert(settings.IsBagNew());
}
