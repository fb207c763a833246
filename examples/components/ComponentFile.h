// Files as the example components read them.
#pragma once

#include <ormutil/Error.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

// Opens a file with a mode of fopen. Throws an error that says what went wrong with which file.
inline File OpenFile(const orm::String& path, const char* mode) {
  File file(std::fopen(path.GetBegin(), mode), &std::fclose);
  if (!file) {
    const std::string reason = std::generic_category().message(errno);
    throw orm::Error(orm::ERROR_GENERAL,
                     orm::String::FormatInserts("Cannot open file '%1': %2.", path, reason.c_str()));
  }
  return file;
}

// Hands the file's content to `use(bytes, count)`, piece by piece.
template <class Use>
void ReadFile(const orm::String& path, Use use) {
  const File file = OpenFile(path, "rb");
  unsigned char buffer[16384];
  while (const size_t count = std::fread(buffer, 1, sizeof buffer, file.get())) use(buffer, count);
  if (std::ferror(file.get())) {
    throw orm::Error(orm::ERROR_GENERAL, orm::String::FormatInserts("Cannot read file '%1'.", path));
  }
}
