// Strings, buffers, errors and paths.
#include <ormutil/Error.h>
#include <ormutil/Path.h>

#include <cassert>

using namespace orm;

static void Strings() {
  String path("C:\\lib");
  String name = path;     // shares the text: one interlocked increment
  name += "\\shape.dll";  // gets a text of its own
  assert(path == "C:\\lib" && name == "C:\\lib\\shape.dll");

  String text;
  text.Format("%s: %d bytes", name, 42);
  assert(text == "C:\\lib\\shape.dll: 42 bytes");
  assert(String::FormatInserts("Cannot load '%1', error %2!u!.", "a.dll", 126) ==
         "Cannot load 'a.dll', error 126.");
  assert(String("a, b,,c").Split(", ").size() == 3);
}

static void Buffers() {
  Binary data("\1\2\3", 3);
  const Binary copy = data;  // shares the bytes
  data.Set(0xFF, 1, 1);
  assert(data == Binary("\1\xFF\3", 3) && copy == Binary("\1\2\3", 3));
}

static void Errors() {
  try {
    throw MakeSystemError(2, "Cannot open 'a.dat'.", true);
  } catch (Error& error) {
    error.AddLayer(ERROR_LAYER_BELOW, "Cannot start.");
    error.SetSuggestion("Install the data first.");
    assert(error.GetCode() == 2);  // the code of the cause, whatever was added
    assert(error.GetLayerCount() == 3);
    assert(error.GetMessage(0) == "Cannot start.");
    const Error carried = Error::Import(error.Export());  // as in another process
    assert(carried.Format() == error.Format());
  }
}

static void Paths() {
  Path path;
  assert(path.Set("  C:/dir//sub/./x/../f.dll"));
  assert(path.GetText() == "C:\\dir\\sub\\f.dll");
  assert(path.GetDirectory().GetText() == "C:\\dir\\sub" && path.GetName() == "f.dll");
  assert(!path.Set("C:\\a|b"));  // no valid path: unchanged
}

int main() {
  Strings();
  Buffers();
  Errors();
  Paths();
}
