// What this system's file mappings offer beyond the platform's. Not part of win32.h: on the original platform
// a file that is mapped cannot be cut short, so that there is nothing to ask.
#pragma once

#include "win32/types.h"

extern "C" {

// Whether the file below a mapping is still as long as the mapping. Here any user who may write the file may
// cut it short, and whoever touches a view behind its end is killed. FALSE as well for a handle that is no
// mapping. Any thread.
ORM_PLATFORM_API BOOL OrmIsMappingWhole(HANDLE mapping) noexcept;
}
