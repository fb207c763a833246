// The other process of the tests of named objects.
#pragma once

#include "support/Child.h"

namespace test {

inline Child Helper(const char* order, const char* name) {
  return Child({Sibling("kernel_helper"), order, name});
}

// What it says first.
inline std::string Ask(const char* order, const char* name) {
  return Helper(order, name).ReadLine();
}

}  // namespace test
