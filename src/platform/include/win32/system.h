// The system's version, and arithmetic that the platform offers for scaling.
#pragma once

#include "win32/types.h"

struct OSVERSIONINFOA {
  DWORD dwOSVersionInfoSize;  // set by the caller
  DWORD dwMajorVersion;
  DWORD dwMinorVersion;
  DWORD dwBuildNumber;
  DWORD dwPlatformId;
  char szCSDVersion[128];
};

inline constexpr DWORD VER_PLATFORM_WIN32_WINDOWS = 1;
inline constexpr DWORD VER_PLATFORM_WIN32_NT = 2;

extern "C" {

// Fills in a system of the NT family, 5.1. FALSE with ERROR_INSUFFICIENT_BUFFER when the size is too small.
ORM_PLATFORM_API BOOL WINAPI GetVersionExA(OSVERSIONINFOA* version);

// number * numerator / denominator, calculated with 64 bits and rounded to the nearest integer (halves away
// from zero); -1 when the denominator is 0 or the result does not fit.
ORM_PLATFORM_API int WINAPI MulDiv(int number, int numerator, int denominator);

}  // extern "C"
