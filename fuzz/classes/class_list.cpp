// Any bytes as a class list: refused with an error of the archive, or one that is the same after it was
// written and read.
#include <ormutil/Error.h>

#include "ClassRecord.h"
#include "Require.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<orm::ClassRecord> records;
  try {
    records = orm::ReadClassList(orm::Binary(data, static_cast<unsigned>(size)));
  } catch (const orm::Error& error) {
    fuzz::Require(!error.IsEmpty());
    return 0;
  }
  const orm::Binary written = orm::WriteClassList(records);
  fuzz::Require(orm::WriteClassList(orm::ReadClassList(written)) == written);
  for (const orm::ClassRecord& record : records) {
    for (const orm::FaceRecord& face : record.faces)
      fuzz::Require(orm::FindFace(record.faces, face.id.text) == &face);
  }
  return 0;
}
