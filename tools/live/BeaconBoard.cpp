#include "tools/live/BeaconBoard.hpp"

#include <algorithm>
#include <numeric>

namespace wayloom::tools {
namespace {

using platform::MonotonicTime;

std::int64_t secondOf(MonotonicTime time) {
  return std::chrono::floor<std::chrono::seconds>(time.time_since_epoch()).count();
}

bool precedes(const BoardRow& a, const BoardRow& b, BoardOrder order) {
  switch (order) {
    case BoardOrder::identity:
      return a.identity < b.identity;
    case BoardOrder::name:
      if (a.name.empty() != b.name.empty()) return b.name.empty();
      return a.name < b.name;
    case BoardOrder::rssi:
      return a.rssi > b.rssi;
    case BoardOrder::distance:
      return a.distance < b.distance;
    case BoardOrder::rate:
      return a.rate > b.rate;
    case BoardOrder::age:
      return a.age < b.age;
  }
  return false;
}

}  // namespace

// Empties the counters of the seconds that have begun since.
void BeaconBoard::Beacon::passTo(std::int64_t newSecond) {
  if (newSecond - second > kSeconds) counts.fill(0);
  for (auto each = std::max(second, newSecond - kSeconds) + 1; each <= newSecond; ++each)
    counts[static_cast<std::size_t>(each % (kSeconds + 1))] = 0;
  second = std::max(second, newSecond);
}

double BeaconBoard::Beacon::rate(MonotonicTime now) const {
  const auto current = static_cast<std::size_t>(second % (kSeconds + 1));
  const int whole = std::accumulate(counts.begin(), counts.end(), 0) - counts[current];
  const double known = std::min<double>(kSeconds, static_cast<double>(secondOf(now) - secondOf(first)));
  return known < 1.0 ? counts[current] : whole / known;
}

void BeaconBoard::add(std::span<const linux_::BeaconReport> reports) {
  for (const auto& report : reports) {
    const auto [found, isNew] = beacons_.try_emplace(report.frame.identity);
    auto& beacon = found->second;
    if (isNew) {
      beacon.name = nameOf_(report.frame.identity);
      beacon.first = report.receivedAt;
      beacon.second = secondOf(report.receivedAt);
    }
    beacon.last = report;
    beacon.signal.add(report.frame.rssi, report.receivedAt);
    beacon.passTo(secondOf(report.receivedAt));
    ++beacon.counts[static_cast<std::size_t>(beacon.second % (kSeconds + 1))];
    if (beacons_.size() > 2 * kMostBeacons) forget(report.receivedAt);
  }
}

void BeaconBoard::forget(MonotonicTime now) {
  std::erase_if(beacons_, [&](const auto& entry) {
    return now - entry.second.last.receivedAt > platform::durationFromSeconds(kMemory);
  });
  if (beacons_.size() <= kMostBeacons) return;
  std::vector<MonotonicTime> heard;
  heard.reserve(beacons_.size());
  for (const auto& [identity, beacon] : beacons_) heard.push_back(beacon.last.receivedAt);
  std::nth_element(heard.begin(), heard.end() - kMostBeacons, heard.end());
  const auto oldest = *(heard.end() - kMostBeacons);
  std::erase_if(beacons_, [&](const auto& entry) { return entry.second.last.receivedAt < oldest; });
}

std::vector<BoardRow> BeaconBoard::rows(MonotonicTime now, BoardOrder order) {
  forget(now);
  std::vector<BoardRow> rows;
  for (auto& [identity, beacon] : beacons_) {
    beacon.passTo(secondOf(now));
    const double level = beacon.signal.level(std::max(now, beacon.last.receivedAt));
    rows.push_back({identity, beacon.name, beacon.last.sender.text(), beacon.last.frame.power, level,
                    ranging::SignalEstimator::distance(level, beacon.last.frame.power), beacon.rate(now),
                    std::max(0.0, platform::secondsOf(now - beacon.last.receivedAt))});
  }
  std::stable_sort(rows.begin(), rows.end(),
                   [order](const BoardRow& a, const BoardRow& b) { return precedes(a, b, order); });
  return rows;
}

}  // namespace wayloom::tools
