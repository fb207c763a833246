// Any bytes as the shared block of class lists, of its size and of any other.
#include <cstdint>

#include "ClassCacheView.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string block(reinterpret_cast<const char*>(data), size);
  (void)orm::tool::ReadClassCache(block);
  block.resize(0x10000);
  (void)orm::tool::ReadClassCache(block);
  return 0;
}
