// Any bytes as a library file, looked at before it is mapped.
#include "kernel/ImageCheck.h"

#include <unistd.h>

#include "Require.h"
#include "TemporaryFile.h"
#include "win32/errors.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const fuzz::TemporaryFile file("image.dll");
  file.Write({reinterpret_cast<const char*>(data), size});
  const DWORD code = orm::platform::CheckImage(file.GetPath());
  fuzz::Require(code == ERROR_SUCCESS || code == ERROR_BAD_EXE_FORMAT);
  return 0;
}
