// Works out the platform's description of the time zone from the C library's view of it: the offset now and
// the changes of the year ahead.
#include "kernel/TimeZone.h"

#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <new>
#include <optional>

namespace orm::platform {
namespace {

constexpr std::int64_t day = 86'400;
constexpr std::int64_t yearAhead = 370 * day;

tm LocalTime(std::int64_t second) {
  const time_t time = second;
  tm result{};
  localtime_r(&time, &result);
  return result;
}

std::int64_t Offset(std::int64_t second) {
  return LocalTime(second).tm_gmtoff;
}

// The first second of another offset after `start` and before `end`. A week is shorter than any stretch
// between changes that a zone has had in practice.
std::optional<std::int64_t> NextChange(std::int64_t start, std::int64_t end) {
  const std::int64_t offset = Offset(start);
  for (std::int64_t low = start; low < end; low += 7 * day) {
    std::int64_t high = low + 7 * day;
    if (Offset(high) == offset) continue;
    while (high - low > 1) {
      const std::int64_t middle = low + (high - low) / 2;
      (Offset(middle) == offset ? low : high) = middle;
    }
    return high;
  }
  return std::nullopt;
}

// The moment of a change as a rule, in the local time that ends with it: the n-th such weekday of the month.
SYSTEMTIME ChangeDate(std::int64_t change) {
  const tm before = LocalTime(change - 1);
  // The change comes with the next second, on the clock that still runs.
  const std::chrono::sys_seconds wall{std::chrono::seconds(change + before.tm_gmtoff)};
  const auto date = std::chrono::floor<std::chrono::days>(wall);
  const std::chrono::year_month_day calendar(date);
  const std::chrono::hh_mm_ss time(wall - date);
  const unsigned dayOfMonth = static_cast<unsigned>(calendar.day());
  const std::chrono::year_month_day_last end(calendar.year(), std::chrono::month_day_last(calendar.month()));
  SYSTEMTIME rule{};
  rule.wMonth = static_cast<WORD>(static_cast<unsigned>(calendar.month()));
  rule.wDayOfWeek = static_cast<WORD>(std::chrono::weekday(date).c_encoding());
  rule.wDay =
      static_cast<WORD>(dayOfMonth + 7 > static_cast<unsigned>(end.day()) ? 5 : (dayOfMonth - 1) / 7 + 1);
  rule.wHour = static_cast<WORD>(time.hours().count());
  rule.wMinute = static_cast<WORD>(time.minutes().count());
  rule.wSecond = static_cast<WORD>(time.seconds().count());
  return rule;
}

void SetName(WCHAR (&name)[32], const tm& time) {
  const char* text = time.tm_zone != nullptr ? time.tm_zone : "";
  std::size_t length = 0;
  for (; length < 31 && text[length] != '\0'; ++length)
    name[length] = static_cast<unsigned char>(text[length]);
  name[length] = 0;
}

LONG BiasOf(std::int64_t offset) {
  return static_cast<LONG>(-offset / 60);
}

// Daylight time is the larger offset of two that alternate, whatever flag the zone's data give it: some zones
// call their summer time standard and count the winter as negative daylight saving. A single change ahead is
// a zone that moves for good, unless the data call one side of it daylight time.
Zone Describe(std::int64_t now) {
  Zone zone{};
  zone.from = now;
  zone.bias = BiasOf(Offset(now));
  zone.information.Bias = zone.bias;
  SetName(zone.information.StandardName, LocalTime(now));
  const std::optional<std::int64_t> first = NextChange(now, now + yearAhead);
  zone.until = first.value_or(now + 30 * day);
  if (!first) return zone;
  const std::optional<std::int64_t> second = NextChange(*first, *first + yearAhead);
  const bool alternates = second || LocalTime(now).tm_isdst > 0 || LocalTime(*first).tm_isdst > 0;
  if (!alternates) return zone;
  const std::int64_t thisOffset = Offset(now);
  const std::int64_t otherOffset = Offset(*first);
  const bool isDaylight = thisOffset > otherOffset;
  const LONG standardBias = BiasOf(std::min(thisOffset, otherOffset));
  TIME_ZONE_INFORMATION& information = zone.information;
  information.Bias = standardBias;
  information.DaylightBias = BiasOf(std::max(thisOffset, otherOffset)) - standardBias;
  SetName(isDaylight ? information.DaylightName : information.StandardName, LocalTime(now));
  SetName(isDaylight ? information.StandardName : information.DaylightName, LocalTime(*first));
  (isDaylight ? information.StandardDate : information.DaylightDate) = ChangeDate(*first);
  if (second) (isDaylight ? information.DaylightDate : information.StandardDate) = ChangeDate(*second);
  zone.id = isDaylight ? TIME_ZONE_ID_DAYLIGHT : TIME_ZONE_ID_STANDARD;
  // A date that is missing says that its bias does not apply; the bias of now has to.
  if (isDaylight && !second) information.DaylightDate = information.StandardDate;
  return zone;
}

struct KnownZone {
  Zone zone;
  ZoneSource source;
  const KnownZone* previous;
};

constinit std::atomic<const KnownZone*> zones{nullptr};  // the newest first, a few in a process's life

const Zone* Find(const KnownZone* list, const char* variable, std::uint64_t fileStamp, std::int64_t now) {
  for (; list != nullptr; list = list->previous) {
    const ZoneSource& source = list->source;
    const bool isOfSource = variable != nullptr ? source.hasVariable && source.variable == variable
                                                : !source.hasVariable && source.fileStamp == fileStamp;
    if (isOfSource && now >= list->zone.from && now < list->zone.until) return &list->zone;
  }
  return nullptr;
}

// Looks at the file at most once in a second: asking the file system costs more than a conversion.
std::uint64_t FileStamp(std::int64_t now) {
  static constinit std::atomic<std::int64_t> lookedAt{-1};
  static constinit std::atomic<std::uint64_t> stamp{0};
  if (lookedAt.load(std::memory_order_acquire) != now) {
    struct stat status {};
    if (stat("/etc/localtime", &status) == 0) {
      const auto changed = static_cast<std::uint64_t>(status.st_mtim.tv_sec) * 1'000'000'000 +
                           static_cast<std::uint64_t>(status.st_mtim.tv_nsec);
      stamp.store((changed ^ status.st_dev << 40) * 31 + status.st_ino, std::memory_order_relaxed);
    }
    lookedAt.store(now, std::memory_order_release);
  }
  return stamp.load(std::memory_order_relaxed);
}

}  // namespace

const Zone& CurrentZone() noexcept {
  timespec clock;
  clock_gettime(CLOCK_REALTIME_COARSE, &clock);
  const std::int64_t now = clock.tv_sec;
  const char* variable = std::getenv("TZ");
  const std::uint64_t fileStamp = variable == nullptr ? FileStamp(now) : 0;
  const KnownZone* newest = zones.load(std::memory_order_acquire);
  if (const Zone* known = Find(newest, variable, fileStamp, now)) return *known;
  tzset();
  try {
    auto* made = new KnownZone{
        Describe(now), {variable != nullptr, variable != nullptr ? variable : "", fileStamp}, newest};
    while (!zones.compare_exchange_weak(made->previous, made, std::memory_order_acq_rel)) {
    }
    return made->zone;
  } catch (const std::bad_alloc&) {
    // For this once.
    static constinit thread_local Zone forgotten{};
    return forgotten = Describe(now);
  }
}

}  // namespace orm::platform
