#pragma once

#include <cstdint>
#include <vector>

#include "wayloom/analytics/TGFAnalyticsDatabase.hpp"
#include "wayloom/platform/Json.hpp"

#include "storage/UploadLimits.hpp"

namespace wayloom {

// One of the three kinds of rows that are uploaded: lists what is due, and marks what was delivered. Any thread.
class DueRecords {
 public:
  using Ids = std::vector<std::int64_t>;

  static const DueRecords beaconRegions;
  static const DueRecords events;
  static const DueRecords geoRegions;

  static Ids idsOf(const platform::Json& records);

  // As many as the limits have room for, which are lessened by them. A session comes with all its beacons.
  platform::Json list(TGFAnalyticsDatabase& db, storage::UploadLimits& limits, const Ids& except = {}) const;
  // Returns those that could not be marked.
  Ids mark(platform::Platform& platform, TGFAnalyticsDatabase& db, const Ids& ids) const;

 private:
  using Read = platform::Json (*)(storage::DatabaseConnection&, const storage::ResultSet&);
  constexpr DueRecords(const char* query, Read read, const char* mark, const char* line)
      : query_(query), read_(read), mark_(mark), line_(line) {}

  const char* query_;
  Read read_;
  const char* mark_;
  const char* line_;  // in the log, for each row marked
};

}  // namespace wayloom
