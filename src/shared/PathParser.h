// The grammar of path texts: from a text to a root and normalised components.
#pragma once

#include <ormutil/BaseString.h>

namespace orm {

// Folds the separators of a component text, drops ".", resolves ".." and checks the characters; the result
// has no separator at either end. False, the result being unspecified, for a character that no path may have
// and for a wildcard before the last component.
bool NormalizeComponents(const char* text, String& result);

// Joins a root and normalised components. False when they climb above the root.
bool AttachToRoot(const String& root, const String& components, String& result);

// Parses a path text into its normalised form and the length of its root in characters.
bool ParsePath(const char* text, String& result, int& rootLength);

}  // namespace orm
