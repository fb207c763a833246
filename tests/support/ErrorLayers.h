// What an operation throws, in a form that a table of expectations can be written in.
#pragma once

#include <gtest/gtest.h>
#include <ormutil/Error.h>

#include <ostream>
#include <string>
#include <vector>

namespace test {

struct Layer {
  DWORD code;
  std::string message;
  friend bool operator==(const Layer&, const Layer&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Layer& layer) {
    return out << std::hex << layer.code << std::dec << " \"" << layer.message << '"';
  }
};

// Outermost first.
using Layers = std::vector<Layer>;

inline Layers LayersOf(const orm::Error& error) {
  Layers layers;
  for (unsigned i = 0; i < error.GetLayerCount(); ++i) {
    layers.push_back({error.GetCode(i), error.GetMessage(i).GetBegin()});
  }
  return layers;
}

// Empty when nothing is thrown.
template <class Operation>
orm::Error ErrorOf(Operation operation) {
  try {
    operation();
  } catch (const orm::Error& error) {
    return error;
  }
  return orm::Error();
}

template <class Operation>
Layers LayersOf(Operation operation) {
  return LayersOf(ErrorOf(operation));
}

}  // namespace test
