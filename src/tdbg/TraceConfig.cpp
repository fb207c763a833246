// The facility's configuration: the values of the global key, which hold for all modules, and those of the
// module's own key below it, which override them.
#include <cctype>
#include <cstring>

#include "TraceFacility.h"

namespace orm::trace_detail {

namespace {

// Every name but those of the areas begins with a blank, which keeps them apart and in front.
constexpr const char* FULL_FORMAT_VALUE = " info_fullformat";
constexpr const char* FORMAT_VALUE = " option_format";
constexpr const char* TARGET_VALUE = " option_target";
constexpr const char* BLOCK_TIMES_VALUE = " option_blocktimes";
constexpr const char* POLICY_VALUE = " option_autoassert";
constexpr const char* OBSOLETE_VALUE = " info_nodynupdate";

constexpr const char* FULL_FORMAT =
    "%1!-8s!|%2!-8s!|%3!c!|%4!4x!:%5!4x!|%6!6u!.%7!03u!|%8!8s!|%9!12s!|%10!4u!|";
constexpr const char* DEFAULT_FORMAT = "%1!-8s!|%2!-8s!|%6!6u!.%7!03u!|";
// Module, area, level, process, thread, seconds, milliseconds, time of day, file, line.
constexpr const char* HEADER_INSERTS = "ssnnnnnssn";

class Key {
 public:
  Key() = default;
  ~Key() {
    if (mKey) RegCloseKey(mKey);
  }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;

  bool CreateOrOpen(HKEY parent, const char* name) {
    OpenToAll open;
    return RegCreateKeyExA(parent, name, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_QUERY_VALUE | KEY_SET_VALUE,
                           open, &mKey, nullptr) == ERROR_SUCCESS;
  }
  HKEY Get() const { return mKey; }
  HKEY Detach() {
    const HKEY key = mKey;
    mKey = nullptr;
    return key;
  }

  // A string of at most `size` - 1 characters; false when the value is absent, not a string or longer.
  bool Read(const char* name, char* buffer, size_t size) const {
    char text[TARGET_SIZE + 1] = {};
    DWORD type = 0;
    auto length = static_cast<DWORD>(size);
    const LONG result = RegQueryValueExA(mKey, name, nullptr, &type, reinterpret_cast<BYTE*>(text), &length);
    if (result != ERROR_SUCCESS || type != REG_SZ || std::strlen(text) >= size) return false;
    std::strcpy(buffer, text);
    return true;
  }
  void Write(const char* name, const char* text) const {
    RegSetValueExA(mKey, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                   static_cast<DWORD>(std::strlen(text) + 1));
  }
  void Delete(const char* name) const { RegDeleteValueA(mKey, name); }

 private:
  HKEY mKey = nullptr;
};

bool IsPolicy(const char* text) {
  return text[0] && std::strchr("dari", text[0]);
}

void ReadGlobalText(const Key& key, const char* name, const char* fallback, char* buffer, size_t size) {
  if (key.Read(name, buffer, size)) return;
  std::strcpy(buffer, fallback);
  key.Write(name, fallback);
}

void ReadModuleText(const Key& key, const char* name, char* buffer, size_t size) {
  char text[TARGET_SIZE] = {};
  if (key.Read(name, text, size) && text[0]) {
    std::strcpy(buffer, text);
  } else {
    key.Write(name, "");
  }
}

void ReadGlobalValues(const Key& key) {
  key.Write(FULL_FORMAT_VALUE, FULL_FORMAT);
  ReadGlobalText(key, FORMAT_VALUE, DEFAULT_FORMAT, facility.format, FORMAT_SIZE);
  ReadGlobalText(key, TARGET_VALUE, DEBUGGER_TARGET, facility.target, TARGET_SIZE);

  char letter[2] = {};
  const bool known = key.Read(BLOCK_TIMES_VALUE, letter, sizeof letter);
  const int answer = std::tolower(static_cast<unsigned char>(letter[0]));
  timesBlocks = known && answer == 'y';
  if (!known || (answer != 'y' && answer != 'n')) key.Write(BLOCK_TIMES_VALUE, "n");

  char policy[2] = {};
  if (!key.Read(POLICY_VALUE, policy, sizeof policy) || !IsPolicy(policy)) {
    std::strcpy(policy, "d");
    key.Write(POLICY_VALUE, policy);
  }
  facility.policy = policy[0];
}

void ReadModuleBlockTimes(const Key& key) {
  char letter[2] = {};
  if (!key.Read(BLOCK_TIMES_VALUE, letter, sizeof letter)) letter[0] = 0;
  switch (std::tolower(static_cast<unsigned char>(letter[0]))) {
    case 'y':
      timesBlocks = true;
      break;
    case 'n':
      timesBlocks = false;
      break;
    case 0:
      key.Write(BLOCK_TIMES_VALUE, "");
      break;
    default:
      key.Write(BLOCK_TIMES_VALUE, "n");
  }
}

void ReadModuleValues(const Key& key) {
  key.Write(FULL_FORMAT_VALUE, FULL_FORMAT);
  ReadModuleText(key, FORMAT_VALUE, facility.format, FORMAT_SIZE);
  ReadModuleText(key, TARGET_VALUE, facility.target, TARGET_SIZE);
  ReadModuleBlockTimes(key);
  char policy[2] = {};
  if (key.Read(POLICY_VALUE, policy, sizeof policy) && IsPolicy(policy)) {
    facility.policy = policy[0];
  } else {
    key.Write(POLICY_VALUE, "");
  }
  key.Delete(OBSOLETE_VALUE);
}

}  // namespace

void ReadConfiguration() {
  std::strcpy(facility.format, DEFAULT_FORMAT);
  std::strcpy(facility.target, DEBUGGER_TARGET);
  timesBlocks = false;
  Key global;
  if (!global.CreateOrOpen(HKEY_LOCAL_MACHINE, GLOBAL_KEY)) return;
  ReadGlobalValues(global);
  Key module;
  if (module.CreateOrOpen(global.Get(), facility.moduleName)) {
    ReadModuleValues(module);
    facility.moduleKey = module.Detach();
  }
  // The value stays as its author wrote it, for him to mend.
  if (!InsertsAreSafe(facility.format, HEADER_INSERTS)) std::strcpy(facility.format, DEFAULT_FORMAT);
}

}  // namespace orm::trace_detail
