// One picture that shows every drawing feature.
#pragma once

#include <string>

namespace orm::draw {

// Writes the sheet; throws std::runtime_error with the reason.
void DrawSheet(const std::string& output);

}  // namespace orm::draw
