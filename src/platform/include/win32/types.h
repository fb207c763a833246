// The platform's basic types, calling conventions and constants that several rooms share.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#define ORM_PLATFORM_API __attribute__((visibility("default")))
#define WINAPI
#define CALLBACK

using BOOL = int;
using BYTE = unsigned char;
using WORD = unsigned short;
using DWORD = uint32_t;  // 32 bits on every target, also where unsigned long has 64
using LONG = int32_t;
using ULONG = uint32_t;
using UINT = unsigned int;
using LONGLONG = int64_t;
using ULONGLONG = uint64_t;
using DWORD64 = uint64_t;
using INT_PTR = intptr_t;
using LONG_PTR = intptr_t;
using UINT_PTR = uintptr_t;
using ULONG_PTR = uintptr_t;
using DWORD_PTR = uintptr_t;
using SIZE_T = size_t;
using WPARAM = UINT_PTR;
using LPARAM = LONG_PTR;
using LRESULT = LONG_PTR;
using HRESULT = LONG;
using WCHAR = unsigned short;  // a UTF-16 unit
using ATOM = WORD;
using COLORREF = DWORD;
using LANGID = WORD;
using LCID = DWORD;

using HANDLE = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using LPDWORD = DWORD*;
using LPBYTE = BYTE*;
using FARPROC = INT_PTR (*)();

// Opaque handle types: each a pointer to a structure that is never defined, so that they do not convert into
// each other.
using HINSTANCE = struct HINSTANCE__*;
using HMODULE = HINSTANCE;
using HRSRC = struct HRSRC__*;
using HGLOBAL = HANDLE;
using HKEY = struct HKEY__*;
using HWND = struct HWND__*;

inline constexpr BOOL FALSE = 0;
inline constexpr BOOL TRUE = 1;
inline constexpr DWORD MAX_PATH = 260;
inline constexpr DWORD INFINITE = 0xFFFFFFFF;
#define INVALID_HANDLE_VALUE ((HANDLE)(LONG_PTR)-1)

struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

union LARGE_INTEGER {
  struct {
    DWORD LowPart;
    LONG HighPart;
  } u;
  LONGLONG QuadPart;
};

struct SYSTEMTIME {
  WORD wYear, wMonth, wDayOfWeek, wDay, wHour, wMinute, wSecond, wMilliseconds;
};

// A security descriptor is read for one thing only: whether it is present with a null access list, which
// opens the object to every user. See InitializeSecurityDescriptor in kernel.h.
struct SECURITY_DESCRIPTOR {
  BYTE Revision;
  BYTE Sbz1;
  WORD Control;
  void* Owner;
  void* Group;
  void* Sacl;
  void* Dacl;
};
inline constexpr DWORD SECURITY_DESCRIPTOR_REVISION = 1;
inline constexpr WORD SE_DACL_PRESENT = 0x0004;

struct SECURITY_ATTRIBUTES {
  DWORD nLength;
  void* lpSecurityDescriptor;
  BOOL bInheritHandle;
};
