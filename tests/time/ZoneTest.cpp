// Local time and the zone's suffix, in zones of every kind, each set for a process of its own. Rules of
// daylight saving are made from today's date, so that it is on or off now and for some weeks to come.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <ormutil/Error.h>
#include <ormutil/UtcTime.h>
#include <time.h>

#include <cstdlib>
#include <ostream>
#include <string>
#include <utility>

#include "support/Child.h"
#include "support/ErrorLayers.h"
#include "support/FailingNew.h"
#include "support/ModuleTrace.h"

using namespace test;

namespace {

constinit bool gsZoneIsLost = false;

// A rule under which daylight saving is in effect now, or is not.
std::string Rule(bool inEffect) {
  const time_t now = time(nullptr);
  tm utc{};
  gmtime_r(&now, &utc);
  const auto month = [&utc](int shift) { return std::to_string((utc.tm_mon + shift + 12) % 12 + 1); };
  return inEffect ? ",M" + month(-2) + ".1.0,M" + month(3) + ".1.0"
                  : ",M" + month(3) + ".1.0,M" + month(-2) + ".1.0";
}

struct Zone {
  const char* name;
  std::string tz;
  const char* spring;   // 2004-03-15 12:30:00.250 UTC
  const char* autumn;   // 2004-09-15 12:30:00 UTC
  const char* minutes;  // of 12:30 local time before 12:30 UTC
};

void PrintTo(const Zone& zone, std::ostream* out) {
  *out << zone.tz;
}

class ZoneTest : public testing::TestWithParam<Zone> {};

}  // namespace

// Found before the platform's own.
extern "C" DWORD WINAPI GetTimeZoneInformation(TIME_ZONE_INFORMATION* information) {
  if (gsZoneIsLost) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return TIME_ZONE_ID_INVALID;
  }
  using Function = DWORD (*)(TIME_ZONE_INFORMATION*);
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "GetTimeZoneInformation"))(information);
}

TEST_P(ZoneTest, TextsNameTheInstant) {
  const Zone& zone = GetParam();
  const ChildResult result = RunProgram({"/usr/bin/env", "TZ=" + zone.tz, Sibling("zone_probe")});
  EXPECT_EQ(result.output, std::string(zone.spring) + "\n" + zone.autumn + "\n" + zone.minutes + "\nsame\n");
}

INSTANTIATE_TEST_SUITE_P(
    , ZoneTest,
    testing::Values(
        Zone{"Utc", "UTC0", "20040315123000.250Z 040315123000Z", "20040915123000Z 040915123000Z", "+0"},
        Zone{"UtcPlus1", "CET-1", "20040315133000.250+0100 040315133000+0100",
             "20040915133000+0100 040915133000+0100", "+60"},
        Zone{"StandardNow", "CET-1CEST" + Rule(false), "20040315133000.250+0100 040315133000+0100",
             "20040915133000+0100 040915133000+0100", "+60"},
        Zone{"DaylightNow", "CET-1CEST" + Rule(true), "20040315143000.250+0200 040315143000+0200",
             "20040915143000+0200 040915143000+0200", "+120"},
        Zone{"BehindUtc", "EST5", "20040315073000.250-0500 040315073000-0500",
             "20040915073000-0500 040915073000-0500", "-300"},
        Zone{"BehindUtcDaylightNow", "EST5EDT" + Rule(true), "20040315083000.250-0400 040315083000-0400",
             "20040915083000-0400 040915083000-0400", "-240"},
        Zone{"HalfHour", "IST-5:30", "20040315180000.250+0530 040315180000+0530",
             "20040915180000+0530 040915180000+0530", "+330"},
        Zone{"HalfHourBehindUtc", "NST3:30", "20040315090000.250-0330 040315090000-0330",
             "20040915090000-0330 040915090000-0330", "-210"},
        Zone{"QuarterHour", "NPT-5:45", "20040315181500.250+0545 040315181500+0545",
             "20040915181500+0545 040915181500+0545", "+345"},
        Zone{"HalfHourDaylightNow", "LHST-10:30LHDT-11" + Rule(true),
             "20040315233000.250+1100 040315233000+1100", "20040915233000+1100 040915233000+1100", "+660"},
        Zone{"NextDay", "<+1245>-12:45", "20040316011500.250+1245 040316011500+1245",
             "20040916011500+1245 040916011500+1245", "+765"},
        Zone{"DaylightIsUtc", "AZOT1AZOST" + Rule(true), "20040315123000.250Z 040315123000Z",
             "20040915123000Z 040915123000Z", "+0"}),
    [](const auto& zone) { return zone.param.name; });

