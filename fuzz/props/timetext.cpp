// Any text as a time: refused with one of the documented codes, or an instant that reads back from its own
// text.
#include <ormutil/Error.h>
#include <ormutil/UtcTime.h>

#include <cstdlib>
#include <string>

using namespace orm;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  for (auto* read : {&UtcTime::FromStringUTC, &UtcTime::FromStringGeneralizedTime}) {
    UtcTime time;
    try {
      time = read(bytes.c_str());
      const String text = time.ToStringGeneralizedTime();
      // A year of five digits is written but cannot be read; that is refused, too.
      if (UtcTime::FromStringGeneralizedTime(text) != time) std::abort();
    } catch (const Error& error) {
      if (error.GetCode() != 0xE743000F && error.GetCode() != 0xE743000E && error.GetCode() != 0xE7430002)
        std::abort();
    }
  }
  return 0;
}
