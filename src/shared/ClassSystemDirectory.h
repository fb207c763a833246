// Keeps component directories out of the platform's system directory.
#pragma once

#include <ormutil/Path.h>

namespace orm {

class SystemDirectory {
 public:
  // Whether the absolute path is neither the system directory nor below it. Throws the platform's error when
  // the system directory cannot be had.
  bool IsOutside(const Path& path);

 private:
  // Reads the directory on first use; false when it cannot be told how long it is.
  bool Read();

  String mText;
  size_t mLength = 0;  // in characters
};

}  // namespace orm
