// The system's version and the scaling operation.
#include "win32/system.h"

#include <cstdint>

#include "win32/errors.h"
#include "win32/kernel.h"

extern "C" {

BOOL WINAPI GetVersionExA(OSVERSIONINFOA* version) {
  if (!version || version->dwOSVersionInfoSize < sizeof *version) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  *version = {.dwOSVersionInfoSize = version->dwOSVersionInfoSize,
              .dwMajorVersion = 5,
              .dwMinorVersion = 1,
              .dwBuildNumber = 2600,
              .dwPlatformId = VER_PLATFORM_WIN32_NT,
              .szCSDVersion = {}};
  return TRUE;
}

int WINAPI MulDiv(int number, int numerator, int denominator) {
  if (denominator == 0) return -1;
  std::int64_t product = std::int64_t{number} * numerator;
  std::int64_t divisor = denominator;
  if (divisor < 0) {
    product = -product;
    divisor = -divisor;
  }
  const std::int64_t half = divisor / 2;
  const std::int64_t result = product >= 0 ? (product + half) / divisor : -((-product + half) / divisor);
  return result >= INT32_MIN && result <= INT32_MAX ? static_cast<int>(result) : -1;
}

}  // extern "C"
