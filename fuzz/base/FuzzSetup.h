// What the fuzzers of the value types share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace fuzz {

// Ends the process, which the fuzzer reports with the input, when a promise does not hold.
inline void Require(bool promise) {
  if (!promise) std::abort();
}

// Makes one of the code pages the process's ANSI code page.
unsigned ChooseCodePage(uint8_t choice);

}  // namespace fuzz
