// Any bytes as a shared object.
#include <cstdint>

#include "ElfFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  (void)orm::tool::DescribeElf({reinterpret_cast<const char*>(data), size});
  return 0;
}
