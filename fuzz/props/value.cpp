// Any bytes as an archive of values: each is refused or written again as it was read.
#include <ormutil/Error.h>
#include <ormutil/Value.h>

using namespace orm;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const Binary input(data, static_cast<unsigned>(size));
  ReadArchive reader(input);
  Binary output;
  WriteArchive writer(output);
  try {
    Value value;
    while (!reader.IsEof()) {
      reader >> value;
      writer << value;
    }
  } catch (const Error&) {
  }
  if (output.GetSize() == 0) return 0;
  ReadArchive again(output);
  Value value;
  while (!again.IsEof()) again >> value;
  return 0;
}
