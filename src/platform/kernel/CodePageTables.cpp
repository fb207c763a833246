// Builds the tables of the code pages out of iconv, save the default page, which every process needs at its
// start and which therefore stands here, and adds what the platform defines beyond the standards:
// the meaning of bytes that a page leaves open, so that every single byte survives a round trip.
#include "kernel/CodePageTables.h"

#include <iconv.h>
#include <locale.h>
#include <wctype.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace orm::platform {
namespace {

using Kind = CodePage::Kind;

struct Definition {
  UINT number;
  Kind kind;
  const char* converter;
  unsigned char leads[4];  // first and last of up to two ranges of lead bytes
  std::uint16_t defaultWide;
};
constexpr Definition definitions[] = {
    {1250, Kind::SingleByte, "CP1250", {}, '?'},
    {1251, Kind::SingleByte, "CP1251", {}, '?'},
    {1252, Kind::SingleByte, nullptr, {}, '?'},
    {1253, Kind::SingleByte, "CP1253", {}, '?'},
    {1254, Kind::SingleByte, "CP1254", {}, '?'},
    {1255, Kind::SingleByte, "CP1255", {}, '?'},
    {1256, Kind::SingleByte, "CP1256", {}, '?'},
    {1257, Kind::SingleByte, "CP1257", {}, '?'},
    {1258, Kind::SingleByte, "CP1258", {}, '?'},
    {874, Kind::SingleByte, "CP874", {}, '?'},
    {932, Kind::DoubleByte, "CP932", {0x81, 0x9F, 0xE0, 0xFC}, 0x30FB},
    {936, Kind::DoubleByte, "CP936", {0x81, 0xFE}, '?'},
    {949, Kind::DoubleByte, "CP949", {0x81, 0xFE}, '?'},
    {950, Kind::DoubleByte, "CP950", {0x81, 0xFE}, '?'},
    {65001, Kind::Utf8, nullptr, {}, 0xFFFD},
};

// Bytes that a page's standard leaves open and the platform maps to private-use characters, in runs of
// increasing bytes and characters. Open bytes in 0x80 to 0x9F are the C1 controls of the same number.
struct OpenBytes {
  UINT page;
  unsigned char first, last;
  std::uint16_t wide;
};
constexpr OpenBytes openBytes[] = {
    {1255, 0xCA, 0xCA, 0x05BA}, {874, 0xDB, 0xDE, 0xF8C1},  {874, 0xFC, 0xFF, 0xF8C5},
    {932, 0xA0, 0xA0, 0x00A0},  {932, 0xFD, 0xFF, 0xF8F1},  {936, 0x80, 0x80, 0x20AC},
    {936, 0xFF, 0xFF, 0xF8F5},  {949, 0xFF, 0xFF, 0xF8F7},  {950, 0xFF, 0xFF, 0xF8F8},
    {1253, 0xAA, 0xAA, 0xF8F9}, {1253, 0xD2, 0xD2, 0xF8FA}, {1253, 0xFF, 0xFF, 0xF8FB},
    {1255, 0xD9, 0xDF, 0xF88D}, {1255, 0xFB, 0xFC, 0xF894}, {1255, 0xFF, 0xFF, 0xF896},
    {1257, 0xA1, 0xA1, 0xF8FC}, {1257, 0xA5, 0xA5, 0xF8FD},
};

// Runs of pairs that users may define characters for; they are numbered row by row from a private-use
// character.
struct UserPairs {
  UINT page;
  unsigned char firstLead, lastLead, firstTrail, lastTrail;
  std::uint16_t wide;
};
constexpr UserPairs userPairs[] = {
    {932, 0xF0, 0xF9, 0x40, 0xFC, 0xE000}, {936, 0xAA, 0xAF, 0xA1, 0xFE, 0xE000},
    {936, 0xF8, 0xFE, 0xA1, 0xFE, 0xE234}, {936, 0xA1, 0xA7, 0x40, 0xA0, 0xE4C6},
    {949, 0xC9, 0xC9, 0xA1, 0xFE, 0xE000}, {949, 0xFE, 0xFE, 0xA1, 0xFE, 0xE05E},
    {950, 0xFA, 0xFE, 0x40, 0xFE, 0xE000}, {950, 0x8E, 0xA0, 0x40, 0xFE, 0xE311},
    {950, 0x81, 0x8D, 0x40, 0xFE, 0xEEB8}, {950, 0xC6, 0xC6, 0xA1, 0xFE, 0xF6B1},
    {950, 0xC7, 0xC8, 0x40, 0xFE, 0xF70F},
};

// The characters of 1252 at 0x80 to 0x9F; all others are those of Latin-1.
constexpr unsigned westernFirst = 0x80;
constexpr std::uint16_t western[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};
// Its letters outside ASCII, by upper case: runs whose lower case is so much higher.
constexpr struct {
  unsigned char first, last, distance;
} westernLetters[] = {{0xC0, 0xD6, 0x20}, {0xD8, 0xDE, 0x20}, {0x8A, 0x8A, 0x10},
                      {0x8C, 0x8C, 0x10}, {0x8E, 0x8E, 0x10}, {0x9F, 0x9F, 0x60}};

class Converter {
 public:
  Converter(const char* to, const char* from) : mHandle(iconv_open(to, from)) {}
  ~Converter() {
    if (IsOpen()) iconv_close(mHandle);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  [[nodiscard]] bool IsOpen() const { return mHandle != reinterpret_cast<iconv_t>(-1); }

  // Converts one character; returns the number of bytes it became, 0 when it means nothing on the other side.
  // The converter is flushed: some pages hold a letter back in case an accent follows.
  std::size_t Convert(const unsigned char* text, std::size_t size, unsigned char* result, std::size_t room) {
    char* in = reinterpret_cast<char*>(const_cast<unsigned char*>(text));
    char* out = reinterpret_cast<char*>(result);
    const std::size_t whole = room;
    iconv(mHandle, nullptr, nullptr, nullptr, nullptr);
    if (iconv(mHandle, &in, &size, &out, &room) == static_cast<std::size_t>(-1)) return 0;
    if (iconv(mHandle, nullptr, nullptr, &out, &room) == static_cast<std::size_t>(-1)) return 0;
    return whole - room;
  }

  // One character of the page as a UTF-16 unit, or noCharacter.
  std::uint16_t ToUnit(const unsigned char* text, std::size_t size) {
    unsigned char units[8];
    if (Convert(text, size, units, sizeof units) != 2) return CodePage::noCharacter;
    return static_cast<std::uint16_t>(units[0] | units[1] << 8);
  }

 private:
  iconv_t mHandle;
};

CodePage::PairTable MakeTable(std::uint16_t value) {
  auto table = std::make_unique<std::uint16_t[]>(65536);
  std::fill_n(table.get(), 65536, value);
  return table;
}

void FillSingleBytes(CodePage& page, Converter& converter) {
  for (unsigned byte = 0; byte < 256; ++byte) {
    const auto text = static_cast<unsigned char>(byte);
    std::uint16_t unit = CodePage::noCharacter;
    // Text that is plain ASCII is that in every page; some converters see a yen or won sign at 0x5C.
    if (byte < 0x80) {
      unit = text;
    } else if (!page.isLead[byte]) {
      unit = converter.ToUnit(&text, 1);
      if (unit == CodePage::noCharacter && byte < 0xA0) unit = text;
    }
    page.toWide[byte] = unit;
  }
  for (const OpenBytes& run : openBytes)
    for (unsigned byte = run.first; run.page == page.number && byte <= run.last; ++byte)
      page.toWide[byte] = static_cast<std::uint16_t>(run.wide + (byte - run.first));
}

// Big5 leaves a gap in the middle of each row, the other pages only one byte.
bool IsTrail(UINT page, unsigned byte) {
  return byte < 0x7F || byte > (page == 950 ? 0xA0u : 0x7Fu);
}

void FillUserPairs(CodePage& page) {
  for (const UserPairs& run : userPairs) {
    if (run.page != page.number) continue;
    std::uint16_t unit = run.wide;
    for (unsigned lead = run.firstLead; lead <= run.lastLead; ++lead)
      for (unsigned trail = run.firstTrail; trail <= run.lastTrail; ++trail)
        if (IsTrail(page.number, trail)) page.pairToWide[lead << 8 | trail] = unit++;
  }
}

void FillPairs(CodePage& page, Converter& converter) {
  page.pairToWide = MakeTable(CodePage::noCharacter);
  FillUserPairs(page);
  for (unsigned code = 0x8140; code < 0xFF00; ++code) {
    const unsigned char text[] = {static_cast<unsigned char>(code >> 8), static_cast<unsigned char>(code)};
    if (!page.isLead[text[0]] || text[1] < 0x40) continue;
    const std::uint16_t unit = converter.ToUnit(text, 2);
    if (unit != CodePage::noCharacter) page.pairToWide[code] = unit;
  }
}

// The way back. Where several codes mean one character the converter decides between pairs, as it knows the
// preferred one; a single byte always wins.
void FillFromWide(CodePage& page, const char* converterName) {
  if (page.kind == Kind::DoubleByte) {
    Converter converter(converterName, "UTF-16LE");
    for (unsigned code = 0x8140; code < 0xFF00; ++code) {
      const std::uint16_t unit = page.pairToWide[code];
      if (unit == CodePage::noCharacter) continue;
      if (page.fromWide[unit] == CodePage::noCharacter) {
        page.fromWide.Set(unit, static_cast<std::uint16_t>(code));
      } else if (converter.IsOpen()) {
        const unsigned char text[] = {static_cast<unsigned char>(unit),
                                      static_cast<unsigned char>(unit >> 8)};
        unsigned char bytes[8];
        if (converter.Convert(text, 2, bytes, sizeof bytes) == 2)
          page.fromWide.Set(unit, static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]));
      }
    }
  }
  for (unsigned byte = 256; byte-- > 0;)
    if (page.toWide[byte] != CodePage::noCharacter)
      page.fromWide.Set(page.toWide[byte], static_cast<std::uint16_t>(byte));
}

