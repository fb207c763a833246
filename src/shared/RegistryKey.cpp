// Registry calls whose results are strings, buffers and codes.
#include "RegistryKey.h"

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

DWORD DeleteTree(HKEY parent, const char* subkey) {
  ScopedKey key;
  const LSTATUS opened = RegOpenKeyExA(parent, subkey, 0, KEY_READ, key.Receive());
  if (opened == LSTATUS{ERROR_FILE_NOT_FOUND}) return ERROR_SUCCESS;
  if (opened != LSTATUS{ERROR_SUCCESS}) return static_cast<DWORD>(opened);

  KeyInfo info;
  if (const DWORD code = QueryKeyInfo(key.Get(), info)) return code;
  NameBuffer name(info.longestSubkeyName);
  String last;
  unsigned returns = 0;
  DWORD code;
  while ((code = name.EnumKey(key.Get(), 0)) == ERROR_SUCCESS) {
    // A name that leads to no key, though it is listed, was damaged or made under another code page.
    returns = last.Compare(name.GetText()) == 0 ? returns + 1 : 0;
    if (returns == kMostReturns) return ERROR_BADKEY;
    last = name.GetText();
    if (const DWORD failure = DeleteTree(key.Get(), name.GetText())) return failure;
  }
  if (code != ERROR_NO_MORE_ITEMS) return code;
  return static_cast<DWORD>(RegDeleteKeyA(parent, subkey));
}

}  // namespace orm
