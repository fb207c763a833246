// A normalised file-system path.
//
//   Path path;
//   path.Set("  C:/dir//sub/./x/../f.dll");   // true: "C:\dir\sub\f.dll"
//   path.GetDirectory().GetText();            // "C:\dir\sub"
//   path.GetName();                           // "f.dll"
//
// A path is a root and components joined by backslashes, without a trailing one. The root is a drive ("C:"),
// a server ("\\srv") or, for a relative path, nothing. "." and ".." are folded while a path is set; ".."
// stays only at the front of a relative path. Never accepted are " : < > | (but for the drive's colon); * and
// ? only in the last component. Text is multibyte text of the ANSI code page: a trail byte is never a
// separator.
//
// A path is for one thread at a time; copies share their text.
#pragma once

#include <ormutil/BaseString.h>
#include <ormutil/Export.h>

#include <vector>

namespace orm {

class ORMUTIL_API Path {
 public:
  // Empty and relative.
  Path() = default;

  // Parse a text; a directory and a name that is appended to it. False, the path being unchanged, when the
  // result is not a valid path. Leading blanks are skipped; separators are \ and /; "\\?\" before a server
  // name is dropped.
  bool Set(const String& text);
  bool Set(const Path& directory, const String& name);
  bool Set(const Path& directory, const Path& name);
  // Appends a relative path, or becomes the other path when that is absolute. False, the path being
  // unchanged, when the result would climb above the root or have a wildcard before its last component, and
  // when this path ends in half a double-byte character, which would swallow the separator.
  bool Append(const Path& other);

  const String& GetText() const { return mText; }
  bool IsEmpty() const { return mText.IsEmpty(); }
  bool IsAbsolute() const { return GetRootLength() != 0; }
  // In characters.
  int GetRootLength() const { return mRootLength < 0 ? 0 : mRootLength; }

  // Puts the current directory before a relative path. Throws the system's error when the current directory
  // cannot be read (it is limited to 260 characters), error 161 when the two do not make a path.
  void MakeAbsolute();

  // Without the last component; the bare root when there is one component or none.
  Path GetDirectory() const;
  // The last component; empty for a bare root.
  String GetName() const;
  bool HasWildcards() const;

  // The file's attribute mask, 0xFFFFFFFF when it cannot be found.
  DWORD GetAttributes() const;
  // In units of 100 ns since 1601-01-01 UTC. Throws the system's error.
  ULONGLONG GetLastWriteTime() const;
  // Lists the names in this directory that match the pattern, have all required attributes and none of the
  // excluded ones; "." and ".." are directories like any other. Throws the system's error, the list being
  // empty then: 2 when nothing matches the pattern.
  void Enumerate(const String& pattern, DWORD requiredAttributes, DWORD excludedAttributes,
                 std::vector<String>& result) const;

  // By text, with regard to case.
  friend bool operator==(const Path& a, const Path& b) { return a.mText == b.mText; }

 private:
  String mText;
  int mRootLength = 0;
};

}  // namespace orm
