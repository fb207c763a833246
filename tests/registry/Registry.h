// What the registry's tests have in common: handles that close themselves, shorthands, child processes.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "support/Forked.h"
#include "win32.h"
#include "win32/registryx.h"

namespace registrytest {

class Key {
 public:
  Key() = default;
  Key(HKEY parent, const std::string& path, REGSAM access = KEY_ALL_ACCESS) {
    code = RegCreateKeyExA(parent, path.c_str(), 0, nullptr, 0, access, nullptr, &mKey, nullptr);
  }
  ~Key() {
    if (mKey != nullptr) RegCloseKey(mKey);
  }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  operator HKEY() const { return mKey; }
  HKEY* Out() { return &mKey; }

  LSTATUS code = ERROR_SUCCESS;

 private:
  HKEY mKey = nullptr;
};

inline LSTATUS Open(HKEY parent, const std::string& path, Key* key, REGSAM access = KEY_READ) {
  return RegOpenKeyExA(parent, path.c_str(), 0, access, key->Out());
}

inline LSTATUS SetNumber(HKEY key, const std::string& name, DWORD value) {
  return RegSetValueExA(key, name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value);
}

inline LSTATUS SetBytes(HKEY key, const std::string& name, DWORD type, const std::string& data) {
  return RegSetValueExA(key, name.c_str(), 0, type, reinterpret_cast<const BYTE*>(data.data()),
                        static_cast<DWORD>(data.size()));
}

// 0xDEADBEEF when it cannot be read.
inline DWORD GetNumber(HKEY key, const std::string& name) {
  DWORD value = 0, size = sizeof value;
  const LSTATUS code =
      RegQueryValueExA(key, name.c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size);
  return code == ERROR_SUCCESS ? value : 0xDEADBEEF;
}

inline LSTATUS GetBytes(HKEY key, const std::string& name, std::string* data, DWORD* type = nullptr) {
  DWORD size = 0;
  LSTATUS code = RegQueryValueExA(key, name.c_str(), nullptr, type, nullptr, &size);
  data->resize(size);
  if (code != ERROR_SUCCESS) return code;
  return RegQueryValueExA(key, name.c_str(), nullptr, type, reinterpret_cast<BYTE*>(data->data()), &size);
}

inline std::vector<std::string> ValueNames(HKEY key) {
  std::vector<std::string> names;
  std::vector<char> buffer(16384);
  for (DWORD i = 0;; ++i) {
    DWORD length = static_cast<DWORD>(buffer.size());
    const LSTATUS code = RegEnumValueA(key, i, buffer.data(), &length, nullptr, nullptr, nullptr, nullptr);
    if (code != ERROR_SUCCESS) {
      EXPECT_EQ(code, LSTATUS{ERROR_NO_MORE_ITEMS});
      return names;
    }
    names.emplace_back(buffer.data(), length);
  }
}

inline std::vector<std::string> SubKeyNames(HKEY key) {
  std::vector<std::string> names;
  for (DWORD i = 0;; ++i) {
    char buffer[256];
    DWORD length = sizeof buffer;
    const LSTATUS code = RegEnumKeyExA(key, i, buffer, &length, nullptr, nullptr, nullptr, nullptr);
    if (code != ERROR_SUCCESS) {
      EXPECT_EQ(code, LSTATUS{ERROR_NO_MORE_ITEMS});
      return names;
    }
    names.emplace_back(buffer, length);
  }
}

using test::InChildAs;
using test::StartForked;
using test::WaitFor;

// The exceptions of the thread sanitizer go by this name.
inline int InChild(const std::function<int()>& body) {
  return test::InChild(body);
}

inline SECURITY_ATTRIBUTES* NullAccessList() {
  static SECURITY_DESCRIPTOR descriptor{1, 0, SE_DACL_PRESENT, nullptr, nullptr, nullptr, nullptr};
  static SECURITY_ATTRIBUTES attributes{sizeof attributes, &descriptor, FALSE};
  return &attributes;
}

// The faults of the store that holds `key`, a line each; empty when it is sound.
inline std::string Faults(HKEY key) {
  std::string faults;
  const LSTATUS code = OrmRegCheckStore(
      key,
      [](void* text, const char* fault) { *static_cast<std::string*>(text) += std::string(fault) + '\n'; },
      &faults);
  EXPECT_EQ(code, static_cast<LSTATUS>(faults.empty() ? ERROR_SUCCESS : ERROR_BADDB));
  return faults;
}

inline std::string MachineFile(const std::string& sub) {
  return std::string(getenv("ORM_MACHINE")) + '/' + sub;
}

}  // namespace registrytest
