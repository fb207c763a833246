// digest.dll: SHA-256 digests of files with OpenSSL.
#include <openssl/evp.h>
#include <ormutil/Component.h>

#include "ComponentFile.h"
#include "FileDigest.h"

namespace {

using orm::String;

class Sha256 final : public orm::ComponentObject<FileDigest> {
 public:
  static constexpr const char* CLASS_ID = "CID_FileDigest";

  String GetAlgorithm() override { return "SHA-256"; }
  String Digest(const String& path) override {
    const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    bool good = context && EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1;
    ReadFile(path, [&](const unsigned char* bytes, size_t count) {
      good = good && EVP_DigestUpdate(context.get(), bytes, count) == 1;
    });
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    if (!good || EVP_DigestFinal_ex(context.get(), digest, &size) != 1) {
      throw orm::Error(orm::ERROR_GENERAL, "The cryptographic library does not offer SHA-256.");
    }
    String text;
    for (unsigned i = 0; i < size; ++i) {
      String byte;
      byte.Format("%02x", digest[i]);
      text += byte;
    }
    return text;
  }
};

using Classes = orm::ComponentClasses<Sha256>;

}  // namespace

void LibEnumClasses(std::vector<orm::ClassDescription>& classes) {
  Classes::Enum(classes);
}
void LibCreateInstance(const String& classId, orm::FacePtr<orm::BaseFace>& object) {
  Classes::Create(classId, object);
}
bool LibCanUnload(bool) {
  return orm::CanUnloadComponent();
}
