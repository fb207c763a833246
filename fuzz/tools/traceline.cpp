// Any format and any line: the first line of the input is the format.
#include <cstdint>

#include "TraceLine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::size_t end = std::min(bytes.find('\n'), size);
  (void)orm::tool::TraceFormat(bytes.substr(0, end)).Parse(bytes.substr(std::min(end + 1, size)));
  return 0;
}
