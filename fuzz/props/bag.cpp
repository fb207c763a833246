// Any bytes as an exported bag: refused with an error, or taken in as a bag that exports and imports again.
#include <ormutil/Error.h>
#include <ormutil/MemoryProperties.h>

#include <cstdlib>

using namespace orm;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  MemoryProperties bag;
  try {
    bag.Import(Binary(data, static_cast<unsigned>(size)));
  } catch (const Error& error) {
    if (error.GetCode() != 0xE7220005 || error.Format().IsEmpty()) std::abort();
  }
  MemoryProperties copy;
  copy.Import(bag.Export());
  if (!copy.IsSubsetOf(bag, true) || !bag.IsSubsetOf(copy, true)) std::abort();
  if (!(copy.Export() == bag.Export())) std::abort();
  return 0;
}
