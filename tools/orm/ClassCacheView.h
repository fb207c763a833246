// The shared block of class lists, taken apart without trusting any of it.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace orm::tool {

struct ClassCacheSlot {
  uint32_t offset = 0;
  uint32_t size = 0;
  uint32_t order = 0;
  // The record, as far as it lies within its bounds.
  uint64_t lastUse = 0;
  uint64_t stamp = 0;
  uint32_t payloadOffset = 0;
  uint32_t payloadSize = 0;
  uint32_t hash = 0;
  std::string name;  // in the ANSI code page
  nlohmann::ordered_json classes = nlohmann::ordered_json::array();
};

struct ClassCacheView {
  uint32_t magic[3] = {};
  uint32_t blockSize = 0, reserved = 0, dataStart = 0, capacity = 0;
  int32_t lastSlot = -1;
  std::vector<ClassCacheSlot> slots;
  uint32_t usedBytes = 0;
  std::vector<std::string> faults;  // empty when the block is sound
};

// `block` may have any size and content.
ClassCacheView ReadClassCache(std::string_view block);

}  // namespace orm::tool
