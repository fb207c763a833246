// The error codes of property bags.
#pragma once

#include <win32.h>

namespace orm {

inline constexpr DWORD kPropertyWrongType = 0xE7220001;
inline constexpr DWORD kPropertyMissing = 0xE7220002;
inline constexpr DWORD kPropertyLocationNotSupported = 0xE7220003;
inline constexpr DWORD kPropertyAccessDenied = 0xE7220004;
inline constexpr DWORD kPropertyDataBad = 0xE7220005;

}  // namespace orm
