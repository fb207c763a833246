// Any bytes as a settings file: refused with a place, or a document that is the same after it was written and
// read.
#include <cstdint>
#include <cstdlib>

#include "Failure.h"
#include "RegDocument.h"

using namespace orm::tool;

namespace {

bool IsSame(const RegDocument& a, const RegDocument& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i].key.GetName() != b[i].key.GetName() || a[i].isDeleted != b[i].isDeleted) return false;
    if (a[i].entries.size() != b[i].entries.size()) return false;
    for (std::size_t j = 0; j < a[i].entries.size(); ++j) {
      if (a[i].entries[j].name != b[i].entries[j].name || a[i].entries[j].data != b[i].entries[j].data)
        return false;
    }
  }
  return true;
}

void WriteAndRead(const RegDocument& document, RegForm form) {
  std::string bytes;
  try {
    bytes = WriteRegFile(document, form);
  } catch (const Failure&) {
    if (form == RegForm::Version4) std::abort();  // it can say whatever was read
    return;
  }
  if (!IsSame(ReadRegFile(bytes), document)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    const RegDocument document = ReadRegFile({reinterpret_cast<const char*>(data), size});
    WriteAndRead(document, RegForm::Version4);
    WriteAndRead(document, RegForm::Version5);
  } catch (const RegSyntaxError& error) {
    if (error.at.line == 0 || error.at.column == 0) std::abort();
  }
  return 0;
}
