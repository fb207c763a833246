#include "Digester.h"

#include <openssl/evp.h>

#include <memory>

namespace workers {

using namespace orm;

namespace {

class File {
 public:
  explicit File(const Path& path)
      : mHandle(CreateFileA(path.GetText().GetBegin(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                            FILE_FLAG_SEQUENTIAL_SCAN, nullptr)) {
    if (mHandle == INVALID_HANDLE_VALUE) throw MakeSystemError(GetLastError(), "", false);
  }
  ~File() { CloseHandle(mHandle); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // Returns the bytes read, 0 at the end.
  DWORD Read(unsigned char* buffer, DWORD size) {
    DWORD read = 0;
    if (!ReadFile(mHandle, buffer, size, &read, nullptr)) throw MakeSystemError(GetLastError(), "", false);
    return read;
  }

 private:
  HANDLE mHandle;
};

String Hex(const unsigned char* bytes, unsigned size) {
  String result;
  char digits[3];
  for (unsigned i = 0; i < size; ++i) {
    snprintf(digits, sizeof digits, "%02x", bytes[i]);
    result += digits;
  }
  return result;
}

}  // namespace

String Digester::DigestFile(const String& name) {
  Path path;
  if (!path.Set(mrJob.folder, name)) throw MakeSystemError(ERROR_BAD_PATHNAME, "", false);
  File file(path);
  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr);
  unsigned char buffer[64 * 1024];
  while (const DWORD size = file.Read(buffer, sizeof buffer)) {
    Thread::CheckInterrupted();
    EVP_DigestUpdate(context.get(), buffer, size);
    mrJob.bytes += size;
  }
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  EVP_DigestFinal_ex(context.get(), digest, &size);
  return Hex(digest, size);
}

// An error ends this worker alone; it is kept for the report, with a layer that tells what was being done.
void Digester::Run() {
  String name;
  try {
    for (size_t i; (i = mrJob.next++) < mrJob.files.size(); ++mrJob.finished) {
      name = mrJob.files[i];
      Thread::CheckInterrupted();
      mDigests.push_back({name, DigestFile(name)});
    }
  } catch (const Error& error) {
    mError = error;
    mError.AddLayer(ERROR_LAYER_BELOW, String::FormatInserts("Cannot digest file '%1'.", name), false);
  }
}

}  // namespace workers
