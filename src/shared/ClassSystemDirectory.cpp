// Comparing a directory with the system directory.
#include "ClassSystemDirectory.h"

#include <ormutil/Error.h>

namespace orm {

namespace {

// Reads it into a buffer of `size` characters; returns what the platform reports. Throws when it reports a
// failure.
UINT ReadInto(String& rText, UINT size) {
  const UINT length = GetSystemDirectoryA(rText.PrepareWriting(size, false), size);
  if (length == 0) throw MakeSystemError(GetLastError(), String(), true);
  return length;
}

}  // namespace

bool SystemDirectory::Read() {
  if (mLength != 0) return true;
  String text;
  UINT size = 516;
  UINT length = ReadInto(text, size);
  if (length >= size) {
    size = length + 256;
    length = ReadInto(text, size);
    if (length >= size) return false;
  }
  mText = text;
  mLength = mText.GetLength();
  return true;
}

bool SystemDirectory::IsOutside(const Path& path) {
  if (!Read()) return false;
  ORM_ASSERT(path.IsAbsolute(), "rPath.IsAbsolute()", "src/shared/ClassManager", 2483);
  const String& text = path.GetText();
  const size_t length = text.GetLength();
  if (length == mLength) return text.CompareNoCase(mText.GetBegin()) != 0;
  if (length < mLength) return true;
  const unsigned next = text.GetAt(static_cast<int>(mLength));
  return (next != '/' && next != '\\') || text.CompareNoCase(mText.GetBegin(), mLength) != 0;
}

}  // namespace orm
