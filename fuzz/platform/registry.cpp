// Names, values and data of any bytes: what was stored is read back, and counting, listing and asking agree.
#include <string>
#include <vector>

#include "Require.h"
#include "Script.h"
#include "win32.h"

namespace {

using fuzz::Require;
using fuzz::Script;

class Key {
 public:
  ~Key() { Close(); }
  Key() = default;
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;

  bool Make(HKEY parent, const std::string& path) {
    HKEY made = nullptr;
    const LSTATUS code =
        RegCreateKeyExA(parent, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &made, nullptr);
    Require((code == ERROR_SUCCESS) == (made != nullptr));
    if (made == nullptr) return false;
    Close();
    mKey = made;
    return true;
  }
  operator HKEY() const { return mKey; }

 private:
  void Close() {
    if (mKey != nullptr) RegCloseKey(mKey);
  }
  HKEY mKey = nullptr;
};

void SetAndGet(HKEY key, const std::string& name, DWORD type, const std::string& data) {
  const auto size = static_cast<DWORD>(data.size());
  const auto* bytes = reinterpret_cast<const BYTE*>(data.data());
  if (RegSetValueExA(key, name.c_str(), 0, type, bytes, size) != ERROR_SUCCESS) return;
  std::vector<BYTE> back(size + 1u);
  DWORD backSize = size + 1, backType = ~type;
  Require(RegQueryValueExA(key, name.c_str(), nullptr, &backType, back.data(), &backSize) == ERROR_SUCCESS);
  Require(backType == type && backSize == size && std::string(back.begin(), back.end() - 1) == data);
}

void List(HKEY key) {
  DWORD subKeys = 0, longestKey = 0, values = 0, longestValue = 0, largest = 0;
  Require(RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, &subKeys, &longestKey, nullptr, &values,
                           &longestValue, &largest, nullptr, nullptr) == ERROR_SUCCESS);
  std::vector<char> name(static_cast<size_t>(std::max(longestKey, longestValue)) + 1);
  DWORD size = 0;
  for (DWORD i = 0; i < values; ++i) {
    auto length = static_cast<DWORD>(name.size());
    Require(RegEnumValueA(key, i, name.data(), &length, nullptr, nullptr, nullptr, &size) == ERROR_SUCCESS);
    Require(length < name.size() && name[length] == 0 && size <= largest);
    Require(RegQueryValueExA(key, name.data(), nullptr, nullptr, nullptr, &size) == ERROR_SUCCESS);
  }
  Require(RegEnumValueA(key, values, name.data(), &size, nullptr, nullptr, nullptr, nullptr) !=
          ERROR_SUCCESS);
  for (DWORD i = 0; i < subKeys; ++i) {
    auto length = static_cast<DWORD>(name.size());
    Require(RegEnumKeyExA(key, i, name.data(), &length, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS);
    Key found;
    Require(length < name.size() && found.Make(key, name.data()));
  }
}

// Everything below the key; nothing may resist.
void Clear(HKEY key) {
  for (;;) {
    char name[256];
    DWORD length = sizeof name;
    if (RegEnumKeyExA(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
    Key child;
    Require(child.Make(key, name));
    Clear(child);
    Require(RegDeleteKeyA(key, name) == ERROR_SUCCESS);
  }
  std::vector<char> name(16384);
  for (;;) {
    auto length = static_cast<DWORD>(name.size());
    if (RegEnumValueA(key, 0, name.data(), &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
      break;
    Require(RegDeleteValueA(key, name.data()) == ERROR_SUCCESS);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Script script(data, size);
  fuzz::ChooseCodePage(script.Byte());
  Key root, key;
  Require(root.Make(HKEY_CURRENT_USER, "Fuzz") && key.Make(HKEY_CURRENT_USER, "Fuzz"));
  for (unsigned step = 0; step < 32 && !script.IsAtEnd(); ++step) {
    const uint8_t operation = script.Byte();
    const std::string name = script.Text();
    switch (operation & 7) {
      case 0:
      case 1:
        SetAndGet(key, name, operation >> 3, script.Text());
        break;
      case 2:
        key.Make(root, name);
        break;
      case 3:
        key.Make(key, name);
        break;
      case 4:
        // The empty name is the key itself, which the later steps need.
        if (name.c_str()[0] != 0 && RegDeleteKeyA(root, name.c_str()) == ERROR_SUCCESS) key.Make(root, "");
        break;
      case 5:
        RegDeleteValueA(key, name.c_str());
        break;
      default:
        List(root);
    }
  }
  Clear(root);
  return 0;
}
