// Face of objects that compute a digest over a file's content.
#pragma once

#include <ormutil/FacePtr.h>

struct FileDigest : orm::BaseFace {
  static constexpr const char* FACE_ID = "IID_FileDigest";

  // Name of the algorithm, such as "SHA-256".
  virtual orm::String GetAlgorithm() = 0;
  // The digest in lower-case hexadecimal digits. Throws an orm::Error when the file cannot be read. The path
  // is one of the C runtime.
  virtual orm::String Digest(const orm::String& path) = 0;
};
