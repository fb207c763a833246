// Examines one component library: the contract, what it offers, whether it leaves the process and, if not,
// what holds it.
//
// The library runs in a process of its own: its faults, and what stays of it, do not touch the examiner.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace orm::tool {

struct ProbeResult {
  nlohmann::ordered_json json;
  bool meetsContract = false;
  bool unloads = false;
  std::vector<std::string> reasons;  // why not, for either
};

// `path` is a file of the disk, in UTF-8. With `createObjects` an object of each class is made and released.
ProbeResult ProbeLibrary(const std::string& path, bool createObjects);

// The inner process: loads the library and writes what it finds, one JSON object a line, to the descriptor.
int ProbeInside(const std::string& path, bool createObjects, int descriptor);

}  // namespace orm::tool
