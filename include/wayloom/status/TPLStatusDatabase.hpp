#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/platform/Time.hpp"
#include "wayloom/regions/StatusReporter.hpp"
#include "wayloom/status/TPLBeacon.hpp"
#include "wayloom/status/TPLBeaconSession.hpp"
#include "wayloom/storage/DatabaseDump.hpp"
#include "wayloom/storage/DatabaseQueue.hpp"

namespace wayloom {

namespace storage {
class NewRowLimit;
class UploadLimits;
}  // namespace storage

// The file "Pulsekeep.sqlite" in the Documents directory: one row for each beacon ever seen, which docs/stores.md
// describes. Several may work on the file at the same time. Any thread; a failure is told in the log alone, see
// DatabaseQueue.
class TPLStatusDatabase {
 public:
  using Sessions = std::vector<TPLBeaconSession>;

  explicit TPLStatusDatabase(platform::Platform& platform);
  ~TPLStatusDatabase();
  static std::unique_ptr<TPLStatusDatabase> withInMemoryDatabase(platform::Platform& platform);
  static std::string setupDatabasePath(platform::Platform& platform);  // where the first one keeps its file

  // Nothing for a database in memory.
  const std::optional<std::string>& databasePath() const { return databasePath_; }
  bool inTransaction(const storage::DatabaseQueue::TransactionCallback& callback);

  // Notes that the beacon has been seen now; what is known of it then, or nothing when the file can't be used.
  std::optional<TPLBeaconSession> rangedBeacon(const TPLBeacon& beacon);
  // The same for all beacons of a ranging, in one transaction.
  void rangedBeacons(std::span<const platform::CLBeacon> beacons);
  // From now on rangedBeacons() makes new rows of other beacons for 20 000 at once and 2 000 an hour only.
  void setListedBeacons(StatusReporter::IsListed isListed);

  bool beaconExists(const TPLBeacon& beacon) { return sessionForBeacon(beacon).has_value(); }
  std::optional<TPLBeaconSession> sessionForBeacon(const TPLBeacon& beacon);
  void insertNewBeaconSession(const TPLBeacon& beacon);
  void updateBeaconSession(const TPLBeacon& beacon);

  // The beacons never reported, and those for which SQLite's datetime() puts the time of the last sighting after the
  // time of the last report. It reads the stored seconds as Julian days, and those of our times as no date at all: what
  // has been reported once is not due again.
  Sessions beaconSessionsToBeUploaded();
  // As many of them as the limits have room for, which are lessened.
  Sessions beaconSessionsToBeUploaded(storage::UploadLimits& limits, const Sessions& except);
  void markBeaconSessionAsUploaded(const TPLBeaconSession& session);
  Sessions markBeaconSessionsAsUploaded(const Sessions& sessions);  // returns those that could not be marked

  // The current row of a query for all columns.
  static TPLBeaconSession beaconSessonFromResultSet(const storage::ResultSet& rows);

  static std::string formatDate(platform::CalendarTime date);  // "2015-11-21T11:40:00.125Z"

  // Prints the sessions on standard output, the newest rows first.
  void dumpDatabaseToConsole();
  // The same of any connection, line by line.
  static void dump(storage::DatabaseConnection& connection, const storage::TextSink& sink);

 private:
  TPLStatusDatabase(platform::Platform& platform, std::optional<std::string> path);
  bool mayBeNew(const platform::BeaconIdentity& beacon);
  bool insert(storage::DatabaseConnection& connection, const TPLBeacon& beacon);
  platform::CalendarTime now() const;

  platform::Platform& platform_;
  const std::optional<std::string> databasePath_;
  storage::DatabaseQueue databaseQueue_;

  std::mutex listMutex_;  // for the two below
  StatusReporter::IsListed isListed_;
  std::unique_ptr<storage::NewRowLimit> newBeacons_;
};

}  // namespace wayloom
