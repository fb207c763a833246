// The statements of a resource script.
#pragma once

#include <string>

#include "Directory.h"
#include "Preprocessor.h"

namespace orm::rc {

// Reads every statement of the script into `directory`. Throws SourceError at the first that is wrong.
void Parse(Preprocessor& source, Directory& directory);

}  // namespace orm::rc
