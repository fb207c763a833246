// Letter case of UTF-16 units, from the simple case mappings of the Unicode Character Database
// (UnicodeData.txt, fields 12 and 13), as runs of letters.
#include "WideCase.h"

#include <algorithm>
#include <iterator>

namespace orm {

namespace {

// Upper-case letters from `first` to `last`, `step` apart; each has its lower-case letter `distance` above.
struct Run {
  unsigned short first, last;
  short step;
  short distance;
};

constexpr Run kRuns[] = {
    {0x0041, 0x005A, 1, 32},    // Basic Latin
    {0x00C0, 0x00D6, 1, 32},    // Latin-1
    {0x00D8, 0x00DE, 1, 32},    //
    {0x0100, 0x012E, 2, 1},     // Latin Extended-A; the dotted and the dotless i stand alone
    {0x0132, 0x0136, 2, 1},     //
    {0x0139, 0x0147, 2, 1},     //
    {0x014A, 0x0176, 2, 1},     //
    {0x0178, 0x0178, 1, -121},  //
    {0x0179, 0x017D, 2, 1},     //
    {0x01CD, 0x01DB, 2, 1},     // Latin Extended-B, the regular part
    {0x01DE, 0x01EE, 2, 1},     //
    {0x01F8, 0x021E, 2, 1},     //
    {0x0222, 0x0232, 2, 1},     //
    {0x0386, 0x0386, 1, 38},    // Greek
    {0x0388, 0x038A, 1, 37},    //
    {0x038C, 0x038C, 1, 64},    //
    {0x038E, 0x038F, 1, 63},    //
    {0x0391, 0x03A1, 1, 32},    //
    {0x03A3, 0x03AB, 1, 32},    //
    {0x03D8, 0x03EE, 2, 1},     //
    {0x0400, 0x040F, 1, 80},    // Cyrillic
    {0x0410, 0x042F, 1, 32},    //
    {0x0460, 0x0480, 2, 1},     //
    {0x048A, 0x04BE, 2, 1},     //
    {0x04C1, 0x04CD, 2, 1},     //
    {0x04D0, 0x052E, 2, 1},     //
    {0x0531, 0x0556, 1, 48},    // Armenian
    {0x1E00, 0x1E94, 2, 1},     // Latin Extended Additional
    {0x1EA0, 0x1EFE, 2, 1},     //
    {0x2160, 0x216F, 1, 16},    // Roman numerals
    {0x24B6, 0x24CF, 1, 26},    // circled letters
    {0xFF21, 0xFF3A, 1, 32},    // full-width letters
};

bool Holds(const Run& run, int unit) {
  return unit >= run.first && unit <= run.last && (unit - run.first) % run.step == 0;
}

}  // namespace

unsigned short LowerOf(unsigned short unit) {
  const auto run = std::find_if(std::begin(kRuns), std::end(kRuns),
                                [unit](const Run& candidate) { return Holds(candidate, unit); });
  return run == std::end(kRuns) ? unit : static_cast<unsigned short>(unit + run->distance);
}

unsigned short UpperOf(unsigned short unit) {
  const auto run = std::find_if(std::begin(kRuns), std::end(kRuns), [unit](const Run& candidate) {
    return Holds(candidate, unit - candidate.distance);
  });
  return run == std::end(kRuns) ? unit : static_cast<unsigned short>(unit - run->distance);
}

}  // namespace orm
