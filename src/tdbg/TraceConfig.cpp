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

// What the configuration says besides the facility's texts.
struct Settings {
  bool timesBlocks = false;
  char policy = 0;
};

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

  // Calls `readValues`, which reads values and calls Repair for those that are of no use. Only when there are
  // any it is called once more, in one step with the repairs: what somebody has set meanwhile stays.
  template <class ReadValues>
  void Settle(ReadValues&& readValues) {
    readValues(*this);
    if (!mNeedsRepair) return;
    const RegistryStep step(mKey);
    mRepairs = true;
    readValues(*this);
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
  // Whether the value is a string of any length.
  bool IsText(const char* name) const {
    DWORD type = 0;
    return RegQueryValueExA(mKey, name, nullptr, &type, nullptr, nullptr) == ERROR_SUCCESS && type == REG_SZ;
  }
  void Write(const char* name, const char* text) const {
    RegSetValueExA(mKey, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                   static_cast<DWORD>(std::strlen(text) + 1));
  }
  // Nothing is to be done when the value is that text already, and nothing can be when it is not known.
  void Repair(const char* name, const char* text) {
    char present[TARGET_SIZE];
    if (Read(name, present, sizeof present) && std::strcmp(present, text) == 0) return;
    if (!HasAnswered(RegQueryValueExA(mKey, name, nullptr, nullptr, nullptr, nullptr))) return;
    mNeedsRepair = true;
    if (mRepairs) Write(name, text);
  }
  // Looked for first: a look waits for no writer.
  void Delete(const char* name) const {
    if (RegQueryValueExA(mKey, name, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS) {
      RegDeleteValueA(mKey, name);
    }
  }

 private:
  HKEY mKey = nullptr;
  bool mNeedsRepair = false;
  bool mRepairs = false;
};

bool IsPolicy(const char* text) {
  return text[0] && std::strchr("dari", text[0]);
}

// The letter in lower case; 0 when there is none to be had.
char ReadLetter(const Key& key, const char* name) {
  char letter[2] = {};
  if (!key.Read(name, letter, sizeof letter)) return 0;
  return static_cast<char>(std::tolower(static_cast<unsigned char>(letter[0])));
}

void ReadGlobalFormat(Key& rKey) {
  if (rKey.Read(FORMAT_VALUE, facility.format, FORMAT_SIZE)) return;
  std::strcpy(facility.format, DEFAULT_FORMAT);
  rKey.Repair(FORMAT_VALUE, DEFAULT_FORMAT);
}

// Unlike a format, a path that is too long may be the only place where it is written down.
void ReadGlobalTarget(Key& rKey) {
  if (rKey.Read(TARGET_VALUE, facility.target, TARGET_SIZE)) return;
  std::strcpy(facility.target, DEBUGGER_TARGET);
  if (!rKey.IsText(TARGET_VALUE)) rKey.Repair(TARGET_VALUE, DEBUGGER_TARGET);
}

void ReadGlobalValues(Key& rKey, Settings& rSettings) {
  ReadGlobalFormat(rKey);
  ReadGlobalTarget(rKey);
  const char times = ReadLetter(rKey, BLOCK_TIMES_VALUE);
  rSettings.timesBlocks = times == 'y';
  if (times != 'y' && times != 'n') rKey.Repair(BLOCK_TIMES_VALUE, "n");

  char policy[2] = {};
  if (!rKey.Read(POLICY_VALUE, policy, sizeof policy) || !IsPolicy(policy)) {
    std::strcpy(policy, "d");
    rKey.Repair(POLICY_VALUE, policy);
  }
  rSettings.policy = policy[0];
}

void ReadModuleText(Key& rKey, const char* name, char* buffer, size_t size) {
  char text[TARGET_SIZE] = {};
  if (rKey.Read(name, text, size)) {
    if (text[0]) std::strcpy(buffer, text);
  } else if (!rKey.IsText(name)) {  // one that is too long stays, for its author to mend
    rKey.Repair(name, "");
  }
}

// What is of no use here leaves the global setting as it is.
void ReadModuleValues(Key& rKey, Settings& rSettings) {
  ReadModuleText(rKey, FORMAT_VALUE, facility.format, FORMAT_SIZE);
  ReadModuleText(rKey, TARGET_VALUE, facility.target, TARGET_SIZE);
  switch (ReadLetter(rKey, BLOCK_TIMES_VALUE)) {
    case 'y':
      rSettings.timesBlocks = true;
      break;
    case 'n':
      rSettings.timesBlocks = false;
      break;
    case 0:
      rKey.Repair(BLOCK_TIMES_VALUE, "");
      break;
    default:
      rKey.Repair(BLOCK_TIMES_VALUE, "n");
  }
  char policy[2] = {};
  if (rKey.Read(POLICY_VALUE, policy, sizeof policy) && IsPolicy(policy)) {
    rSettings.policy = policy[0];
  } else {
    rKey.Repair(POLICY_VALUE, "");
  }
}

}  // namespace

void ReadConfiguration() {
  std::strcpy(facility.format, DEFAULT_FORMAT);
  std::strcpy(facility.target, DEBUGGER_TARGET);
  Settings settings;
  if (Key global; global.CreateOrOpen(HKEY_LOCAL_MACHINE, GLOBAL_KEY)) {
    global.Write(FULL_FORMAT_VALUE, FULL_FORMAT);
    global.Settle([&](Key& rKey) { ReadGlobalValues(rKey, settings); });
    if (Key module; module.CreateOrOpen(global.Get(), facility.moduleName)) {
      module.Write(FULL_FORMAT_VALUE, FULL_FORMAT);
      module.Settle([&](Key& rKey) { ReadModuleValues(rKey, settings); });
      module.Delete(OBSOLETE_VALUE);
      facility.moduleKey = module.Detach();
    }
  }
  facility.policy = settings.policy;
  // At once, since scopes look at it without a lock.
  timesBlocks.store(settings.timesBlocks, std::memory_order_relaxed);
  // The value stays as its author wrote it, for him to mend.
  if (!InsertsAreSafe(facility.format, HEADER_INSERTS)) std::strcpy(facility.format, DEFAULT_FORMAT);
}

}  // namespace orm::trace_detail
