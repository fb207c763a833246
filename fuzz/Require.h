// What the fuzzers share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>

#include "kernel/CodePage.h"

namespace fuzz {

// Ends the process, which the fuzzer reports with the input, when a promise does not hold.
inline void Require(bool promise) {
  if (!promise) std::abort();
}

// Makes one of the code pages the process's ANSI code page.
inline unsigned ChooseCodePage(uint8_t choice) {
  constexpr unsigned pages[] = {1252, 932, 65001, 936, 1251, 949, 950, 874};
  const unsigned page = pages[choice % std::size(pages)];
  Require(orm::platform::SetAnsiCodePage(page));
  return page;
}

}  // namespace fuzz
