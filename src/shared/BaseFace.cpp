// Face ids and the error of a face that is not there.
#include <ormutil/BaseFace.h>

#include <ormutil/BaseString.h>
#include <ormutil/Error.h>

namespace orm {

FaceId::FaceId(const char* text) : mpText(text), mHash(GetSimpleStringHash(text)) {}

DWORD FaceId::Hash(const char* text) {
  return GetSimpleStringHash(text);
}

bool FaceId::HasText(const char* text) const {
  return _mbscmp(reinterpret_cast<const unsigned char*>(mpText),
                 reinterpret_cast<const unsigned char*>(text)) == 0;
}

void ThrowFaceNotSupportedError(const char* faceId) {
  throw Error(0xE7230002,
              BaseString<MbcsTraits>::FormatInserts("The interface '%1' is not supported.", faceId));
}

}  // namespace orm
