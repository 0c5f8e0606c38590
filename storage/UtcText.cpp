#include "storage/UtcText.hpp"

#include <array>
#include <cstdio>

namespace wayloom::storage {
namespace {

std::string textOf(platform::CalendarTime time, bool withMilliseconds) {
  using namespace std::chrono;
  const auto sinceEpoch = floor<milliseconds>(time.time_since_epoch());
  const auto day = floor<days>(sinceEpoch);
  const year_month_day date{sys_days(day)};
  const hh_mm_ss clock(sinceEpoch - day);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  std::string result = text.data();
  if (withMilliseconds) {
    std::snprintf(text.data(), text.size(), ".%03d", static_cast<int>(clock.subseconds().count()));
    result += text.data();
  }
  return result + 'Z';
}

}  // namespace

std::string utcText(platform::CalendarTime time) { return textOf(time, false); }

std::string utcTextWithMilliseconds(platform::CalendarTime time) { return textOf(time, true); }

}  // namespace wayloom::storage
