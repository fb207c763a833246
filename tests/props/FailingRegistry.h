// Registry calls that fail when a test wants it.
#pragma once

#include <win32.h>

namespace test {

// While it exists, the function (by its name) fails with the code in this program and the library.
class FailingRegistry {
 public:
  FailingRegistry(const char* function, LSTATUS code);
  ~FailingRegistry();
  FailingRegistry(const FailingRegistry&) = delete;
  FailingRegistry& operator=(const FailingRegistry&) = delete;
};

}  // namespace test
