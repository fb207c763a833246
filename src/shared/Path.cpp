// Paths: composition, and what the file system knows about them.
#include <ormutil/Error.h>
#include <ormutil/Path.h>

#include "PathListing.h"
#include "PathParser.h"

#include <cstring>

namespace orm {

namespace {

// A path that cannot be built from the current directory.
constexpr DWORD kBadPath = ERROR_BAD_PATHNAME;
// The current directory and its terminator.
constexpr DWORD kDirectoryBuffer = 261;

[[noreturn]] void ThrowSystemError(DWORD code) {
  throw MakeSystemError(code, String(), true);
}

ULONGLONG ToNumber(const FILETIME& time) {
  return ULONGLONG{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

class Search {
 public:
  Search(const char* pattern, WIN32_FIND_DATAA& data) : mhSearch(FindFirstFileA(pattern, &data)) {
    if (mhSearch == INVALID_HANDLE_VALUE) ThrowSystemError(GetLastError());
  }
  ~Search() { FindClose(mhSearch); }
  Search(const Search&) = delete;
  Search& operator=(const Search&) = delete;

  // False at the end of the listing.
  bool Next(WIN32_FIND_DATAA& data) {
    if (FindNextFileA(mhSearch, &data)) return true;
    const DWORD error = GetLastError();
    if (error != ERROR_NO_MORE_FILES) ThrowSystemError(error);
    return false;
  }

 private:
  HANDLE mhSearch;
};

// The place behind the root.
const char* SkipRoot(const Path& path) {
  const char* pos = path.GetText().GetBegin();
  for (int i = path.GetRootLength(); i > 0 && *pos != 0; --i) pos = MbcsTraits::Next(pos);
  return pos;
}

// Whether a relative path is one component that changes nothing of what it is appended to.
bool IsPlainName(const Path& path) {
  const char* pos = path.GetText().GetBegin();
  if (*pos == '.') return false;
  while (*pos != 0 && *pos != '\\') pos = MbcsTraits::Next(pos);
  return *pos == 0;
}

// The last backslash behind the root, or null.
const char* FindLastSeparator(const Path& path) {
  const char* last = nullptr;
  for (const char* pos = SkipRoot(path); *pos != 0; pos = MbcsTraits::Next(pos)) {
    if (*pos == '\\') last = pos;
  }
  return last;
}

// Whether the text ends in the lead byte of a double-byte character, which would take a separator behind it
// for its other half.
bool EndsInHalfCharacter(const String& text) {
  if (text.IsEmpty()) return false;
  const char* pos = text.GetBegin();
  const char* last = pos + std::strlen(pos) - 1;
  if (!IsDBCSLeadByte(static_cast<BYTE>(*last))) return false;
  while (pos < last) pos = MbcsTraits::Next(pos);
  return pos == last;
}

}  // namespace

bool Path::Set(const String& text) {
  Path parsed;
  if (!ParsePath(text.GetBegin(), parsed.mText, parsed.mRootLength)) return false;
  *this = parsed;
  return true;
}

bool Path::Set(const Path& directory, const String& name) {
  Path parsed;
  return parsed.Set(name) && Set(directory, parsed);
}

bool Path::Set(const Path& directory, const Path& name) {
  Path joined = directory;
  if (!joined.Append(name)) return false;
  *this = joined;
  return true;
}

bool Path::Append(const Path& other) {
  if (other.IsAbsolute() || IsEmpty()) {
    *this = other;
    return true;
  }
  if (other.IsEmpty()) return true;
  if (EndsInHalfCharacter(mText)) return false;
  if (IsPlainName(other) && *SkipRoot(*this) != 0 && !HasWildcards()) {
    mText += "\\" + other.mText;
    return true;
  }
  const char* rest = SkipRoot(*this);
  String components;
  if (!NormalizeComponents((String(rest) + "\\" + other.mText).GetBegin(), components)) return false;
  if (!IsAbsolute()) {
    mText = components;
    return true;
  }
  String joined;
  if (!AttachToRoot(String(mText.GetBegin(), rest), components, joined)) return false;
  mText = joined;
  return true;
}

void Path::MakeAbsolute() {
  if (IsAbsolute()) return;
  char buffer[kDirectoryBuffer];
  const DWORD length = GetCurrentDirectoryA(kDirectoryBuffer, buffer);
  if (length == 0) ThrowSystemError(GetLastError());
  if (length >= kDirectoryBuffer) ThrowSystemError(ERROR_FILENAME_EXCED_RANGE);
  Path directory;
  if (!directory.Set(String(buffer)) || !directory.Append(*this)) ThrowSystemError(kBadPath);
  *this = directory;
}

Path Path::GetDirectory() const {
  const char* separator = FindLastSeparator(*this);
  Path result;
  result.mText = mText.Left(separator ? separator : SkipRoot(*this));
  result.mRootLength = mRootLength;
  return result;
}

String Path::GetName() const {
  const char* separator = FindLastSeparator(*this);
  if (separator) return mText.Right(separator + 1);
  return IsAbsolute() ? String() : mText;
}

bool Path::HasWildcards() const {
  return *mText.Find('*') != 0 || *mText.Find('?') != 0;
}

DWORD Path::GetAttributes() const {
  return GetFileAttributesA(mText.GetBegin());
}

ULONGLONG Path::GetLastWriteTime() const {
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!GetFileAttributesExA(mText.GetBegin(), GetFileExInfoStandard, &data)) {
    ThrowSystemError(GetLastError());
  }
  return ToNumber(data.ftLastWriteTime);
}

void ListFiles(const Path& directory, const String& pattern, DWORD requiredAttributes,
               DWORD excludedAttributes, std::vector<ListedFile>& rFiles) {
  if (EndsInHalfCharacter(directory.GetText())) ThrowSystemError(ERROR_INVALID_NAME);
  WIN32_FIND_DATAA data;
  Search search((directory.GetText() + "\\" + pattern).GetBegin(), data);
  do {
    const bool hasAll = (data.dwFileAttributes & requiredAttributes) == requiredAttributes;
    const bool hasNone = (data.dwFileAttributes & excludedAttributes) == 0;
    if (hasAll && hasNone) rFiles.push_back({data.cFileName, ToNumber(data.ftLastWriteTime)});
  } while (search.Next(data));
}

void Path::Enumerate(const String& pattern, DWORD requiredAttributes, DWORD excludedAttributes,
                     std::vector<String>& result) const {
  result.clear();
  std::vector<ListedFile> files;
  ListFiles(*this, pattern, requiredAttributes, excludedAttributes, files);
  std::vector<String> names;
  names.reserve(files.size());
  for (const ListedFile& file : files) names.push_back(file.name);
  result.swap(names);
}

}  // namespace orm
