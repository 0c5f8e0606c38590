#pragma once

#include <optional>
#include <string_view>

#include "wayloom/platform/Time.hpp"

namespace wayloom {

// Reads the date form of RFC 1123, "EEE, dd MMM yyyy HH:mm:ss zzz", whatever the process's locale is; see
// TWLMapConfigRepo::dateFrom. Dates beyond the range of CalendarTime become its nearest end.
std::optional<platform::CalendarTime> parseHttpDate(std::string_view text);

}  // namespace wayloom
