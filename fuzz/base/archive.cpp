// Archive streams with each reader. The first bytes are the script: what to read next, the rest is the
// stream.
#include <ormutil/Archive.h>
#include <ormutil/Error.h>

#include "Require.h"

using namespace orm;

namespace {

void ReadOne(ReadArchive& reader, unsigned kind, size_t size) {
  uint8_t byte = 1;
  uint16_t word = 1;
  uint32_t number = 1;
  uint64_t large = 1;
  bool flag = true;
  String text;
  Binary data;
  Error error;
  switch (kind) {
    case 0:
      reader >> byte >> flag;
      break;
    case 1:
      reader >> word;
      break;
    case 2:
      reader >> number;
      break;
    case 3:
      reader >> large;
      break;
    case 4:
      reader >> text;
      fuzz::Require(text.GetSize() <= 3 * size);
      break;
    case 5:
      reader >> data;
      fuzz::Require(data.GetSize() <= size);
      break;
    default:
      reader >> error;
      error.Format();
      // What has been read can be written, and reads back as the same bytes.
      const Binary exported = error.Export();
      fuzz::Require(Error::Import(exported).Export() == exported);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr size_t kScript = 4;
  if (size < kScript) return 0;
  const Binary stream(data + kScript, static_cast<unsigned>(size - kScript));
  ReadArchive reader(stream);
  try {
    for (unsigned step = 0; step < 2 * kScript; ++step) {
      ReadOne(reader, data[step / 2] >> (step % 2 * 4) & 7, size);
    }
    reader.IsEof();
  } catch (const Error& error) {
    fuzz::Require(!error.IsEmpty() && !error.Format().IsEmpty());
  }
  return 0;
}
