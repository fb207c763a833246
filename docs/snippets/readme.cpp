// A settings bag carried from one process to another, and an error that says what was being done.
#include <ormutil/Error.h>
#include <ormutil/MemoryProperties.h>
#include <ormutil/PersistentProperties.h>

#include <cstdio>

using namespace orm;

static Binary Pack() {
  MemoryProperties settings;
  settings.SetString("Language", "en");
  settings.SetNumber("Width", 80);
  return settings.Export();  // bytes that any process of any machine can import
}

int main() {
  try {
    PersistentProperties stored;
    stored.Open("Tools\\Editor", true);  // of this user; orm reg query 'HKCU\SOFTWARE\Tools\Editor' shows it
    stored.Import(Pack());
    std::printf("%s, %u columns\n", stored.GetString("language").GetBegin(), stored.GetNumber("WIDTH"));

    stored.GetNumber("Height");  // there is none
  } catch (Error& error) {
    error.AddLayer(ERROR_LAYER_BELOW, "Cannot size the window.", true);
    std::printf("%08x %s\n", error.GetCode(), error.Format().GetBegin());
  }
}
