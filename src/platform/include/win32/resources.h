// Resources of a module: read-only blocks of bytes found by type and name. The resource compiler (`orm rc`)
// makes them part of a program or shared library. Everything here may be called from any thread while the
// module is loaded.
#pragma once

#include "win32/types.h"

// A numeric name or type in the place of a text: the pointer's value is the number.
inline LPSTR MAKEINTRESOURCEA(WORD number) {
  return reinterpret_cast<LPSTR>(static_cast<ULONG_PTR>(number));
}
inline bool IS_INTRESOURCE(LPCSTR name) {
  return (reinterpret_cast<ULONG_PTR>(name) >> 16) == 0;
}

// Macros, because a pointer made from a number is no constant and must not need initialisation at start.
#define RT_BITMAP MAKEINTRESOURCEA(2)
#define RT_STRING MAKEINTRESOURCEA(6)

extern "C" {

// Finds a resource of `module` (null: the program). A name or type is a text, compared without regard to
// case, a "#123" text, or MAKEINTRESOURCEA. The handle belongs to the module and is never freed.
// Returns null on failure: 1812 the module has no resources or damaged ones, 1813 none of this type, 1814
// none of this name, 1815 none in this language (FindResourceExA only; language 0, as
// FindResourceA, prefers US English, then what has no language, and takes any).
ORM_PLATFORM_API HRSRC WINAPI FindResourceA(HMODULE module, LPCSTR name, LPCSTR type) noexcept;
ORM_PLATFORM_API HRSRC WINAPI FindResourceExA(HMODULE module, LPCSTR type, LPCSTR name,
                                              WORD language) noexcept;

// A handle to the bytes of a found resource, for LockResource. Null and 1812: not a resource of `module`.
ORM_PLATFORM_API HGLOBAL WINAPI LoadResource(HMODULE module, HRSRC resource) noexcept;

// The address of a loaded resource's first byte, aligned to 8; null for null.
ORM_PLATFORM_API LPVOID WINAPI LockResource(HGLOBAL data) noexcept;

// The size of a found resource in bytes. 0 and 1812: not a resource of `module`.
ORM_PLATFORM_API DWORD WINAPI SizeofResource(HMODULE module, HRSRC resource) noexcept;

}  // extern "C"
