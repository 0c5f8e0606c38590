#include "tools/serve/FaultRules.hpp"

#include <charconv>
#include <fmt/format.h>
#include <utility>

namespace wayloom::tools {
namespace {

constexpr double kLongestDelay = 3600.0;

template <class Number>
std::optional<Number> wholeNumber(std::string_view text, Number least, Number most) {
  Number number{};
  const auto outcome = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isWhole = outcome.ec == std::errc() && outcome.ptr == text.data() + text.size();
  return isWhole && number >= least && number <= most ? std::optional(number) : std::nullopt;
}

// "2s" or "250ms".
std::optional<platform::Duration> durationOf(std::string_view text) {
  double unit = 1.0;
  if (text.ends_with("ms")) unit = 1e-3;
  if (!text.ends_with('s')) return std::nullopt;
  text.remove_suffix(unit < 1.0 ? 2 : 1);
  const auto count = wholeNumber(text, 0.0, kLongestDelay / unit);
  return count ? std::optional(platform::durationFromSeconds(*count * unit)) : std::nullopt;
}

template <class Value>
bool take(std::optional<Value> value, std::optional<Value>& target) {
  target = value;
  return value.has_value();
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const auto begin = std::min(text.find_first_not_of(kBlanks), text.size());
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

// The text up to the next of these characters, which are taken off `rest` with it.
std::string_view takeUpTo(std::string_view ends, std::string_view& rest) {
  const auto end = std::min(rest.find_first_of(ends), rest.size());
  const auto part = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return trimmed(part);
}

bool isTarget(std::string_view text) {
  return text == "kit" || text == "maps" || text == "analytics" || text == "status" || text.starts_with('/');
}

// One item; false when it is none.
bool readItem(std::string_view item, FaultRule& rule) {
  const auto equals = std::min(item.find('='), item.size());
  const auto name = item.substr(0, equals);
  const auto value = item.substr(std::min(equals + 1, item.size()));
  constexpr std::size_t kMost = 1U << 30U;
  auto& fault = rule.fault;
  if (name == "rate") return take(wholeNumber<std::size_t>(value, 1, kMost), fault.rate);
  if (name == "cut") return take(wholeNumber<std::size_t>(value, 0, kMost), fault.cut);
  if (name == "fail") return take(wholeNumber(value, 200, 599), fault.status);
  if (name == "times") return take(wholeNumber<unsigned>(value, 1, kMost), rule.times);
  if (item == "hang") return fault.hangs = true;
  if (item == "garbage") return fault.spoilsBody = true;
  if (item == "garbage=all") return fault.spoilsAll = true;
  if (name == "slow") {
    const auto duration = durationOf(value);
    fault.slow = duration.value_or(platform::Duration());
    return duration.has_value();
  }
  const auto chance = name == "chance" ? wholeNumber(value, 0.0, 1.0) : std::nullopt;
  rule.chance = chance.value_or(1.0);
  return chance.has_value();
}

bool goesWrong(const Fault& fault) {
  return fault.slow > platform::Duration::zero() || fault.rate || fault.status || fault.spoilsBody || fault.spoilsAll ||
         fault.cut || fault.hangs;
}

bool isBelow(std::string_view path, std::string_view folder) {
  if (!path.starts_with(folder)) return false;
  return path.size() == folder.size() || folder.ends_with('/') || path[folder.size()] == '/';
}

}  // namespace

std::optional<FaultRule> parseFaultRule(std::string_view text, std::string& error) {
  FaultRule rule;
  rule.text = text;
  auto items = text;
  if (const auto colon = text.rfind(':'); colon != text.npos) {
    rule.target = trimmed(text.substr(0, colon));
    items = text.substr(colon + 1);
    if (!isTarget(rule.target)) {
      error = fmt::format("\"{}\": the target is none of kit, maps, analytics, status and a path", text);
      return std::nullopt;
    }
  }
  rule.fault.text = trimmed(items);
  while (!items.empty()) {
    const auto item = takeUpTo(",", items);
    if (readItem(item, rule)) continue;
    error = fmt::format(
        "\"{}\": \"{}\" is none of slow=TIME (2s, 250ms), rate=BYTES, fail=STATUS (200 to 599), garbage, garbage=all, "
        "cut=BYTES, hang, chance=P (0 to 1) and times=N",
        text, item);
    return std::nullopt;
  }
  if (goesWrong(rule.fault)) return rule;
  error = fmt::format("\"{}\": there is no fault in it", text);
  return std::nullopt;
}

std::string FaultRules::replace(std::string_view text) {
  std::vector<FaultRule> rules;
  while (!text.empty()) {
    const auto line = takeUpTo(";\n", text);
    if (line.empty()) continue;
    std::string error;
    auto rule = parseFaultRule(line, error);
    if (!rule) return error;
    rules.push_back(std::move(*rule));
  }
  const std::lock_guard lock(mutex_);
  rules_ = std::move(rules);
  return {};
}

std::string FaultRules::text() const {
  const std::lock_guard lock(mutex_);
  std::string text;
  for (const auto& rule : rules_) text += rule.text + "\n";
  return text;
}

Fault FaultRules::draw(std::string_view target, std::string_view path) {
  const std::lock_guard lock(mutex_);
  for (auto& rule : rules_) {
    const bool matches = rule.target.empty() || rule.target == target || isBelow(path, rule.target);
    if (!matches || rule.times == 0U) continue;
    if (rule.chance < 1.0 && !random_.chance(rule.chance)) continue;
    if (rule.times) --*rule.times;
    auto fault = rule.fault;
    fault.seed = ++drawn_;
    return fault;
  }
  return {};
}

}  // namespace wayloom::tools