// A change of the zone changes the text, and not the instant that it names.
TEST(ZoneChange, IsSeenByTheNextCall) {
  const orm::UtcTime time = orm::UtcTime::GetUtc(2004, 3, 15, 12, 30, 0, 0);
  const struct {
    const char* tz;
    const char* text;
  } changes[] = {{"CET-1", "20040315133000+0100"},
                 {"EST5", "20040315073000-0500"},
                 {"", "20040315123000Z"},
                 {"CET-1", "20040315133000+0100"}};
  for (const auto& change : changes) {
    setenv("TZ", change.tz, 1);
    const orm::String text = time.ToStringGeneralizedTime();
    EXPECT_STREQ(text.GetBegin(), change.text);
    EXPECT_EQ(orm::UtcTime::FromStringGeneralizedTime(text), time);
    const orm::String local = text.Left(text.GetBegin() + 14);
    EXPECT_EQ(orm::UtcTime::FromStringGeneralizedTime(local), time) << "without its zone it is local time";
  }
}

// Working it out needs none but for keeping the answer.
TEST(ZoneChange, IsSeenWithoutMemory) {
  const std::pair<const char*, LONG> zones[] = {{"AAA-1", -60}, {"<A-NAME-THAT-TAKES-MEMORY>+2", 120}};
  unsigned at = 0;
  for (const auto& [tz, bias] : zones) {
    setenv("TZ", tz, 1);
    TIME_ZONE_INFORMATION information{};
    const FailingNew failing(++at);
    EXPECT_EQ(GetTimeZoneInformation(&information), TIME_ZONE_ID_UNKNOWN) << tz;
    EXPECT_TRUE(failing.HasFailed()) << tz;
    EXPECT_EQ(information.Bias, bias) << tz;
  }
}

TEST(ZoneTrace, TellsTheStateOfTheZone) {
  ModuleTrace trace("Date", 't');
  const orm::UtcTime time = orm::UtcTime::GetUtc(2004, 3, 15, 12, 30, 0, 0);
  const std::pair<std::string, std::string> zones[] = {{"CET-1", "Standard zone"},
                                                       {"CET-1CEST" + Rule(false), "Standard zone"},
                                                       {"CET-1CEST" + Rule(true), "Daylight zone"}};
  for (const auto& [tz, line] : zones) {
    setenv("TZ", tz.c_str(), 1);
    trace.Take();
    time.ToStringUTC();
    time.ToStringGeneralizedTime();
    EXPECT_EQ(trace.Take(), (std::vector<std::string>{line, line}));
  }
  gsZoneIsLost = true;
  const Layers system = LayersOf(orm::MakeSystemError(ERROR_INVALID_PARAMETER, orm::String(), true));
  EXPECT_EQ(LayersOf([&] { time.ToStringUTC(); }), system);
  EXPECT_EQ(LayersOf([&] { time.ToStringGeneralizedTime(); }), system);
  EXPECT_EQ(trace.Take(), (std::vector<std::string>{"Error", "Error"}));
}

// Near the ends of the calendar the difference from UTC leads out of it.
TEST(ZoneTrace, NamesTheLocalConversionThatFails) {
  ModuleTrace trace("Date", 'w');
  const Layer conversion{
      0xE7430002, "Error in date conversion to/from internal format. Invalid date was probably encountered."};
  const Layer system = LayersOf(orm::MakeSystemError(ERROR_INVALID_PARAMETER, orm::String(), true))[0];
  setenv("TZ", "CET-1", 1);
  EXPECT_EQ(LayersOf([] { orm::UtcTime::GetLocal(1601, 1, 1, 0, 59, 59, 0); }),
            (Layers{{0xE743000A, "Error in date object creating."}, conversion, system}));
  EXPECT_EQ(trace.Take(), (std::vector<std::string>{"Error in LocalFileTimeToFileTime",
                                                    "Error in UtcTime UTC initializer"}));
  EXPECT_EQ(orm::UtcTime::GetLocal(1601, 1, 1, 1, 0, 0, 0), orm::UtcTime());
  EXPECT_EQ(LayersOf([] { orm::UtcTime::FromStringGeneralizedTime("160101010030"); }),
            (Layers{conversion, system}))
      << "the readers add no layer";
  setenv("TZ", "EST5", 1);
  trace.Take();
  EXPECT_EQ(LayersOf([] { orm::UtcTime().ToStringUTC(); }), (Layers{conversion, system}));
  EXPECT_EQ(trace.Take(), (std::vector<std::string>{"Error in FileTimeToLocalFileTime"}));
}
