// What is done under failing calls: each scenario uses one part of the system and leaves nothing behind.
#pragma once

#include <win32.h>

#include <span>

struct Scenario {
  const char* name;
  void (*run)();
};

std::span<const Scenario> GetScenarios();

// What a scenario throws when one of the platform layer's own functions fails or gives a wrong result.
struct PlatformError {
  const char* what;
  DWORD code;
};

// What it throws when something was not done whose functions tell of failures by assertions and trace lines
// only.
struct Undone {
  const char* what;
};

inline void Check(bool succeeded, const char* what) {
  if (!succeeded) throw PlatformError{what, GetLastError()};
}

// The scenarios of DrawingScenarios.cpp.
void UseFont();
void UseBitmap();
