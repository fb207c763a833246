// Face of objects that compress files.
#pragma once

#include <ormutil/FacePtr.h>

// Paths are those of the C runtime. Both operations replace the target file, throw an orm::Error when a file
// cannot be read or written or the data are damaged, and may be called by one thread at a time.
struct FileCompressor : orm::BaseFace {
  static constexpr const char* FACE_ID = "IID_FileCompressor";

  virtual void Compress(const orm::String& source, const orm::String& target) = 0;
  virtual void Restore(const orm::String& source, const orm::String& target) = 0;
};
