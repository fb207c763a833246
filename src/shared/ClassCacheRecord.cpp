// Reading one record of the shared block.
#include "ClassCacheRecord.h"

namespace orm {

namespace {

String GetLowerCase(String text) {
  text.MakeLower();
  return text;
}

int CompareText(const char* pLeft, const char* pRight) {
  return _mbscmp(reinterpret_cast<const unsigned char*>(pLeft),
                 reinterpret_cast<const unsigned char*>(pRight));
}

}  // namespace

CacheKey::CacheKey(const String& path)
    : name(GetLowerCase(path)), hash(GetSimpleStringHash(name.GetBegin())) {}

std::optional<CacheRecord> CacheRecord::Load(const CacheBytes& bytes, DWORD offset, DWORD size) {
  if (size < GetSize(0, 0)) return {};
  const DWORD payloadOffset = bytes.Load32(offset + PAYLOAD_OFFSET);
  const DWORD payloadSize = bytes.Load32(offset + PAYLOAD_SIZE);
  if (payloadOffset < PAYLOAD_AFTER_NAME || payloadOffset > size || payloadSize > size - payloadOffset) {
    return {};
  }
  const DWORD nameLength = payloadOffset - PAYLOAD_AFTER_NAME;
  if (bytes.LoadByte(offset + NAME + nameLength) != 0) return {};
  return CacheRecord{offset, bytes.Load64(offset + STAMP), nameLength, payloadSize,
                     bytes.Load32(offset + HASH)};
}

int CacheRecord::CompareKey(const CacheBytes& bytes, const CacheKey& key) const {
  if (key.hash != hash) return key.hash < hash ? -1 : 1;
  return CompareText(key.name.GetBegin(), GetName(bytes).c_str());
}

std::string CacheRecord::GetName(const CacheBytes& bytes) const {
  std::string name(nameLength, '\0');
  bytes.CopyOut(name.data(), offset + NAME, nameLength);
  return name;
}

}  // namespace orm
