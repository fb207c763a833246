// Listing a directory with what the listing knows of each file.
#pragma once

#include <ormutil/Path.h>

namespace orm {

struct ListedFile {
  String name;
  ULONGLONG lastWriteTime;  // as Path::GetLastWriteTime gives it
};

// Adds what Path::Enumerate lists.
void ListFiles(const Path& directory, const String& pattern, DWORD requiredAttributes,
               DWORD excludedAttributes, std::vector<ListedFile>& rFiles);

}  // namespace orm
