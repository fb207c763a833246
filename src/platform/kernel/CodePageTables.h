// How the tables of a code page come about: from the C library's converters at first use.
#pragma once

#include <locale.h>

#include <memory>

#include "kernel/CodePage.h"

namespace orm::platform {

// Builds the tables of `number`; null when it is no supported page or the C library lacks its converter.
std::unique_ptr<const CodePage> BuildCodePage(UINT number);

// Unicode's case tables as the C library has them, made on first use and kept.
locale_t UnicodeLocale();

// Unicode's simple lower and upper case, whatever the process's locale. A mapping between an ASCII letter and
// one outside is left out: the Kelvin sign is no k, nor is a dotless i an I.
std::uint32_t LowerCase(std::uint32_t character);
std::uint32_t UpperCase(std::uint32_t character);

}  // namespace orm::platform
