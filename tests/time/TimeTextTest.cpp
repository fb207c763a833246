// The two text forms, read and written in whatever zone the machine has; ZoneTest chooses zones.
#include <gtest/gtest.h>
#include <ormutil/UtcTime.h>

#include <random>

#include "support/ErrorLayers.h"

using namespace orm;
using namespace test;

namespace {

const Layers kBadText{{0xE743000F, "Cannot read date from string; input string has invalid format."}};
const Layers kInvalidDate{{0xE743000E, "Invalid date was encountered."}};

enum Form { UTC_TIME, GENERALIZED };

UtcTime Read(Form form, const std::string& text) {
  const String s(text.c_str());
  return form == UTC_TIME ? UtcTime::FromStringUTC(s) : UtcTime::FromStringGeneralizedTime(s);
}

const UtcTime kNoon = UtcTime::GetUtc(2004, 3, 15, 12, 30, 0, 0);

}  // namespace

TEST(TimeText, Reading) {
  const auto at = [](int milliseconds) {
    return kNoon + TimeDiff(0, 0, 0, 0, static_cast<DWORD>(milliseconds), false);
  };
  const struct {
    Form form;
    const char* text;
    UtcTime expected;
  } cases[] = {
      {UTC_TIME, "040315123000Z", kNoon},
      {UTC_TIME, "0403151230Z", kNoon},
      {UTC_TIME, "040315133000+0100", kNoon},
      {UTC_TIME, "040315073000-0500", kNoon},
      {UTC_TIME, "040315181500+0545", kNoon},
      {UTC_TIME, "0403151230Z0000", kNoon},
      {UTC_TIME, "040315123000+", kNoon},
      {UTC_TIME, "040315123000 \tZ \t ", kNoon},
      {UTC_TIME, "040315133000Z0100", kNoon},
      // The fields of a zone have no limit.
      {UTC_TIME, "040319171000+9999", UtcTime::GetUtc(2004, 3, 15, 12, 31, 0, 0)},
      {UTC_TIME, "500101000000Z", UtcTime::GetUtc(2050, 1, 1, 0, 0, 0, 0)},
      {UTC_TIME, "510101000000Z", UtcTime::GetUtc(1951, 1, 1, 0, 0, 0, 0)},
      {UTC_TIME, "000908070605Z", UtcTime::GetUtc(2000, 9, 8, 7, 6, 5, 0)},
      {GENERALIZED, "20040315123000Z", kNoon},
      {GENERALIZED, "200403151230Z", kNoon},
      {GENERALIZED, "2004031513+0030", kNoon},
      {GENERALIZED, "200403151330+01", kNoon},
      {GENERALIZED, "20040315123000,000Z", kNoon},
      {GENERALIZED, "20040315123000.Z", kNoon},
      {GENERALIZED, "20040315123000.250Z", at(250)},
      {GENERALIZED, "20040315123000,050Z", at(50)},
      {GENERALIZED, "20040315123000.5Z", at(5)},
      {GENERALIZED, "20040315123000.,.,25Z", at(25)},
      {GENERALIZED, "20040315123000.123456789+0000", at(123)},
      {GENERALIZED, "20040315123000.xyzZ", kNoon},
      {GENERALIZED, "20040315123000.12xZ", at(12)},
      {GENERALIZED, "20040315123000. 0x1fZ", at(1)},
      {GENERALIZED, "20040315123000. 017Z", at(15)},
      {GENERALIZED, "200403151230.250Z", at(250)},
      {GENERALIZED, "2004031512", UtcTime::GetLocal(2004, 3, 15, 12, 0, 0, 0)},
      {GENERALIZED, "20040315123000 \t", UtcTime::GetLocal(2004, 3, 15, 12, 30, 0, 0)},
      {GENERALIZED, "20040315123000.250", UtcTime::GetLocal(2004, 3, 15, 12, 30, 0, 250)},
      {GENERALIZED, "20040315123000.5z", UtcTime::GetLocal(2004, 3, 15, 12, 30, 0, 5)},
      {GENERALIZED, "16010101000000Z", UtcTime()},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Read(c.form, c.text).GetTicks(), c.expected.GetTicks()) << c.text;
  }
}

