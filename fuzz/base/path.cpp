// Path texts: the first byte chooses the code page; up to the first line feed a path, behind it one that is
// appended.
#include <ormutil/Path.h>

#include <algorithm>
#include <cstring>

#include "Require.h"

using namespace orm;

namespace {

void CheckForm(const Path& path) {
  const String& text = path.GetText();
  fuzz::Require(path.GetRootLength() <= static_cast<int>(text.GetLength()));
  const char* last = nullptr;
  for (const char* pos = text.GetBegin(); *pos != 0; pos = MbcsTraits::Next(pos)) {
    fuzz::Require(std::strchr("\"<>|/", *pos) == nullptr);
    // Two separators meet in front of a server name only.
    if (*pos == '\\' && last && *last == '\\') fuzz::Require(last == text.GetBegin());
    last = pos;
  }
  fuzz::Require(!last || *last != '\\');
  // The two parts make the path again, unless there is but one.
  const String name = path.GetName();
  const Path directory = path.GetDirectory();
  if (!name.IsEmpty() && !directory.IsEmpty()) fuzz::Require(directory.GetText() + "\\" + name == text);
  path.HasWildcards();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  fuzz::ChooseCodePage(*data);
  const char* begin = reinterpret_cast<const char*>(data + 1);
  const char* end = begin + size - 1;
  const char* middle = std::find(begin, end, '\n');
  Path path, other;
  const bool valid = path.Set(String(begin, middle));
  if (!valid) fuzz::Require(path.IsEmpty());
  CheckForm(path);
  if (middle != end && other.Set(String(middle + 1, end))) {
    const Path before = path;
    if (path.Append(other)) {
      CheckForm(path);
    } else {
      fuzz::Require(path == before);
    }
  }
  return 0;
}
