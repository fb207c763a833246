// Whether a file is a shared object that the loader can map without harm.
#pragma once

#include <string>

#include "win32/types.h"

namespace orm::platform {

// ERROR_SUCCESS, ERROR_MOD_NOT_FOUND (no such file), ERROR_BAD_EXE_FORMAT (not a shared object for this
// machine, or one whose segments reach past the end of the file), or the reason why it cannot be read.
DWORD CheckImage(const std::string& path);

}  // namespace orm::platform
