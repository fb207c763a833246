// Share modes of open files, which hold between all processes of the machine.
#pragma once

#include "win32/files.h"

namespace orm::platform {

// Announces what this open file does and forbids. False when another open file forbids what it does, or does
// what it forbids. The announcement ends with the descriptor.
bool ClaimShareMode(int descriptor, bool reads, bool writes, DWORD share) noexcept;

}  // namespace orm::platform
