// Codes of the component manager's errors.
#pragma once

#include <ormutil/Error.h>

namespace orm {

inline constexpr DWORD ERROR_CLASS_NOT_REGISTERED = 0xE7230001;
inline constexpr DWORD ERROR_NO_CLASSES = 0xE7230003;
inline constexpr DWORD ERROR_COMPONENT_PATH_INVALID = 0xE7230004;
inline constexpr DWORD ERROR_COMPONENT_PATH_MISSING = 0xE7230005;

}  // namespace orm
