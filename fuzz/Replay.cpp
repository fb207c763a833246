// The main program of a fuzzer that nobody feeds: runs it on each file of the folders that are named on the
// command line, in the order of the names. Fails when there is none, so that no corpus is lost unseen.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> FilesOf(const char* folder) {
  std::vector<fs::path> files;
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

void Run(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  const std::vector<char> content{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  // Memory of exactly that size, so that a sanitizer sees a step beyond it.
  const std::unique_ptr<uint8_t[]> bytes(new uint8_t[content.size()]);
  std::copy(content.begin(), content.end(), bytes.get());
  std::printf("%s, %zu bytes\n", path.c_str(), content.size());
  std::fflush(stdout);  // tells which one it was when the program ends here
  LLVMFuzzerTestOneInput(bytes.get(), content.size());
}

}  // namespace

int main(int count, char** arguments) {
  size_t runs = 0;
  for (int i = 1; i < count; ++i) {
    for (const fs::path& path : FilesOf(arguments[i])) {
      Run(path);
      ++runs;
    }
  }
  if (runs != 0) return EXIT_SUCCESS;
  std::fprintf(stderr, "no seeds\n");
  return EXIT_FAILURE;
}
