#include "platform/HttpDate.hpp"

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>

namespace wayloom::platform {
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

// A point of time as people write it, in UTC.
struct Written {
  explicit Written(CalendarTime time)
      : Written(std::chrono::sys_seconds(std::chrono::floor<seconds>(time.time_since_epoch()))) {}
  // From whole seconds: the first day that there is begins before the first nanosecond.
  explicit Written(std::chrono::sys_seconds time)
      : day(std::chrono::floor<std::chrono::days>(time)), date(day), clock(time - day) {}
  std::chrono::sys_days day;
  std::chrono::year_month_day date;
  std::chrono::hh_mm_ss<seconds> clock;

  int year() const { return static_cast<int>(date.year()); }
  unsigned month() const { return static_cast<unsigned>(date.month()); }
  unsigned dayOfMonth() const { return static_cast<unsigned>(date.day()); }
  std::array<char, 16> time() const {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%02d:%02d:%02d", static_cast<int>(clock.hours().count()),
                  static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()));
    return text;
  }
};

// From the lower-case one.
std::string capitalised(std::string_view name) {
  std::string text(name);
  text.front() = static_cast<char>(text.front() - 'a' + 'A');
  return text;
}

}  // namespace

std::optional<CalendarTime> parseHttpDate(std::string_view text) {
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
  const auto time =
      std::chrono::sys_days(date) + std::chrono::hours(hour) + std::chrono::minutes(minute) + seconds(second) - offset;
  return calendarTimeFrom(time.time_since_epoch().count(), 0);
}

std::string httpDate(CalendarTime time) {
  const Written written(time);
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%s, %02u %s %04d %s GMT",
                capitalised(kDays[std::chrono::weekday(written.day).c_encoding()]).c_str(), written.dayOfMonth(),
                capitalised(kMonths[written.month() - 1]).c_str(), written.year(), written.time().data());
  return text.data();
}

std::string isoDate(CalendarTime time) {
  const Written written(time);
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%sZ", written.year(), written.month(), written.dayOfMonth(),
                written.time().data());
  return text.data();
}

CalendarTime calendarTimeFrom(std::int64_t wholeSeconds, std::int64_t nanoseconds) {
  constexpr auto kLast = std::chrono::duration_cast<seconds>(Duration::max()).count() - 1;
  if (wholeSeconds > kLast) return CalendarTime::max();
  if (wholeSeconds < -kLast) return CalendarTime::min();
  return CalendarTime(seconds(wholeSeconds) + Duration(nanoseconds));
}

}  // namespace wayloom::platform
