// Registry calls that fail, or after which something happens, when a test wants it.
#pragma once

#include <win32.h>

#include <functional>

namespace test {

// While it exists, the function (by its name) fails with the code in this program and the library.
class FailingRegistry {
 public:
  FailingRegistry(const char* function, LSTATUS code);
  ~FailingRegistry();
  FailingRegistry(const FailingRegistry&) = delete;
  FailingRegistry& operator=(const FailingRegistry&) = delete;
};

// While it exists, the first call of the function is followed by `action`, as if another process had come in
// between this call and the next. Within the action everything is as always.
class AfterRegistryCall {
 public:
  AfterRegistryCall(const char* function, std::function<void()> action);
  ~AfterRegistryCall();
  AfterRegistryCall(const AfterRegistryCall&) = delete;
  AfterRegistryCall& operator=(const AfterRegistryCall&) = delete;
};

}  // namespace test
