// Prints what times look like in the zone that TZ sets, for ZoneTest.
#include <ormutil/Error.h>
#include <ormutil/UtcTime.h>

#include <cstdio>

using namespace orm;

namespace {

void Print(const UtcTime& time) {
  std::printf("%s %s\n", time.ToStringGeneralizedTime().GetBegin(), time.ToStringUTC().GetBegin());
}

}  // namespace

int main() try {
  const UtcTime time = UtcTime::GetUtc(2004, 3, 15, 12, 30, 0, 250);
  Print(time);
  // A date in the other half of the year has the same difference: that of today.
  Print(UtcTime::GetUtc(2004, 9, 15, 12, 30, 0, 0));
  const UtcTime local = UtcTime::FromStringGeneralizedTime("20040315123000.250");
  std::printf("%+lld\n", static_cast<long long>((time - local).GetTicks() / 600'000'000));
  SYSTEMTIME st;
  time.GetLocalElements(st);
  const bool same = UtcTime::GetLocal(st.wYear, st.wMonth, st.wDay, st.wHour, st.wMinute, st.wSecond,
                                      st.wMilliseconds) == time &&
                    UtcTime::FromStringGeneralizedTime(time.ToStringGeneralizedTime()) == time;
  std::printf("%s\n", same ? "same" : "different");
} catch (const Error& error) {
  std::printf("%s\n", error.Format().GetBegin());
}
