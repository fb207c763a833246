// What the sources of Bitmap share.
#pragma once

#include <win32.h>

namespace orm {

// A section of 24 bits per pixel, bottom row first; null when the system cannot make it.
HBITMAP MakeSection(HDC screen, LONG width, LONG height);

// Whether the context's device has a palette.
bool IsPaletteDevice(HDC context);

// The bitmap's description; asserts with the given line when it cannot be had.
BITMAP DescribeBitmap(HBITMAP bitmap, int line);

// A handle as trace lines show it.
inline unsigned HandleNumber(const void* handle) {
  return static_cast<unsigned>(reinterpret_cast<uintptr_t>(handle));
}

}  // namespace orm
