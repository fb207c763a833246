// Reading and deleting registry keys: handles that close themselves, values and names of any size, trees.
#pragma once

#include <ormutil/BaseString.h>
#include <ormutil/Binary.h>

#include <vector>

#include "SecureErase.h"

namespace orm {

class ScopedKey {
 public:
  ScopedKey() = default;
  ScopedKey(const ScopedKey&) = delete;
  ScopedKey& operator=(const ScopedKey&) = delete;
  ~ScopedKey() {
    if (mhKey) RegCloseKey(mhKey);
  }
  HKEY Get() const { return mhKey; }
  HKEY* Receive() { return &mhKey; }

 private:
  HKEY mhKey = nullptr;
};

// The answer to a query: the platform's code and, when that is 0, the type found. The value is there when the
// type is the one that was asked for.
struct QueryResult {
  DWORD code;
  DWORD type;
  bool Has(DWORD required) const { return code == ERROR_SUCCESS && type == required; }
};

// The type alone, and the value of each kind.
QueryResult QueryType(HKEY key, const String& name);
QueryResult QueryNumber(HKEY key, const String& name, DWORD& value);
QueryResult QueryString(HKEY key, const String& name, String& value);
QueryResult QueryBinary(HKEY key, const String& name, Binary& value);

struct KeyInfo {
  DWORD values = 0;
  DWORD longestValueName = 0;
  DWORD subkeys = 0;
  DWORD longestSubkeyName = 0;
};

// The platform's code.
DWORD QueryKeyInfo(HKEY key, KeyInfo& info);

// Room for the names of an enumeration. The longest length that the registry reports counts characters, each
// of which may take two bytes. The enumerations return the platform's code.
class NameBuffer {
 public:
  explicit NameBuffer(DWORD longest) : mText(size_t{2} * longest + 2) {}
  ~NameBuffer() { SecureErase(mText.data(), mText.size()); }
  NameBuffer(const NameBuffer&) = delete;
  NameBuffer& operator=(const NameBuffer&) = delete;

  DWORD EnumValue(HKEY key, DWORD index, DWORD* type);
  DWORD EnumKey(HKEY key, DWORD index);
  const char* GetText() const { return mText.data(); }

 private:
  DWORD GetSize() const { return static_cast<DWORD>(mText.size()); }

  std::vector<char> mText;
};

// Deletes a key with all that is below it, depth first. The platform's code; success when there is no such
// key. A tree that is deeper than keys can be open at once is an error, with the tree still there.
DWORD DeleteTree(HKEY parent, const char* subkey);

}  // namespace orm
