// Any bytes as a resource script: a directory, or an error; and what it builds is as large as it says.
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "Output.h"
#include "Parser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 20'000) return 0;
  const std::string script(reinterpret_cast<const char*>(data), size);
  orm::rc::PreprocessorOptions options;
  options.readFile = [&](const std::string& path) -> std::optional<std::string> {
    if (path == "a.rc" || path == "a.h") return script;
    if (path == "b.bmp") return "BM" + std::string(40, 'x');
    return std::nullopt;
  };
  try {
    orm::rc::Preprocessor source("a.rc", options);
    orm::rc::Directory directory;
    orm::rc::Parse(source, directory);
    const std::string block = directory.Build();
    if (orm::rc::MakeOutput(orm::rc::OutputForm::Object, block).size() <= block.size()) std::abort();
  } catch (const std::runtime_error&) {
  }
  return 0;
}
