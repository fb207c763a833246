// Letter case of UTF-16 units.
#pragma once

namespace orm {

// The unit in the other case by Unicode's simple mappings, itself when it has none: Latin, Greek, Cyrillic,
// Armenian, Roman numerals, circled and full-width letters. Letters outside the basic plane keep their case.
unsigned short LowerOf(unsigned short unit);
unsigned short UpperOf(unsigned short unit);

}  // namespace orm
