// Objects by class id, at work on files.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "Commands.h"
#include "FileCompressor.h"
#include "FileDigest.h"
#include "Table.h"

namespace {

namespace fs = std::filesystem;
using orm::FacePtr;
using orm::String;

// A folder of its own that goes with this object.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string name = (fs::temp_directory_path() / "orm-client.XXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error("cannot make a temporary folder");
    mPath = name;
  }
  ~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(mPath, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  std::string operator/(const char* name) const { return (mPath / name).string(); }

 private:
  fs::path mPath;
};

std::string ReadAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

int UseClasses(const std::string& folder, const std::vector<std::string>& files, std::string database) {
  const RegisteredFolder registered(folder);
  const ScratchFolder scratch;
  if (database.empty()) database = scratch / "results.db";
  std::printf("component libraries in memory before the first creation: %s\n",
              DescribeLoadedLibraries().c_str());

  const FacePtr<FileCompressor> compressor("CID_FileCompressor", "");
  const FacePtr<FileDigest> digest("CID_FileDigest", "");
  const FacePtr<TableReader> reader("CID_Table", "");
  // The same object by another of its faces.
  const FacePtr<TableWriter> writer = reader;
  std::printf("component libraries in memory afterwards: %s\n", DescribeLoadedLibraries().c_str());

  bool same = true;
  std::vector<TableRow> results = {{"file", "bytes", "compressed", "restored", "digest"}};
  for (const std::string& file : files) {
    const std::string packed = scratch / "packed.gz";
    const std::string restored = scratch / "restored";
    compressor->Compress(file.c_str(), packed.c_str());
    compressor->Restore(packed.c_str(), restored.c_str());
    const bool isSame = ReadAll(file) == ReadAll(restored);
    same = same && isSame;
    results.push_back({fs::path(file).filename().c_str(), std::to_string(fs::file_size(file)).c_str(),
                       std::to_string(fs::file_size(packed)).c_str(), isSame ? "the same" : "DIFFERENT",
                       digest->GetAlgorithm() + " " + digest->Digest(file.c_str())});
  }
  writer->Append(database.c_str(), "results", results);
  for (const TableRow& row : reader->Read(database.c_str(), "results")) {
    std::printf("%-24s %8s %10s  %-9s  %s\n", row[0].GetBegin(), row[1].GetBegin(), row[2].GetBegin(),
                row[3].GetBegin(), row[4].GetBegin());
  }
  return same ? 0 : 1;
}
