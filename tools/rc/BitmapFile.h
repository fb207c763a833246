// Bitmap files in the form of resource data.
#pragma once

#include <string>
#include <string_view>

namespace orm::rc {

// What a bitmap file holds after its file header, as the loaders of resources expect it: the information
// header, the whole colour table, and the pixels right after it. Files may have shorter tables, room before
// the pixels, or masks that a 40-byte header leaves out; a file that has none of these comes back as it is.
// Throws std::invalid_argument with the reason when the bytes are no bitmap file, are cut short, or describe
// a picture that loading the resource would trip over.
std::string ResourceFromBitmapFile(std::string_view file);

}  // namespace orm::rc
