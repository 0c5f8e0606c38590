#include "maps/HttpDate.hpp"

#include <array>
#include <chrono>
#include <cstdint>

namespace wayloom {
namespace {

using std::chrono::seconds;

constexpr std::array<std::string_view, 7> kDays = {"sun", "mon", "tue", "wed", "thu", "fri", "sat"};
constexpr std::array<std::string_view, 12> kMonths = {"jan", "feb", "mar", "apr", "may", "jun",
                                                      "jul", "aug", "sep", "oct", "nov", "dec"};

char lowerCase(char letter) { return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter; }

bool equalsWithoutCase(std::string_view text, std::string_view lower) {
  if (text.size() != lower.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i)
    if (lowerCase(text[i]) != lower[i]) return false;
  return true;
}

// Eats the text from the left. After the first piece that doesn't match, `matches` stays false.
struct Reader {
  std::string_view rest;
  bool matches = true;

  void expect(char character) {
    matches = matches && rest.starts_with(character);
    if (matches) rest.remove_prefix(1);
  }

  template <std::size_t count>
  unsigned nameOf(const std::array<std::string_view, count>& names) {
    for (unsigned i = 0; matches && i < count; ++i) {
      if (!equalsWithoutCase(rest.substr(0, 3), names[i])) continue;
      rest.remove_prefix(3);
      return i;
    }
    matches = false;
    return 0;
  }

  // A number of at least `least` and at most `most` digits, no greater than `limit`.
  int number(std::size_t least, std::size_t most, int limit) {
    std::size_t digits = 0;
    int value = 0;
    for (; digits < most && digits < rest.size() && rest[digits] >= '0' && rest[digits] <= '9'; ++digits)
      value = value * 10 + (rest[digits] - '0');
    matches = matches && digits >= least && value <= limit;
    rest.remove_prefix(digits);
    return value;
  }
};

// East of Greenwich is positive.
seconds zoneOffset(Reader& reader) {
  for (const std::string_view name : {"gmt", "utc", "ut", "z"})
    if (equalsWithoutCase(reader.rest, name)) {
      reader.rest = {};
      return seconds(0);
    }
  const bool west = reader.rest.starts_with('-');
  reader.expect(west ? '-' : '+');
  const int hours = reader.number(2, 2, 23);
  if (reader.rest.starts_with(':')) reader.rest.remove_prefix(1);
  const int minutes = reader.number(2, 2, 59);
  const seconds offset = std::chrono::hours(hours) + std::chrono::minutes(minutes);
  return west ? -offset : offset;
}

platform::CalendarTime saturated(std::chrono::sys_seconds time) {
  using std::chrono::duration_cast;
  const seconds since1970 = time.time_since_epoch();
  if (since1970 > duration_cast<seconds>(platform::Duration::max())) return platform::CalendarTime::max();
  if (since1970 < duration_cast<seconds>(platform::Duration::min())) return platform::CalendarTime::min();
  return platform::CalendarTime(since1970);
}

}  // namespace

std::optional<platform::CalendarTime> parseHttpDate(std::string_view text) {
  Reader reader{text};
  reader.nameOf(kDays);
  reader.expect(',');
  reader.expect(' ');
  const int day = reader.number(1, 2, 31);
  reader.expect(' ');
  const unsigned month = reader.nameOf(kMonths) + 1;
  reader.expect(' ');
  const int year = reader.number(4, 4, 9999);
  reader.expect(' ');
  const int hour = reader.number(2, 2, 23);
  reader.expect(':');
  const int minute = reader.number(2, 2, 59);
  reader.expect(':');
  const int second = reader.number(2, 2, 60);  // 60: a leap second, which reads as the next minute's first
  reader.expect(' ');
  const seconds offset = zoneOffset(reader);
  const std::chrono::year_month_day date(std::chrono::year(year), std::chrono::month(month),
                                         std::chrono::day(static_cast<unsigned>(day)));
  if (!reader.matches || !reader.rest.empty() || !date.ok()) return std::nullopt;
  return saturated(std::chrono::sys_days(date) + std::chrono::hours(hour) + std::chrono::minutes(minute) +
                   seconds(second) - offset);
}

}  // namespace wayloom
