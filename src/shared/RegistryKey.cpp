// Registry calls whose results are strings, buffers and codes.
#include "RegistryKey.h"

#include <deque>
#include <optional>

namespace orm {

namespace {

// Others may make a key anew while it is being deleted, but not every time.
constexpr unsigned kMostReturns = 100;

QueryResult Query(HKEY key, const String& name, void* data, DWORD* size) {
  DWORD type = REG_NONE;
  const LSTATUS status =
      RegQueryValueExA(key, name.GetBegin(), nullptr, &type, static_cast<BYTE*>(data), size);
  return {static_cast<DWORD>(status), type};
}

// A key of a tree that is being deleted.
class TreeLevel {
 public:
  DWORD Open(HKEY parent, const char* name) {
    const LSTATUS opened = RegOpenKeyExA(parent, name, 0, KEY_READ, mKey.Receive());
    KeyInfo info;
    const DWORD code =
        opened == LSTATUS{ERROR_SUCCESS} ? QueryKeyInfo(mKey.Get(), info) : static_cast<DWORD>(opened);
    if (code == ERROR_SUCCESS) mName.emplace(info.longestSubkeyName);
    return code;
  }

  // ERROR_NO_MORE_ITEMS when none is left.
  DWORD FindSubkey() {
    const DWORD code = mName->EnumKey(mKey.Get(), 0);
    if (code != ERROR_SUCCESS) return code;
    // A name that leads to no key, though it is listed, was damaged or made under another code page.
    mReturns = mLast.Compare(mName->GetText()) == 0 ? mReturns + 1 : 0;
    if (mReturns == kMostReturns) return ERROR_BADKEY;
    mLast = mName->GetText();
    return ERROR_SUCCESS;
  }

  HKEY GetKey() const { return mKey.Get(); }
  const char* GetSubkey() const { return mName->GetText(); }

 private:
  ScopedKey mKey;
  std::optional<NameBuffer> mName;
  String mLast;
  unsigned mReturns = 0;
};

}  // namespace

QueryResult QueryType(HKEY key, const String& name) {
  return Query(key, name, nullptr, nullptr);
}

QueryResult QueryNumber(HKEY key, const String& name, DWORD& value) {
  DWORD size = sizeof value;
  value = 0;
  return Query(key, name, &value, &size);
}

QueryResult QueryString(HKEY key, const String& name, String& value) {
  DWORD size = 0;
  const QueryResult result = Query(key, name, nullptr, &size);
  if (!result.Has(REG_SZ)) return result;
  // Whoever stored the text may have left out its terminator.
  char* text = value.PrepareWriting(size_t{size} + 1, false);
  *text = '\0';
  const QueryResult second = Query(key, name, text, &size);
  text[second.Has(REG_SZ) ? size : 0] = '\0';
  return second;
}

QueryResult QueryBinary(HKEY key, const String& name, Binary& value) {
  DWORD size = 0;
  const QueryResult result = Query(key, name, nullptr, &size);
  if (!result.Has(REG_BINARY)) return result;
  const QueryResult second = Query(key, name, value.GetBuffer(size), &size);
  if (second.Has(REG_BINARY)) value.SetSize(size, true);
  return second;
}

DWORD QueryKeyInfo(HKEY key, KeyInfo& info) {
  return static_cast<DWORD>(RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, &info.subkeys,
                                             &info.longestSubkeyName, nullptr, &info.values,
                                             &info.longestValueName, nullptr, nullptr, nullptr));
}

DWORD NameBuffer::EnumValue(HKEY key, DWORD index, DWORD* type) {
  DWORD size = GetSize();
  return static_cast<DWORD>(RegEnumValueA(key, index, mText.data(), &size, nullptr, type, nullptr, nullptr));
}

DWORD NameBuffer::EnumKey(HKEY key, DWORD index) {
  DWORD size = GetSize();
  return static_cast<DWORD>(
      RegEnumKeyExA(key, index, mText.data(), &size, nullptr, nullptr, nullptr, nullptr));
}

// Level by level and not by recursion: whoever makes the keys decides how deep they lie.
DWORD DeleteTree(HKEY parent, const char* subkey) {
  std::deque<TreeLevel> levels;
  // Subkeys that are gone meanwhile are as good as deleted.
  const auto enter = [&levels](HKEY key, const char* name) {
    const DWORD code = levels.emplace_back().Open(key, name);
    if (code == ERROR_SUCCESS) return code;
    levels.pop_back();
    return code == ERROR_FILE_NOT_FOUND ? DWORD{ERROR_SUCCESS} : code;
  };
  DWORD code = enter(parent, subkey);
  while (code == ERROR_SUCCESS && !levels.empty()) {
    TreeLevel& level = levels.back();
    code = level.FindSubkey();
    if (code == ERROR_SUCCESS) {
      code = enter(level.GetKey(), level.GetSubkey());
    } else if (code == ERROR_NO_MORE_ITEMS) {
      levels.pop_back();
      code = static_cast<DWORD>(levels.empty()
                                    ? RegDeleteKeyA(parent, subkey)
                                    : RegDeleteKeyA(levels.back().GetKey(), levels.back().GetSubkey()));
    }
  }
  return code;
}

}  // namespace orm
