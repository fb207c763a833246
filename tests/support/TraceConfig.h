// The trace configuration as a test sets and reads it.
#pragma once

#include <win32.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace test {

inline const std::string TRACE_KEY = "SOFTWARE\\tdbg_trace\\1.0";

inline void SetRegistryText(const std::string& key, const std::string& name, const std::string& text) {
  HKEY handle = nullptr;
  SECURITY_DESCRIPTOR descriptor;
  InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
  SetSecurityDescriptorDacl(&descriptor, true, nullptr, false);
  SECURITY_ATTRIBUTES open{sizeof open, &descriptor, false};
  RegCreateKeyExA(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, &open, &handle, nullptr);
  RegSetValueExA(handle, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                 static_cast<DWORD>(text.size() + 1));
  RegCloseKey(handle);
}

// "<none>" when it is not there or not a string.
inline std::string GetRegistryText(const std::string& key, const std::string& name) {
  HKEY handle = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ, &handle) != ERROR_SUCCESS) return "<none>";
  char text[1024] = {};
  DWORD type = 0;
  DWORD size = sizeof text - 1;
  const LONG result =
      RegQueryValueExA(handle, name.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(text), &size);
  RegCloseKey(handle);
  return result == ERROR_SUCCESS && type == REG_SZ ? text : "<none>";
}

// The lines of a log file in the machine's temporary folder, without their endings.
inline std::vector<std::string> ReadLog(const std::string& name) {
  const char* machine = getenv("ORM_MACHINE");
  std::ifstream file(std::string(machine ? machine : "") + "/drives/c:/Windows/Temp/" + name,
                     std::ios::binary);
  const std::string content{std::istreambuf_iterator<char>(file), {}};
  std::vector<std::string> lines;
  for (size_t begin = 0; begin < content.size();) {
    const size_t end = content.find("\r\n", begin);
    lines.push_back(content.substr(begin, end == std::string::npos ? end : end - begin));
    begin = end == std::string::npos ? content.size() : end + 2;
  }
  return lines;
}

}  // namespace test
