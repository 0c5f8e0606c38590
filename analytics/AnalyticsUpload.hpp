#pragma once

#include <array>
#include <atomic>
#include <memory>

#include "wayloom/analytics/TGFAPIAnalyticsUploader.hpp"
#include "wayloom/analytics/TGFAnalyticsDatabase.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/platform/Tasks.hpp"

#include "analytics/DueRecords.hpp"

namespace wayloom {

// Sends what is due, one document after the other, each as soon as the one before was delivered. Destruction cancels.
class AnalyticsUpload {
 public:
  AnalyticsUpload(platform::Platform& platform, TGFAnalyticsDatabase& db) : platform_(platform), db_(db) {}
  ~AnalyticsUpload();

  // Begins a pass and returns; while one is under way, it does nothing. One thread at a time.
  void begin();

 private:
  static constexpr std::array kKinds = {&DueRecords::beaconRegions, &DueRecords::events, &DueRecords::geoRegions};
  using Ids = std::array<DueRecords::Ids, kKinds.size()>;

  void sendNext();
  void finish(bool uploaded);
  void markAgain();

  platform::Platform& platform_;
  TGFAnalyticsDatabase& db_;
  std::unique_ptr<platform::TaskQueue> queue_;
  std::atomic<bool> underWay_ = false;

  // Used on the queue.
  Ids sent_;      // in the document under way, or the last of this pass
  Ids unmarked_;  // what was delivered and could not be marked: it is not sent again
  bool isCut_ = false;
  std::unique_ptr<TGFAPIAnalyticsUploader> uploader_;
  platform::TaskScope scope_;
};

}  // namespace wayloom
