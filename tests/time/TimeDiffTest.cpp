// Spans: from elements and back, the limits of their arithmetic.
#include <gtest/gtest.h>
#include <ormutil/UtcTime.h>

#include <array>
#include <random>

#include "support/ErrorLayers.h"
#include "support/ModuleTrace.h"

using namespace orm;
using namespace test;

namespace {

const Layer kTooHigh{0xE743000D, "The result of the operation with the date was too high."};
const Layer kNotCreated{0xE743000B, "Error in date difference object creating."};

std::array<DWORD, 6> Elements(const TimeDiff& span) {
  std::array<DWORD, 6> e{};
  bool negative = false;
  span.GetElements(e[0], e[1], e[2], e[3], e[4], negative);
  e[5] = negative;
  return e;
}

}  // namespace

TEST(TimeDiff, FromElementsAndBack) {
  const struct {
    TimeDiff span;
    LONGLONG ticks;
    std::array<DWORD, 6> elements;
  } cases[] = {
      {TimeDiff(), 0, {0, 0, 0, 0, 0, 0}},
      {TimeDiff(0, 25, 0, 0, 0, false), 900'000'000'000, {1, 1, 0, 0, 0, 0}},
      {TimeDiff(1, 1, 0, 0, 0, false), 900'000'000'000, {1, 1, 0, 0, 0, 0}},
      {TimeDiff(0, 0, 0, 0, 1, true), -10'000, {0, 0, 0, 0, 1, 1}},
      {TimeDiff(1, 2, 3, 4, 5, true), -937'840'050'000, {1, 2, 3, 4, 5, 1}},
      {TimeDiff(0, 0, 0, 0, 0xFFFFFFFF, false), 42'949'672'950'000, {49, 17, 2, 47, 295, 0}},
      {TimeDiff(10'675'199, 0, 0, 0, 0, false), 9'223'371'936'000'000'000, {10'675'199, 0, 0, 0, 0, 0}},
      {TimeDiff(10'675'199, 2, 48, 5, 476, false), 9'223'372'036'854'760'000, {10'675'199, 2, 48, 5, 476, 0}},
      {TimeDiff::FromTicks(9'999), 9'999, {0, 0, 0, 0, 0, 0}},
      {TimeDiff::FromTicks(INT64_MIN), INT64_MIN, {10'675'199, 2, 48, 5, 477, 1}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.span.GetTicks(), c.ticks);
    EXPECT_EQ(Elements(c.span), c.elements) << c.ticks;
  }
}

TEST(TimeDiff, TooLong) {
  const std::array<DWORD, 5> cases[] = {{10'675'200, 0, 0, 0, 0},
                                        {10'675'199, 2, 48, 5, 477},
                                        {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}};
  ModuleTrace trace("Date", 'w');
  for (const auto& c : cases) {
    EXPECT_EQ(LayersOf([&] { TimeDiff(c[0], c[1], c[2], c[3], c[4], true); }),
              (Layers{kNotCreated, kTooHigh}));
    EXPECT_EQ(trace.Take(), (std::vector<std::string>{"Error in TimeDiff constructor"}));
  }
}

TEST(TimeDiff, Overflow) {
  const LONGLONG top = INT64_MAX, bottom = INT64_MIN;
  const struct {
    LONGLONG left, right;
    bool add, fails;
  } cases[] = {
      {top, 1, true, true},         {top, -1, true, false},    {bottom, -1, true, true},
      {bottom, bottom, true, true}, {bottom, 1, false, true},  {top, -1, false, true},
      {top, top, false, false},     {0, bottom, false, true},  {-1, bottom, false, false},
      {top, bottom, true, false},   {top - 1, 1, true, false}, {bottom + 1, 1, false, false},
  };
  ModuleTrace trace("Date", 'w');
  for (const auto& c : cases) {
    TimeDiff span = TimeDiff::FromTicks(c.left);
    const TimeDiff other = TimeDiff::FromTicks(c.right);
    const Layers layers = LayersOf([&] { c.add ? span += other : span -= other; });
    EXPECT_EQ(layers, c.fails ? Layers{kTooHigh} : Layers{}) << c.left << ' ' << c.right;
    EXPECT_EQ(span.GetTicks() == c.left, c.fails);
    EXPECT_EQ(trace.Take(), c.fails ? std::vector<std::string>{c.add ? "Overflow in TimeDiff += operator"
                                                                     : "Overflow in TimeDiff -= operator"}
                                    : std::vector<std::string>{});
  }
  TimeDiff lowest = TimeDiff::FromTicks(bottom);
  lowest.Negate();
  EXPECT_EQ(lowest.GetTicks(), bottom);
  EXPECT_LT(lowest, TimeDiff()) << "compared with a sign";
}

// Against arithmetic that cannot overflow: the results where they fit, failure exactly where they do not.
TEST(TimeDiff, CountsLikeWiderNumbers) {
  __extension__ using Wide = __int128;
  std::mt19937_64 random(2026);
  // Numbers of every size, more of them near the limits.
  const auto ticks = [&random] {
    const auto number = static_cast<LONGLONG>(random()) >> random() % 64;
    return random() % 4 == 0 ? (number < 0 ? INT64_MIN - number : INT64_MAX - number) : number;
  };
  const auto fits = [](Wide number) { return number >= INT64_MIN && number <= INT64_MAX; };
  for (int round = 0; round < 200'000; ++round) {
    const LONGLONG left = ticks(), right = ticks();
    const bool add = random() % 2 == 0;
    const Wide expected = add ? Wide{left} + right : Wide{left} - right;
    TimeDiff span = TimeDiff::FromTicks(left);
    const TimeDiff other = TimeDiff::FromTicks(right);
    ASSERT_EQ(span < other, left < right);
    bool failed = false;
    try {
      add ? span += other : span -= other;
    } catch (const Error&) {
      failed = true;
    }
    ASSERT_EQ(failed, !fits(expected)) << left << ' ' << right;
    ASSERT_EQ(span.GetTicks(), failed ? left : static_cast<LONGLONG>(expected));
  }
  for (int round = 0; round < 100'000; ++round) {
    DWORD e[5];
    for (DWORD& element : e) element = static_cast<DWORD>(random()) >> random() % 32;
    if (random() % 2 == 0) e[0] %= 10'675'200;
    const bool negative = random() % 2 == 0;
    const Wide milliseconds = (((Wide{e[0]} * 24 + e[1]) * 60 + e[2]) * 60 + e[3]) * 1000 + e[4];
    bool failed = false;
    TimeDiff span;
    try {
      span = TimeDiff(e[0], e[1], e[2], e[3], e[4], negative);
    } catch (const Error&) {
      failed = true;
    }
    ASSERT_EQ(failed, milliseconds >= 922'337'203'685'477);
    if (failed) continue;
    ASSERT_EQ(Wide{span.GetTicks()}, milliseconds * (negative ? -10'000 : 10'000));
    const auto back = Elements(span);
    ASSERT_EQ((((Wide{back[0]} * 24 + back[1]) * 60 + back[2]) * 60 + back[3]) * 1000 + back[4],
              milliseconds);
    ASSERT_TRUE(back[1] < 24 && back[2] < 60 && back[3] < 60 && back[4] < 1000);
    ASSERT_EQ(back[5], negative && milliseconds != 0 ? 1u : 0u);
  }
}
