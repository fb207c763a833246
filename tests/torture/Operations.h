// The names of what a worker does, for reports.
#pragma once

#include <iterator>

namespace torture {

enum class Operation : unsigned {
  None,
  WriteBag,
  ReadBag,
  WriteLine,
  UseClasses,
  ReplaceCommon,
  ReplaceOwn,
  Lock,
  Measure,
  End
};

constexpr const char* OPERATION_NAMES[] = {"nothing",
                                           "writing a bag",
                                           "reading a bag",
                                           "writing a log line",
                                           "using components",
                                           "replacing a common library",
                                           "replacing its own library",
                                           "locking the common mutex",
                                           "counting its descriptors",
                                           "ending"};

constexpr const char* NameOf(unsigned operation) {
  return operation < std::size(OPERATION_NAMES) ? OPERATION_NAMES[operation] : "something unknown";
}

}  // namespace torture
