// The bag that the tests of registry bags use.
#pragma once

#include <gtest/gtest.h>
#include <ormutil/Error.h>
#include <ormutil/PersistentProperties.h>

#include <string>

inline constexpr LSTATUS kSuccess = 0;
inline const std::string kKeyName = "HKEY_CURRENT_USER\\SOFTWARE\\Tools\\Editor";

inline std::string SystemText(DWORD code) {
  return orm::MakeSystemError(code, orm::String(), false).GetMessage(0).GetBegin();
}

inline void SetRaw(const char* name, DWORD type, const std::string& data,
                   const char* key = "SOFTWARE\\Tools\\Editor") {
  HKEY handle = nullptr;
  ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, key, 0, nullptr, 0, KEY_WRITE, nullptr, &handle, nullptr),
            kSuccess);
  ASSERT_EQ(RegSetValueExA(handle, name, 0, type, reinterpret_cast<const BYTE*>(data.data()),
                           static_cast<DWORD>(data.size())),
            kSuccess);
  RegCloseKey(handle);
}

// Nothing is stored when a test begins.
class PersistentTest : public testing::Test {
 protected:
  PersistentTest() {
    for (const char* name : {"Tools", "Tools\\Editor"}) {
      mBag.Open(name, true);
      mBag.DeleteBag();
    }
  }
  orm::PersistentProperties mBag;
};
