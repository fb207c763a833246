// Points in time, spans, and their text forms.
#include <ormutil/Error.h>
#include <ormutil/UtcTime.h>

#include <cassert>

using namespace orm;

int main() {
  const UtcTime start = UtcTime::GetUtc(2004, 3, 15, 12, 30, 0, 0);
  const UtcTime end = start + TimeDiff(0, 25, 0, 0, 0, false);  // 25 hours later
  SYSTEMTIME elements;
  end.GetUtcElements(elements);
  assert(elements.wDay == 16 && elements.wHour == 13 && elements.wMinute == 30);

  DWORD days, hours, minutes, seconds, milliseconds;
  bool negative;
  (start - end).GetElements(days, hours, minutes, seconds, milliseconds, negative);
  assert(negative && days == 1 && hours == 1);

  assert(UtcTime::FromStringGeneralizedTime("20040316143000+0100") == end);
  assert(UtcTime::FromStringGeneralizedTime(end.ToStringGeneralizedTime()) == end);
  try {
    UtcTime::GetUtc(2005, 2, 29, 0, 0, 0, 0);
    assert(false);
  } catch (const Error& error) {
    assert(error.HasCode(0xE743000E));  // there is no such date
  }
}