// The code of the same length that is this code's partner in letter case, or the code itself.
std::uint16_t Partner(const CodePage& page, std::uint16_t code, std::uint16_t unit,
                      std::uint32_t (*map)(std::uint32_t)) {
  if (unit == CodePage::noCharacter) return code;
  const std::uint32_t mapped = map(unit);
  if (mapped == unit || mapped > 0xFFFF) return code;
  const std::uint16_t partner = page.fromWide[mapped];
  return partner != CodePage::noCharacter && (partner > 0xFF) == (code > 0xFF) ? partner : code;
}

void FillCase(CodePage& page) {
  for (unsigned byte = 0; byte < 256; ++byte) {
    const auto code = static_cast<std::uint16_t>(byte);
    page.lower[byte] = static_cast<unsigned char>(Partner(page, code, page.toWide[byte], LowerCase));
    page.upper[byte] = static_cast<unsigned char>(Partner(page, code, page.toWide[byte], UpperCase));
  }
  if (page.kind != Kind::DoubleByte) return;
  page.pairLower = MakeTable(0);
  page.pairUpper = MakeTable(0);
  for (unsigned pair = 0; pair < 65536; ++pair) {
    const auto code = static_cast<std::uint16_t>(pair);
    page.pairLower[pair] = Partner(page, code, page.pairToWide[pair], LowerCase);
    page.pairUpper[pair] = Partner(page, code, page.pairToWide[pair], UpperCase);
  }
}

