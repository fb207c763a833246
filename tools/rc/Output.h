// The forms in which a resource block enters a build.
#pragma once

#include <string>
#include <string_view>

namespace orm::rc {

enum class OutputForm { Object, Cplusplus, Assembler };

// By the ending of the file's name: .o, .cpp (.cc, .cxx) or .s; throws std::runtime_error for any other.
OutputForm OutputFormOf(const std::string& path);

// The whole content of the output file for a block: a relocatable object for x86-64, or source text, that
// defines and exports the symbol which the platform looks for.
std::string MakeOutput(OutputForm form, std::string_view block);

}  // namespace orm::rc
