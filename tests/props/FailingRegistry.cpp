// The program's own versions of registry functions, which are found before the platform's.
#include "FailingRegistry.h"

#include <dlfcn.h>

#include <cstring>
#include <utility>

namespace {

constinit const char* gsFailing = nullptr;
constinit LSTATUS gsCode = 0;
constinit const char* gsFollowed = nullptr;
std::function<void()> gsAction;

void Follow(const char* function) {
  if (!gsFollowed || std::strcmp(gsFollowed, function) != 0) return;
  gsFollowed = nullptr;
  gsAction();
}

// The code when that function is to fail now, else what the platform's function returns.
template <class... Arguments>
LSTATUS Call(const char* function, Arguments... arguments) {
  if (gsFailing && std::strcmp(gsFailing, function) == 0) return gsCode;
  using Function = LSTATUS (*)(Arguments...);
  const LSTATUS result = reinterpret_cast<Function>(dlsym(RTLD_NEXT, function))(arguments...);
  Follow(function);
  return result;
}

}  // namespace

namespace test {

FailingRegistry::FailingRegistry(const char* function, LSTATUS code) {
  gsFailing = function;
  gsCode = code;
}

FailingRegistry::~FailingRegistry() {
  gsFailing = nullptr;
}

AfterRegistryCall::AfterRegistryCall(const char* function, std::function<void()> action) {
  gsFollowed = function;
  gsAction = std::move(action);
}

AfterRegistryCall::~AfterRegistryCall() {
  gsFollowed = nullptr;
}

}  // namespace test

extern "C" {

LSTATUS RegOpenKeyExA(HKEY key, const char* subKey, DWORD options, REGSAM access, HKEY* result) {
  return Call("RegOpenKeyExA", key, subKey, options, access, result);
}

LSTATUS RegCreateKeyExA(HKEY key, const char* subKey, DWORD reserved, char* className, DWORD options,
                        REGSAM access, const SECURITY_ATTRIBUTES* attributes, HKEY* result,
                        DWORD* disposition) {
  return Call("RegCreateKeyExA", key, subKey, reserved, className, options, access, attributes, result,
              disposition);
}

LSTATUS RegQueryValueExA(HKEY key, const char* valueName, DWORD* reserved, DWORD* type, BYTE* data,
                         DWORD* size) {
  return Call("RegQueryValueExA", key, valueName, reserved, type, data, size);
}

LSTATUS RegDeleteKeyA(HKEY key, const char* subKey) {
  return Call("RegDeleteKeyA", key, subKey);
}

LSTATUS RegDeleteValueA(HKEY key, const char* valueName) {
  return Call("RegDeleteValueA", key, valueName);
}

LSTATUS RegQueryInfoKeyA(HKEY key, char* className, DWORD* classLength, DWORD* reserved, DWORD* subKeys,
                         DWORD* maxSubKeyLength, DWORD* maxClassLength, DWORD* values,
                         DWORD* maxValueNameLength, DWORD* maxValueSize, DWORD* securityDescriptorSize,
                         FILETIME* lastWrite) {
  return Call("RegQueryInfoKeyA", key, className, classLength, reserved, subKeys, maxSubKeyLength,
              maxClassLength, values, maxValueNameLength, maxValueSize, securityDescriptorSize, lastWrite);
}

LSTATUS RegEnumValueA(HKEY key, DWORD index, char* valueName, DWORD* nameLength, DWORD* reserved, DWORD* type,
                      BYTE* data, DWORD* size) {
  return Call("RegEnumValueA", key, index, valueName, nameLength, reserved, type, data, size);
}

LSTATUS RegEnumKeyExA(HKEY key, DWORD index, char* name, DWORD* nameLength, DWORD* reserved, char* className,
                      DWORD* classLength, FILETIME* lastWrite) {
  return Call("RegEnumKeyExA", key, index, name, nameLength, reserved, className, classLength, lastWrite);
}

}  // extern "C"
