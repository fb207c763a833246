#include "FuzzSetup.h"

#include <ormutil/Trace.h>

#include <iterator>

#include "kernel/CodePage.h"

namespace fuzz {

unsigned ChooseCodePage(uint8_t choice) {
  constexpr UINT pages[] = {1252, 932, 65001, 936, 1251, 949, 950, 874};
  const UINT page = pages[choice % std::size(pages)];
  Require(orm::platform::SetAnsiCodePage(page));
  return page;
}

}  // namespace fuzz

// Broken forms are assertions before they are errors; here they are what every input is made of.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  orm::TraceSetSink([](void*, const char*) {}, nullptr, 'i');
  return 0;
}
