#include "storage/UtcDateTimeFormatter.h"

#include <cstddef>

#include "support/Format.h"

namespace velmor {
namespace {

namespace chrono = std::chrono;

using Seconds = chrono::seconds;

// 'd' marks a decimal digit; every other character must appear as it is.
constexpr std::string_view kShape = "dddd-dd-dd dd:dd:dd";

// The whole seconds a TimePoint can hold, so a parsed time never overflows.
constexpr Seconds kEarliest =
    chrono::ceil<Seconds>(UtcDateTimeFormatter::TimePoint::min().time_since_epoch());
constexpr Seconds kLatest =
    chrono::floor<Seconds>(UtcDateTimeFormatter::TimePoint::max().time_since_epoch());

bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }

bool hasShape(std::string_view text) {
  if (text.size() != kShape.size()) return false;
  for (std::size_t at = 0; at < kShape.size(); ++at) {
    const bool matches = kShape[at] == 'd' ? isAsciiDigit(text[at]) : text[at] == kShape[at];
    if (!matches) return false;
  }
  return true;
}

// At most four digits, already checked by hasShape.
int numberAt(std::string_view text, std::size_t at, std::size_t length) {
  int number = 0;
  for (char digit : text.substr(at, length)) number = number * 10 + (digit - '0');
  return number;
}

}  // namespace

std::string UtcDateTimeFormatter::stringFromDate(TimePoint date) const {
  const auto second = chrono::floor<Seconds>(date);
  const auto day = chrono::floor<chrono::days>(second);
  const chrono::year_month_day calendarDay{day};
  const chrono::hh_mm_ss timeOfDay{second - day};
  return stringWithFormat("%04d-%02u-%02u %02ld:%02ld:%02ld", int{calendarDay.year()},
                          unsigned{calendarDay.month()}, unsigned{calendarDay.day()},
                          timeOfDay.hours().count(), timeOfDay.minutes().count(),
                          timeOfDay.seconds().count());
}

std::optional<UtcDateTimeFormatter::TimePoint> UtcDateTimeFormatter::dateFromString(
    std::string_view text) const {
  if (!hasShape(text)) return std::nullopt;
  const chrono::year_month_day calendarDay{
      chrono::year{numberAt(text, 0, 4)},
      chrono::month{static_cast<unsigned>(numberAt(text, 5, 2))},
      chrono::day{static_cast<unsigned>(numberAt(text, 8, 2))}};
  const chrono::hours hours{numberAt(text, 11, 2)};
  const chrono::minutes minutes{numberAt(text, 14, 2)};
  const Seconds seconds{numberAt(text, 17, 2)};
  if (!calendarDay.ok() || hours >= chrono::days{1} || minutes >= chrono::hours{1} ||
      seconds >= chrono::minutes{1}) {
    return std::nullopt;
  }
  const Seconds sinceEpoch =
      chrono::sys_days{calendarDay}.time_since_epoch() + hours + minutes + seconds;
  if (sinceEpoch < kEarliest || sinceEpoch > kLatest) return std::nullopt;
  return TimePoint{chrono::duration_cast<TimePoint::duration>(sinceEpoch)};
}

}  // namespace velmor
