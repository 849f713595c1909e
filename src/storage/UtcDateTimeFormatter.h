// Dates as the credential record stores them: "yyyy-MM-dd HH:mm:ss" in UTC.
#ifndef VELMOR_STORAGE_UTC_DATE_TIME_FORMATTER_H_
#define VELMOR_STORAGE_UTC_DATE_TIME_FORMATTER_H_

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace velmor {

// Formats and parses whole-second UTC times on the Gregorian calendar with
// a fixed pattern, independent of the user's locale and time zone. Any
// fraction of a second is dropped towards the past, so a stored time never
// lies after the real one (also before 1970). Stateless and thread-safe.
class UtcDateTimeFormatter final {
 public:
  using TimePoint = std::chrono::system_clock::time_point;

  // "2024-02-29 12:00:00" for 2024-02-29 12:00:00.750 UTC.
  std::string stringFromDate(TimePoint date) const;
  // The time of a text in exactly that shape, or nothing: other lengths,
  // other separators, non-ASCII digits, impossible dates ("2023-02-29"),
  // hours past 23, minutes or seconds past 59 and times that a TimePoint
  // cannot hold are all refused.
  std::optional<TimePoint> dateFromString(std::string_view text) const;
};

}  // namespace velmor

#endif  // VELMOR_STORAGE_UTC_DATE_TIME_FORMATTER_H_
