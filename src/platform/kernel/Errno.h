// Error numbers of the C library turned into the platform's.
#pragma once

#include "win32/errors.h"

namespace orm::platform {

// The platform's number for an errno value; ERROR_GEN_FAILURE for one that has no counterpart.
DWORD ErrorFromErrno(int error) noexcept;

}  // namespace orm::platform
