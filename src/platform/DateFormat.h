#pragma once

// Dates as text in the local time zone, with the date-formatter patterns the service uses:
//   "yyyy-MM-dd hh:mm:ss"    the modification dates of change records (12-hour hour, deliberately without AM/PM,
//                            so 14:05:09 and 02:05:09 of one day read the same)
//   "MM-dd-yyyy hh:mm:ss a"  the time of an error report (12-hour hour with "AM" or "PM")
//
// Pattern letters: yyyy (year, yy for its last two digits), MM, dd, HH (00-23), hh (01-12), mm, ss, SSS
// (milliseconds) and a ("AM"/"PM"); a doubled letter pads to two digits, a single one does not. Any other letter
// is refused; other characters are copied. The local time zone is the one TZ names at the time of the call.

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

inline constexpr std::string_view recordDatePattern = "yyyy-MM-dd hh:mm:ss";
inline constexpr std::string_view errorReportDatePattern = "MM-dd-yyyy hh:mm:ss a";

// Formats `secondsSince1970` with `pattern`. Raises platform::Exception for a pattern letter it does not know and
// for a time that is not a number or lies beyond the calendar (about two billion years away).
std::string formatDate(double secondsSince1970, std::string_view pattern);

enum class TimeZone { Local, Utc };

// The calendar fields of the whole second that holds `secondsSince1970`, or nothing for a time that is not a number
// or lies beyond the calendar.
std::optional<std::tm> calendarTime(double secondsSince1970, TimeZone zone);

}
