// How a value is handed to a caller's buffer.
#pragma once

#include <string_view>

#include "win32/types.h"

namespace orm::platform {

// Fills what the caller asked for; each of the three may be null. 0, or ERROR_MORE_DATA with *size the size
// needed.
DWORD DeliverValue(DWORD type, std::string_view value, DWORD* typeOut, BYTE* data, DWORD* size);

}  // namespace orm::platform
