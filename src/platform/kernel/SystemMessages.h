// The platform's own texts for its error numbers, in English.
#pragma once

#include "win32/types.h"

namespace orm::platform {

// The text for an error number, without its final line break; null when there is none. A result code that
// wraps an error number (0x8007NNNN) has that number's text.
const char* FindSystemMessage(DWORD code);

}  // namespace orm::platform
