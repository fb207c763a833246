// Runs of characters: decoding, measuring, drawing.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "gdi/Context.h"

namespace orm::platform::gdi {

// The characters of a text in the ANSI code page. Bytes without meaning become what the page says.
std::u32string DecodeText(const char* text, std::size_t bytes);

int MeasureRun(Font& font, std::u32string_view text);

// Draws a run in the context's font and text colour, its cell's upper left corner at a surface position, and
// its background first when the background mode is opaque. Nothing outside `clip` changes. `advances`, when
// given, holds the distance to the next character for each character.
void DrawRun(Context& context, POINT corner, std::u32string_view text, const RECT& clip,
             const std::vector<int>* advances = nullptr);

// Fills a part of the context's surface with a colour, within `clip`.
void FillColor(Context& context, const RECT& rect, const RECT& clip, COLORREF color);

}  // namespace orm::platform::gdi
