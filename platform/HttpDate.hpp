// Dates as documents and servers write them, whatever the process's locale is.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "wayloom/platform/Time.hpp"

namespace wayloom::platform {

// Reads the date form of RFC 1123, "EEE, dd MMM yyyy HH:mm:ss zzz"; see TWLMapConfigRepo::dateFrom. Dates beyond the
// range of CalendarTime become its nearest end.
std::optional<CalendarTime> parseHttpDate(std::string_view text);

// As RFC 9110, 5.6.7 wants it: "Sun, 06 Nov 1994 08:49:37 GMT". Fractions of a second are dropped.
std::string httpDate(CalendarTime time);

// "1994-11-06T08:49:37Z"
std::string isoDate(CalendarTime time);

// Seconds since 1970 and nanoseconds of them, as file systems keep dates. Saturates like the rest.
CalendarTime calendarTimeFrom(std::int64_t seconds, std::int64_t nanoseconds);

}  // namespace wayloom::platform
