// A module's export as the function that it is, for tests.
#pragma once

#include "win32/modules.h"

namespace orm::test {

template <class Function>
Function ExportOf(HMODULE module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

}  // namespace orm::test
