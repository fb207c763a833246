// Any bytes as an archive: a fault within the bytes, or JSON. What makes an archive again makes one that
// reads the same.
#include <cstdint>
#include <cstdlib>

#include "ArchiveText.h"
#include "Failure.h"

using namespace orm::tool;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  for (const ArchiveKind kind : AllArchiveKinds()) {
    const ArchiveReading reading = ReadArchiveAs(bytes, kind);
    if (!reading.isSound) {
      if (reading.faultAt > size || reading.fault.empty()) std::abort();
      continue;
    }
    try {
      const std::string made = ArchiveFromJson(reading.json);
      if (!ReadArchiveAs(made, kind).isSound) std::abort();
    } catch (const Failure&) {  // class lists, and texts that the code page lacks
    }
  }
  return 0;
}
