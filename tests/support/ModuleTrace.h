// The trace lines that the library itself writes, as whoever watches the debugger output sees them.
#pragma once

#include <win32.h>
#include <win32/debugwatch.h>

#include <string>
#include <vector>

namespace test {

// Lets one area of the library trace up to a level while it exists.
class ModuleTrace {
 public:
  ModuleTrace(const std::string& area, char letter) : mArea(area) { SetLevel(letter); }
  ~ModuleTrace() { SetLevel('n'); }
  ModuleTrace(const ModuleTrace&) = delete;
  ModuleTrace& operator=(const ModuleTrace&) = delete;

  // The messages that the area has written since the last call, without their headers.
  std::vector<std::string> Take() {
    std::vector<std::string> messages;
    orm::platform::DebugRecord record;
    while (mWatch.Read(record, 0)) {
      const std::string& line = record.text;
      // module|area    |time|message
      const size_t area = line.find('|') + 1;
      const size_t time = line.find('|', area) + 1;
      const size_t message = line.find('|', time) + 1;
      if (line.compare(area, mArea.size(), mArea) != 0) continue;
      messages.push_back(line.substr(message, line.find_last_not_of("\r\n") + 1 - message));
    }
    return messages;
  }

  // The key of the module under the trace configuration: the one that knows the area.
  static std::string FindModuleKey(const std::string& area) {
    const std::string global = "SOFTWARE\\tdbg_trace\\1.0";
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, global.c_str(), 0, KEY_READ, &key) != LSTATUS{ERROR_SUCCESS})
      return {};
    std::string found;
    char name[256];
    for (DWORD index = 0, size = sizeof name;
         RegEnumKeyExA(key, index, name, &size, nullptr, nullptr, nullptr, nullptr) == LSTATUS{ERROR_SUCCESS};
         ++index, size = sizeof name) {
      HKEY module = nullptr;
      if (RegOpenKeyExA(key, name, 0, KEY_READ, &module) != LSTATUS{ERROR_SUCCESS}) continue;
      if (RegQueryValueExA(module, area.c_str(), nullptr, nullptr, nullptr, nullptr) ==
          LSTATUS{ERROR_SUCCESS}) {
        found = global + "\\" + name;
      }
      RegCloseKey(module);
    }
    RegCloseKey(key);
    return found;
  }

 private:
  void SetLevel(char letter) {
    const std::string module = FindModuleKey(mArea);
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, module.c_str(), 0, KEY_WRITE, &key) != LSTATUS{ERROR_SUCCESS})
      return;
    const BYTE text[2] = {static_cast<BYTE>(letter), 0};
    RegSetValueExA(key, mArea.c_str(), 0, REG_SZ, text, sizeof text);
    RegCloseKey(key);
  }

  std::string mArea;
  orm::platform::DebugWatch mWatch;
};

}  // namespace test
