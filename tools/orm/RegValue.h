// Values and differences as people and machines read them; keys and values from the command line.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "RegStore.h"

namespace orm::tool {

// A key. Throws Failure.
RegPath PathFromArgument(const std::string& text);
// The data of a new value from the arguments that state it. Throws Failure.
RegData ParseRegData(DWORD type, const std::vector<std::string>& arguments);

// On one line.
std::string ShowRegData(const RegData& data);
// {"name":..., "type":..., and one of "text", "texts", "number", "hex"}
nlohmann::ordered_json RegDataToJson(const std::string& name, const RegData& data);

// "+ key", "- key", "~ key "name" before -> after".
std::string ShowRegDifference(const RegDifference& difference);
nlohmann::ordered_json RegDifferenceToJson(const RegDifference& difference);

}  // namespace orm::tool