TEST(TimeText, RefusedTexts) {
  const struct {
    Form form;
    const char* text;
    const Layers& layers;
  } cases[] = {
      {UTC_TIME, "", kBadText},
      {UTC_TIME, "040315123000", kBadText},
      {UTC_TIME, "040315123000z", kBadText},
      {UTC_TIME, "04031512300Z", kBadText},
      {UTC_TIME, "20040315123000Z", kBadText},
      {UTC_TIME, " 040315123000Z", kBadText},
      {UTC_TIME, "04Mr15123000Z", kBadText},
      {UTC_TIME, "040315123000+01", kBadText},
      {UTC_TIME, "040315123000+010", kBadText},
      {UTC_TIME, "040315123000+01000", kBadText},
      {UTC_TIME, "040315123000+01:0", kBadText},
      {UTC_TIME, "040315123000X0100", kBadText},
      {UTC_TIME, "040315123000Z Z", kBadText},
      {UTC_TIME, "030229120000Z", kInvalidDate},
      {UTC_TIME, "030229120000", kInvalidDate},  // the date is looked at before the zone
      {UTC_TIME, "040315240000Z", kInvalidDate},
      {GENERALIZED, "", kBadText},
      {GENERALIZED, "20040315", kBadText},
      {GENERALIZED, "20040315123Z", kBadText},
      {GENERALIZED, "2004031512300012Z", kBadText},
      {GENERALIZED, " 20040315123000Z", kBadText},
      {GENERALIZED, "20040315123000+1", kBadText},
      {GENERALIZED, "20040315123000+100", kBadText},
      {GENERALIZED, "20040315123000+01:00", kBadText},
      {GENERALIZED, "20040315123000+0x", kBadText},
      {GENERALIZED, "20040315123000z", kBadText},
      {GENERALIZED, "20040315123000\x81Z", kBadText},
      {GENERALIZED, "16001231235959Z", kInvalidDate},
      {GENERALIZED, "20030431000000", kInvalidDate},
      {GENERALIZED, "20040315123060.5+0100", kInvalidDate},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(LayersOf([&] { Read(c.form, c.text); }), c.layers) << c.text;
  }
}

TEST(TimeText, ThereAndBack) {
  std::mt19937_64 random(20040315);
  for (int i = 0; i < 20'000; ++i) {
    // Up to the end of the year 9998: a fifth digit of the year is written but cannot be read.
    const ULONGLONG milliseconds = 86'400'000 + random() % 264'992'256'000'000;
    const UtcTime time = UtcTime::FromTicks(milliseconds * 10'000);
    const String text = time.ToStringGeneralizedTime();
    ASSERT_EQ(UtcTime::FromStringGeneralizedTime(text), time) << text.GetBegin();
  }
  // Two digits of the year carry a century.
  EXPECT_EQ(UtcTime::FromStringUTC(UtcTime::GetUtc(1940, 6, 1, 12, 0, 0, 0).ToStringUTC()),
            UtcTime::GetUtc(2040, 6, 1, 12, 0, 0, 0));
  EXPECT_EQ(UtcTime::FromStringUTC((kNoon + TimeDiff(0, 0, 0, 0, 999, false)).ToStringUTC()), kNoon);
}

// A changed text is refused with one of the documented codes or means some instant; nothing else happens.
TEST(TimeText, MutatedTexts) {
  const std::string seeds[] = {"040315123000Z",       "0403151230+0100", "20040315123000.250+0545",
                               "20040315123000,5-03", "2004031512",      "200403151230.999 \t"};
  std::mt19937 random(4);
  int read = 0;
  for (int i = 0; i < 20'000; ++i) {
    std::string text = seeds[random() % std::size(seeds)];
    for (auto changes = random() % 4; changes-- > 0;) {
      const size_t pos = random() % text.size();
      switch (random() % 3) {
        case 0:
          text[pos] = static_cast<char>(1 + random() % 255);
          break;
        case 1:
          text.insert(pos, 1, "0123456789Z+-., "[random() % 16]);
          break;
        default:
          if (text.size() > 1) text.erase(pos, 1);
      }
    }
    for (Form form : {UTC_TIME, GENERALIZED}) {
      const Error error = ErrorOf([&] { Read(form, text); });
      if (error.IsEmpty()) ++read;
      ASSERT_TRUE(error.IsEmpty() || error.GetCode() == 0xE743000F || error.GetCode() == 0xE743000E ||
                  error.GetCode() == 0xE7430002)
          << text;
    }
  }
  EXPECT_GT(read, 2'000);
}
