// printf-style formatting of UTF-16 text.
#pragma once

#include <stdarg.h>
#include <stddef.h>

namespace orm {

// Formats into `units` units, terminator included. Conversions, flags, width and precision are those of
// printf; %s and %c (also %ls, %ws) take UTF-16, %hs, %hc, %S and %C text of the ANSI code page; I32 and I64
// are size prefixes as on the platform. Returns the length of the whole text, also when less fits; negative
// for a conversion that is not known and for %n.
int FormatWide(unsigned short* buffer, size_t units, const unsigned short* format, va_list arguments);

}  // namespace orm
