#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "wayloom/platform/NotificationCenter.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/regions/TGFAPIRequest.hpp"
#include "wayloom/regions/TGFBeacon.hpp"

namespace wayloom {

// For developing a status server: posts one status for each beacon of each ranging, one after the other, straight to
// the endpoint. Nothing else makes one. Statuses that wait for a slow endpoint are dropped beyond kMostWaiting.
//
// Destruction cancels what is under way. It ends the observation of entries; that of rangings stays with the Platform,
// where it does nothing any more.
class TGFStatusLogger {
 public:
  static constexpr std::size_t kMostWaiting = 1000;

  // Such as "http://localhost:3000/sdk/v1/events".
  TGFStatusLogger(platform::Platform& platform, std::string endpoint);
  ~TGFStatusLogger();
  TGFStatusLogger(const TGFStatusLogger&) = delete;
  TGFStatusLogger& operator=(const TGFStatusLogger&) = delete;

  // The constructor registers and the destructor unregisters.
  void registerForGFNotifications();
  void unregisterForGFNotifications();

  void didEnterRegion(const platform::Notification& notification);
  void didRangeBeaconsInRegion(const platform::Notification& notification);
  void postStatusWithRegionOrBeacons(const TGFRegionPtr& region, const TGFBeaconList& beacons);

 private:
  struct Status {
    std::string beacon;
    std::string body;
  };

  void postNext();
  void ended(const TGFAPIRequest::Bytes& answer);

  platform::Platform& platform_;
  const std::string endpoint_;
  std::unique_ptr<platform::NotificationCenter::Observation> entries_;

  std::mutex mutex_;  // for the three below
  std::deque<Status> waiting_;
  bool posting_ = false;
  std::unique_ptr<TGFAPIRequest> request_;

  std::unique_ptr<platform::TaskQueue> queue_;
  platform::TaskScope scope_;
};

}  // namespace wayloom
