// The text forms of UtcTime: the ASN.1 types UTCTime and GeneralizedTime (ITU-T X.680).
//
// The fields are written and read by hand: both directions run for every line of some clients' files, and
// printf and scanf would take most of the time.
#include <ormutil/Error.h>
#include <ormutil/UtcTime.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Areas.h"

namespace orm {

namespace {

constexpr const char* kSource = "src/shared/Date";
constexpr DWORD kBadText = 0xE743000F;

[[noreturn]] void ThrowBadText() {
  throw Error(kBadText, "Cannot read date from string; input string has invalid format.");
}

// Builds a text of at most 32 bytes.
class TextWriter {
 public:
  // The number in decimal, padded with zeros to `width` digits, longer when it needs more.
  void Number(unsigned value, int width) {
    char digits[10];
    int count = 0;
    do {
      digits[count++] = static_cast<char>('0' + value % 10);
      value /= 10;
    } while (value != 0);
    for (int pad = count; pad < width; ++pad) *mpEnd++ = '0';
    while (count > 0) *mpEnd++ = digits[--count];
  }
  void Pair(unsigned value) {
    *mpEnd++ = static_cast<char>('0' + value / 10);
    *mpEnd++ = static_cast<char>('0' + value % 10);
  }
  void Char(char c) { *mpEnd++ = c; }
  String GetText() const { return String(mText, mpEnd); }

 private:
  char mText[32];
  char* mpEnd = mText;
};

// Minutes that local time is behind UTC now.
LONG GetBias() {
  TIME_ZONE_INFORMATION zone;
  switch (GetTimeZoneInformation(&zone)) {
    case TIME_ZONE_ID_UNKNOWN:
    case TIME_ZONE_ID_STANDARD:
      TraceWrite(areaDate, TRACE_TRACE, false, kSource, __LINE__, "Standard zone");
      return zone.Bias + (zone.StandardDate.wMonth != 0 ? zone.StandardBias : 0);
    case TIME_ZONE_ID_DAYLIGHT:
      TraceWrite(areaDate, TRACE_TRACE, false, kSource, __LINE__, "Daylight zone");
      return zone.Bias + (zone.DaylightDate.wMonth != 0 ? zone.DaylightBias : 0);
    default:
      TraceWrite(areaDate, TRACE_TRACE, false, kSource, __LINE__, "Error");
      throw MakeSystemError(GetLastError(), String(), true);
  }
}

void WriteZone(TextWriter& writer) {
  const LONG bias = GetBias();
  if (bias == 0) return writer.Char('Z');
  const unsigned magnitude = static_cast<unsigned>(std::abs(bias));
  writer.Char(bias > 0 ? '-' : '+');
  writer.Number(magnitude / 60, 2);
  writer.Pair(magnitude % 60);
}

// Month to second.
void WriteRest(TextWriter& writer, const SYSTEMTIME& elements) {
  for (WORD element : {elements.wMonth, elements.wDay, elements.wHour, elements.wMinute, elements.wSecond}) {
    writer.Pair(element);
  }
}

// The reader works on bytes although the text is multibyte: digits, blanks, tabs and the marks of the zone
// are looked for only where a character begins, and no lead byte is among them.
bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}
bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

const char* SkipDigits(const char* pos) {
  while (IsDigit(*pos)) ++pos;
  return pos;
}

// Reads fields of decimal digits, one after the other.
class FieldReader {
 public:
  explicit FieldReader(const char* pos) : mpPos(pos) {}

  WORD Read(int count) {
    int value = 0;
    for (; count > 0; --count, ++mpPos) {
      if (!IsDigit(*mpPos)) ThrowBadText();
      value = value * 10 + (*mpPos - '0');
    }
    return static_cast<WORD>(value);
  }

