// A library that is given up by its own static initialiser.
#include <stdexcept>

namespace {

[[gnu::constructor]] void Initialise() {
  throw std::runtime_error("no use");
}

}  // namespace
