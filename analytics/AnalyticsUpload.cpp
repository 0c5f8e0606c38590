#include "analytics/AnalyticsUpload.hpp"

#include <utility>

#include "wayloom/platform/Platform.hpp"

namespace wayloom {

using platform::Json;
using storage::UploadLimits;

namespace {

constexpr std::size_t kMostUnmarked = 1000;

}  // namespace

AnalyticsUpload::~AnalyticsUpload() {
  scope_.close();
  uploader_.reset();
}

void AnalyticsUpload::begin() {
  if (underWay_.exchange(true)) return;
  if (!queue_) queue_ = platform_.tasks().makeSerialQueue("TGFAnalytics");
  queue_->async(scope_.bind([this] {
    sent_ = {};
    markAgain();
    sendNext();
  }));
}

void AnalyticsUpload::markAgain() {
  for (std::size_t kind = 0; kind < kKinds.size(); ++kind)
    unmarked_[kind] = kKinds[kind]->mark(platform_, db_, unmarked_[kind]);
}

void AnalyticsUpload::sendNext() {
  uploader_ = std::make_unique<TGFAPIAnalyticsUploader>(platform_);
  auto limits = uploader_->url() ? UploadLimits::ofOneDocument() : UploadLimits::ofOneRecord();
  std::array<Json, kKinds.size()> records;
  Ids ids;
  for (std::size_t kind = 0; kind < kKinds.size(); ++kind) {
    records[kind] = unmarked_[kind].size() < kMostUnmarked ? kKinds[kind]->list(db_, limits, unmarked_[kind]) : Json();
    ids[kind] = DueRecords::idsOf(records[kind]);
  }
  // The same once more would mean that marks do not last.
  if (ids == Ids() || ids == std::exchange(sent_, ids)) {
    underWay_ = false;
    return;
  }
  isCut_ = !limits.hasRoom();
  uploader_->uploadBeaconRegionsAndGeoRegionsAndEvents(records[0], records[2], records[1], [this](bool uploaded) {
    queue_->async(scope_.bind([this, uploaded] { finish(uploaded); }));
  });
}

void AnalyticsUpload::finish(bool uploaded) {
  if (uploaded) {
    for (std::size_t kind = 0; kind < kKinds.size(); ++kind) {
      const auto failed = kKinds[kind]->mark(platform_, db_, sent_[kind]);
      unmarked_[kind].insert(unmarked_[kind].end(), failed.begin(), failed.end());
    }
    if (isCut_) return sendNext();
  }
  underWay_ = false;
}

}  // namespace wayloom