void FillAsciiCase(CodePage& page) {
  for (unsigned byte = 0; byte < 256; ++byte) {
    const auto letter = static_cast<unsigned char>(byte);
    page.lower[byte] = letter >= 'A' && letter <= 'Z' ? static_cast<unsigned char>(letter + 32) : letter;
    page.upper[byte] = letter >= 'a' && letter <= 'z' ? static_cast<unsigned char>(letter - 32) : letter;
  }
}

void FillWestern(CodePage& page) {
  for (unsigned byte = 0; byte < 256; ++byte) page.toWide[byte] = static_cast<std::uint16_t>(byte);
  std::copy(std::begin(western), std::end(western), page.toWide.begin() + westernFirst);
  FillFromWide(page, nullptr);
  FillAsciiCase(page);
  for (const auto& run : westernLetters) {
    for (unsigned letter = run.first; letter <= run.last; ++letter) {
      page.lower[letter] = static_cast<unsigned char>(letter + run.distance);
      page.upper[letter + run.distance] = static_cast<unsigned char>(letter);
    }
  }
}

std::uint32_t MapCase(std::uint32_t character, wint_t (*map)(wint_t, locale_t)) {
  const std::uint32_t mapped = map(character, UnicodeLocale());
  return (mapped < 0x80) == (character < 0x80) ? mapped : character;
}

}  // namespace

// Without Unicode's one, the C library's plain locale knows the ASCII letters alone.
locale_t UnicodeLocale() {
  static constinit std::atomic<locale_t> kept{nullptr};
  locale_t known = kept.load(std::memory_order_acquire);
  if (known != nullptr) return known;
  locale_t made = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  if (made == nullptr) made = newlocale(LC_CTYPE_MASK, "C", nullptr);
  if (kept.compare_exchange_strong(known, made, std::memory_order_acq_rel)) return made;
  freelocale(made);
  return known;
}

void WideTable::Set(std::size_t unit, std::uint16_t value) {
  auto& row = mRows[unit >> 8];
  if (!row) {
    row = std::make_unique<std::uint16_t[]>(256);
    std::fill_n(row.get(), 256, noValue);
  }
  row[unit & 0xFF] = value;
}

std::uint32_t LowerCase(std::uint32_t character) {
  return MapCase(character, towlower_l);
}
std::uint32_t UpperCase(std::uint32_t character) {
  return MapCase(character, towupper_l);
}

std::unique_ptr<const CodePage> BuildCodePage(UINT number) {
  const auto definition = std::find_if(std::begin(definitions), std::end(definitions),
                                       [=](const Definition& one) { return one.number == number; });
  if (definition == std::end(definitions)) return nullptr;
  auto page = std::make_unique<CodePage>();
  page->number = number;
  page->kind = definition->kind;
  page->defaultWide = definition->defaultWide;
  if (page->kind == Kind::Utf8) {
    for (unsigned byte = 0; byte < 256; ++byte)
      page->toWide[byte] = byte < 0x80 ? static_cast<std::uint16_t>(byte) : CodePage::noCharacter;
    FillAsciiCase(*page);
    return page;
  }
  if (definition->converter == nullptr) {
    FillWestern(*page);
    return page;
  }
  for (std::size_t range = 0; range < 4; range += 2)
    for (unsigned byte = definition->leads[range]; byte != 0 && byte <= definition->leads[range + 1]; ++byte)
      page->isLead[byte] = true;
  Converter converter("UTF-16LE", definition->converter);
  if (!converter.IsOpen()) return nullptr;
  FillSingleBytes(*page, converter);
  if (page->kind == Kind::DoubleByte) FillPairs(*page, converter);
  FillFromWide(*page, definition->converter);
  FillCase(*page);
  return page;
}

}  // namespace orm::platform
