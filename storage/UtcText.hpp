#pragma once

#include <string>

#include "wayloom/platform/Time.hpp"

namespace wayloom::storage {

// "2015-11-21T11:40:00Z", what is left of a second dropped; any thread.
std::string utcText(platform::CalendarTime time);
// "2015-11-21T11:40:00.125Z"
std::string utcTextWithMilliseconds(platform::CalendarTime time);

}  // namespace wayloom::storage
