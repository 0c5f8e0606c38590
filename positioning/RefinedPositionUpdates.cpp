#include "wayloom/positioning/RefinedPositionUpdates.hpp"

#include <utility>

#include "wayloom/platform/Platform.hpp"
#include "wayloom/positioning/TWLManager.hpp"
#include "wayloom/regions/TGFManager.hpp"
#include "wayloom/regions/TGFNotifications.hpp"

namespace wayloom {

RefinedPositionUpdates::RefinedPositionUpdates(platform::Platform& platform, TWLManager& manager, Handler handler)
    : platform_(platform),
      engine_(manager.gfManager()),
      handler_(std::make_shared<const Handler>(std::move(handler))),
      positions_(platform) {
  observation_ = platform.notificationCenter().addObserver(
      TGFManagerDidRangeBeaconsInRegionNotification, &engine_, [this](const platform::Notification& notification) {
        if (const auto* beacons = notification.userInfo.get<TGFBeaconList>(TGFManagerNotificationBeaconsKey))
          ranged(*beacons);
      });
}

RefinedPositionUpdates::~RefinedPositionUpdates() = default;

void RefinedPositionUpdates::ranged(const TGFBeaconList& beacons) {
  positions_.setKit(engine_.kit());
  positions_.ranged(beacons, platform_.monotonicClock().now());
  if (rangings_++ == 0) waitForTheRest();
}

// The regions of a second come in tasks of their own, one after another: the second is complete when a whole pass of
// the main loop brings no more.
void RefinedPositionUpdates::waitForTheRest() {
  seenRangings_ = rangings_;
  platform_.tasks().mainQueue().async(
      scope_.bind([this] { platform_.tasks().atEndOfPass(scope_.bind([this] { passEnded(); })); }));
}

void RefinedPositionUpdates::passEnded() {
  if (rangings_ != seenRangings_) return waitForTheRest();
  rangings_ = 0;
  const auto* position = positions_.update(platform_.monotonicClock().now());
  const auto handler = handler_;
  if (position != nullptr && *handler) (*handler)(RefinedPosition(*position));
}

}  // namespace wayloom
