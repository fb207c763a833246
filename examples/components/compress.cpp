// compress.dll: files compressed and restored with zlib (gzip format), and zlib's checksum as a digest.
#include <ormutil/Component.h>
#include <zlib.h>

#include "ComponentFile.h"
#include "FileCompressor.h"
#include "FileDigest.h"

namespace {

using orm::Error;
using orm::String;

class GzipFile {
 public:
  GzipFile(const String& path, const char* mode) : mPath(path), mFile(gzopen(path.GetBegin(), mode)) {
    if (!mFile) throw Error(orm::ERROR_GENERAL, String::FormatInserts("Cannot open file '%1'.", mPath));
  }
  ~GzipFile() {
    if (mFile) gzclose(mFile);
  }
  GzipFile(const GzipFile&) = delete;
  GzipFile& operator=(const GzipFile&) = delete;

  void Write(const unsigned char* bytes, size_t count) {
    if (gzwrite(mFile, bytes, static_cast<unsigned>(count)) != static_cast<int>(count)) Throw();
  }
  size_t Read(unsigned char* buffer, size_t size) {
    const int count = gzread(mFile, buffer, static_cast<unsigned>(size));
    if (count < 0) Throw();
    return static_cast<size_t>(count);
  }
  // Reports what only the last write to the disk, or the checksum at the end, can tell.
  void Close() {
    if (const int result = gzclose(std::exchange(mFile, nullptr)); result != Z_OK) {
      throw Error(orm::ERROR_GENERAL,
                  String::FormatInserts("The compressed file '%1' is incomplete or damaged.", mPath));
    }
  }

 private:
  [[noreturn]] void Throw() {
    int code = 0;
    const char* reason = gzerror(mFile, &code);
    throw Error(orm::ERROR_GENERAL, String::FormatInserts("File '%1': %2.", mPath, reason));
  }

  String mPath;
  gzFile mFile;
};

class Gzip final : public orm::ComponentObject<FileCompressor> {
 public:
  static constexpr const char* CLASS_ID = "CID_FileCompressor";

  void Compress(const String& source, const String& target) override {
    GzipFile file(target, "wb9");
    ReadFile(source, [&file](const unsigned char* bytes, size_t count) { file.Write(bytes, count); });
    file.Close();
  }

  void Restore(const String& source, const String& target) override {
    GzipFile input(source, "rb");
    const File output = OpenFile(target, "wb");
    unsigned char buffer[16384];
    while (const size_t count = input.Read(buffer, sizeof buffer)) {
      if (std::fwrite(buffer, 1, count, output.get()) != count) {
        throw Error(orm::ERROR_GENERAL, String::FormatInserts("Cannot write file '%1'.", target));
      }
    }
    input.Close();
  }
};

class Crc32 final : public orm::ComponentObject<FileDigest> {
 public:
  static constexpr const char* CLASS_ID = "CID_FileDigest";

  String GetAlgorithm() override { return "CRC-32"; }
  String Digest(const String& path) override {
    uLong sum = crc32(0, nullptr, 0);
    ReadFile(path, [&sum](const unsigned char* bytes, size_t count) {
      sum = crc32(sum, bytes, static_cast<uInt>(count));
    });
    String text;
    text.Format("%08lx", sum);
    return text;
  }
};

using Classes = orm::ComponentClasses<Gzip, Crc32>;

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