 private:
  const char* mpPos;
};

struct Range {
  const char* begin;
  const char* end;
  size_t size() const { return static_cast<size_t>(end - begin); }
};

Range TrimBlanks(const char* begin, const char* end) {
  while (begin < end && IsBlank(*begin)) ++begin;
  while (begin < end && IsBlank(end[-1])) --end;
  return {begin, end};
}

// What the zone says is to be subtracted from the time. `withoutMinutes`: hours alone are allowed, too.
// The fields are not limited to their calendar range.
TimeDiff ReadZone(Range suffix, bool withoutMinutes) {
  const bool hasMinutes = suffix.size() == 5;
  const bool hasHours = hasMinutes || (withoutMinutes && suffix.size() == 3);
  if (!hasHours && suffix.size() != 1) ThrowBadText();
  const char mark = *suffix.begin;
  if (mark != '+' && mark != '-' && mark != 'Z') ThrowBadText();
  FieldReader fields(suffix.begin + 1);
  const DWORD hours = hasHours ? fields.Read(2) : 0;
  const DWORD minutes = hasMinutes ? fields.Read(2) : 0;
  return TimeDiff(0, hours, minutes, 0, 0, mark == '-');
}

// The fraction counts milliseconds: three characters at most, taken as a whole number after the leading zeros
// are gone, so that ".5" is 5 milliseconds. What does not begin with a number is 0.
WORD ReadMilliseconds(Range fraction) {
  while (fraction.begin < fraction.end && *fraction.begin == '0') ++fraction.begin;
  if (fraction.size() == 0) return 0;
  int value = 0;
  if (IsDigit(*fraction.begin)) {
    const char* end = fraction.begin + (fraction.size() < 3 ? fraction.size() : 3);
    for (const char* pos = fraction.begin; pos < end && IsDigit(*pos); ++pos)
      value = value * 10 + (*pos - '0');
  } else {
    // Blanks may come first, and then a number in any base that scanf knows; three characters cannot
    // overflow.
    const String text(fraction.begin, fraction.end);
    // NOLINTNEXTLINE(cert-err34-c)
    if (std::sscanf(text.GetBegin(), "%3i", &value) != 1) value = 0;
  }
  return static_cast<WORD>(value);
}

// The end of a fraction that begins at `pos`: the zone's mark or the end of the text.
const char* FindZone(const char* pos) {
  pos = SkipDigits(pos);
  if (*pos == '\0' || *pos == 'Z' || *pos == '+' || *pos == '-') return pos;
  // From here on there may be characters whose second byte looks like a mark.
  const auto* bytes = reinterpret_cast<const unsigned char*>(pos);
  return pos + _mbscspn(bytes, reinterpret_cast<const unsigned char*>("Z+-"));
}

}  // namespace

BaseString<MbcsTraits> UtcTime::ToStringUTC() const {
  SYSTEMTIME elements;
  InternalToLocalSystemTime(elements);
  TextWriter writer;
  writer.Pair(elements.wYear % 100);
  WriteRest(writer, elements);
  WriteZone(writer);
  return writer.GetText();
}

BaseString<MbcsTraits> UtcTime::ToStringGeneralizedTime() const {
  SYSTEMTIME elements;
  InternalToLocalSystemTime(elements);
  TextWriter writer;
  writer.Number(elements.wYear, 4);
  WriteRest(writer, elements);
  if (elements.wMilliseconds != 0) {
    writer.Char('.');
    writer.Number(elements.wMilliseconds, 3);
  }
  WriteZone(writer);
  return writer.GetText();
}

UtcTime UtcTime::FromStringUTC(const BaseString<MbcsTraits>& text) {
  const char* begin = text.GetBegin();
  const char* end = SkipDigits(begin);
  const auto count = end - begin;
  if (count != 10 && count != 12) ThrowBadText();

  FieldReader fields(begin);
  SYSTEMTIME elements{};
  elements.wYear = fields.Read(2);
  elements.wYear = static_cast<WORD>(elements.wYear + (elements.wYear <= 50 ? 2000 : 1900));
  elements.wMonth = fields.Read(2);
  elements.wDay = fields.Read(2);
  elements.wHour = fields.Read(2);
  elements.wMinute = fields.Read(2);
  if (count == 12) elements.wSecond = fields.Read(2);

  UtcTime result;
  result.SystemTimeToInternal(elements);
  return result -= ReadZone(TrimBlanks(end, text.GetEnd()), false);
}

UtcTime UtcTime::FromStringGeneralizedTime(const BaseString<MbcsTraits>& text) {
  const char* begin = text.GetBegin();
  const char* pos = SkipDigits(begin);
  const auto count = pos - begin;
  Range fraction{pos, pos};
  if (*pos == '.' || *pos == ',') {
    while (*pos == '.' || *pos == ',') ++pos;
    fraction = {pos, FindZone(pos)};
  }
  const Range suffix = TrimBlanks(fraction.end, text.GetEnd());
  if (count != 10 && count != 12 && count != 14) ThrowBadText();

  FieldReader fields(begin);
  SYSTEMTIME elements{};
  elements.wYear = fields.Read(4);
  elements.wMonth = fields.Read(2);
  elements.wDay = fields.Read(2);
  elements.wHour = fields.Read(2);
  if (count >= 12) elements.wMinute = fields.Read(2);
  if (count == 14) elements.wSecond = fields.Read(2);
  elements.wMilliseconds = ReadMilliseconds(fraction);

  UtcTime result;
  if (suffix.size() == 0) {
    result.LocalSystemTimeToInternal(elements);
    return result;
  }
  result.SystemTimeToInternal(elements);
  return result -= ReadZone(suffix, true);
}

}  // namespace orm
