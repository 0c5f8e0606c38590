#include "wayloom/positioning/TWLBeaconTracker.hpp"

#include <utility>

#include "wayloom/platform/Platform.hpp"

#include "platform/FlatTable.hpp"
#include "positioning/AveragingPeriod.hpp"
#include "positioning/BeaconKey.hpp"

namespace wayloom {
namespace {

using namespace std::chrono_literals;

using Index = platform::FlatTable<platform::BeaconIdentity>;

constexpr platform::Duration kRetention = 5s;
constexpr std::string_view kRetentionText = "5.000000";
constexpr std::size_t kMostLogLines = 20;  // a second
constexpr std::size_t kMostSpare = 64;     // room kept for each tracked beacon; a crowd that went by is not kept for

std::string textOf(const std::optional<std::int64_t>& number) { return number ? std::to_string(*number) : "(null)"; }

}  // namespace

struct TWLBeaconTracker::Indices {
  Index tracked;  // places in tracked_
  Index next;     // places in next_
};

TWLBeaconTracker::TWLBeaconTracker(platform::Platform& platform)
    : platform_(platform), averagingPeriod_(AveragingPeriod::shared(platform)), indices_(std::make_unique<Indices>()) {}

TWLBeaconTracker::~TWLBeaconTracker() = default;

void TWLBeaconTracker::updateWithRangedBeacons(const TGFBeaconList& beacons) {
  updateWithRangedBeacons(beacons, platform_.monotonicClock().now());
}

void TWLBeaconTracker::updateWithRangedBeacons(const TGFBeaconList& beacons, platform::MonotonicTime now) {
  {
    const std::lock_guard lock(mutex_);
    indices_->next.reset(beacons.size() + tracked_.size());
    takeRanged(beacons, now);
    takeUnseen(now);
    tracked_.swap(next_);
    std::swap(indices_->tracked, indices_->next);
  }
  next_.clear();
  if (next_.capacity() > kMostSpare * (tracked_.size() + 1)) next_.shrink_to_fit();
  logDropped(now);
}

void TWLBeaconTracker::takeRanged(const TGFBeaconList& beacons, platform::MonotonicTime now) {
  const platform::Duration window = averagingPeriod_.window();
  for (const auto& ranged : beacons) {
    if (!ranged || !ranged->beacon()) continue;
    const auto identity = ranged->beacon()->identity();
    const auto place = indices_->next.findOrInsert(identity, static_cast<std::uint32_t>(next_.size()));
    if (place == next_.size())
      next_.push_back(*ranged);
    else
      next_[place] = *ranged;
    const auto previous = indices_->tracked.find(identity);
    next_[place].applyRssiMeasurements(previous == Index::kNone ? nullptr : &tracked_[previous], now, window);
  }
}

void TWLBeaconTracker::takeUnseen(platform::MonotonicTime now) {
  dropped_.clear();
  for (auto& beacon : tracked_) {
    const auto identity = beacon.beacon()->identity();
    if (indices_->next.find(identity) != Index::kNone) continue;
    if (now - *beacon.lastDetected() < kRetention) {
      indices_->next.findOrInsert(identity, static_cast<std::uint32_t>(next_.size()));
      next_.push_back(std::move(beacon));
    } else {
      dropped_.push_back(identity);
    }
  }
}

// The line names the limit, not the time that went by. Anybody can send identities that come and go by the thousand:
// what is too much for a second is counted, and said when the second is over.
void TWLBeaconTracker::logDropped(platform::MonotonicTime now) {
  const auto log = [&](const std::string& who, std::string_view whom) {
    platform_.systemLog().write("Stopping tracking: " + who + " because we have not seen " + std::string(whom) +
                                " in " + std::string(kRetentionText) + " seconds");
  };
  if (now - logSecond_ >= 1s) {
    if (unloggedDrops_ > 0) log(std::to_string(unloggedDrops_) + " more beacons", "them");
    logSecond_ = now;
    loggedDrops_ = unloggedDrops_ = 0;
  }
  for (const auto& identity : dropped_) {
    if (loggedDrops_ == kMostLogLines) {
      ++unloggedDrops_;
      continue;
    }
    log(beaconKey(identity), "it");
    ++loggedDrops_;
  }
}

TGFBeaconList TWLBeaconTracker::trackedBeacons() const {
  std::shared_ptr<const std::vector<TGFBeacon>> copies;
  {
    const std::lock_guard lock(mutex_);
    copies = std::make_shared<const std::vector<TGFBeacon>>(tracked_);
  }
  TGFBeaconList list;
  list.reserve(copies->size());
  for (const auto& beacon : *copies) list.emplace_back(copies, &beacon);
  return list;
}

std::map<std::string, TGFBeaconPtr> TWLBeaconTracker::trackedBeaconDictionary() const {
  std::map<std::string, TGFBeaconPtr> dictionary;
  for (const auto& beacon : trackedBeacons()) dictionary.emplace(identifierStringForBeacon(*beacon), beacon);
  return dictionary;
}

std::string TWLBeaconTracker::identifierStringForBeacon(const TGFBeacon& beacon) {
  if (beacon.beacon()) return beaconKey(beacon.beacon()->identity());
  return (beacon.uuid() ? beacon.uuid()->string() : "(null)") + " " + textOf(beacon.major()) + " " +
         textOf(beacon.minor());
}

}  // namespace wayloom
