// Paths of the interfaces (ANSI code page, drive letters, back slashes) and of the disk (UTF-8, slashes),
// each turned into the other.
#pragma once

#include <string>
#include <string_view>

#include "win32/types.h"

namespace orm::platform {

// The path on disk that an interface path names. Drive letters are looked up in the machine's drives/
// folder, a relative path starts at the current directory, "\\?\" is dropped. The exact spelling wins; a
// component that is absent as spelled is looked for without regard to case. What does not exist keeps its
// spelling, so that the result can be created.
// Returns an empty string and sets *error when the text names nothing on this machine: ERROR_PATH_NOT_FOUND
// for an absent drive or an empty path, ERROR_INVALID_NAME for characters that no name may contain,
// ERROR_BAD_NETPATH for a path of another machine, ResolveCase's errors. A path with one leading separator
// and no drive starts at the root of the disk (z:). "." and ".." are resolved by name, as the interfaces do
// it. Any thread.
ORM_PLATFORM_API std::string UnixPath(const char* ansiPath, DWORD* error = nullptr);

// The same without a look at the disk (one lstat less, and no search when the exact spelling is absent): for
// callers that try the path first and call ResolveCase when it is not there. `error` is set always.
std::string TranslatePath(std::string_view ansiPath, DWORD* error);

// The UTF-8 form of one component of an interface path. False when it holds a character that no name may
// contain (wildcards may stand in a pattern), or bytes that are no character of the code page.
bool Utf8FromName(std::string_view name, bool isPattern, std::string* converted);

// The name of a folder's entry as the interfaces have it. What the code page lacks is '?', and so is what
// would be taken for something else in a path: no entry of a folder can lead out of it.
std::string AnsiFromName(std::string_view name);

// The interface path that names an absolute path on disk: the drive with the longest matching target
// ("C:\..." under drive_c, otherwise "Z:\..."). Names come as AnsiFromName makes them. A path that is not
// absolute is only turned around. Any thread.
ORM_PLATFORM_API std::string AnsiPath(const std::string& unixPath);

// Looks for each component that is absent as spelled without regard to case; an absolute UTF-8 path in and
// out. What is found nowhere stays as spelled. Empty, with errno set, when a folder on the way cannot be
// read: whoever took that for an absent file would make a second one beside it.
std::string ResolveCase(const std::string& unixPath);

// Compares two UTF-8 names without regard to case, for the order of a folder's entries and for matching.
int CompareNames(std::string_view left, std::string_view right);

}  // namespace orm::platform
