#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/platform/Time.hpp"
#include "wayloom/status/TPLBeacon.hpp"
#include "wayloom/status/TPLBeaconSession.hpp"
#include "wayloom/storage/DatabaseQueue.hpp"

namespace wayloom {

namespace storage {
class BeaconRows;
}

// The file "Pulsekeep.sqlite" in the Documents directory: one row for each beacon ever seen, which docs/stores.md
// describes. Several may work on the file at the same time. Any thread; a failure is told in the log alone, see
// DatabaseQueue.
class TPLStatusDatabase {
 public:
  explicit TPLStatusDatabase(platform::Platform& platform);
  ~TPLStatusDatabase();
  static std::unique_ptr<TPLStatusDatabase> withInMemoryDatabase(platform::Platform& platform);

  // Nothing for a database in memory.
  const std::optional<std::string>& databasePath() const { return databasePath_; }
  bool inTransaction(const storage::DatabaseQueue::TransactionCallback& callback);

  // Notes that the beacon has been seen now; what is known of it then, or nothing when the file can't be used.
  std::optional<TPLBeaconSession> rangedBeacon(const TPLBeacon& beacon);
  // The same for all beacons of a ranging, in one transaction.
  void rangedBeacons(std::span<const platform::CLBeacon> beacons);

  bool beaconExists(const TPLBeacon& beacon) { return sessionForBeacon(beacon).has_value(); }
  std::optional<TPLBeaconSession> sessionForBeacon(const TPLBeacon& beacon);
  void insertNewBeaconSession(const TPLBeacon& beacon);
  void updateBeaconSession(const TPLBeacon& beacon);

  // The beacons never reported, and those for which SQLite's datetime() puts the time of the last sighting after the
  // time of the last report. It reads the stored seconds as Julian days, and those of our times as no date at all: what
  // has been reported once is not due again.
  std::vector<TPLBeaconSession> beaconSessionsToBeUploaded();
  void markBeaconSessionAsUploaded(const TPLBeaconSession& session);
  void markBeaconSessionsAsUploaded(const std::vector<TPLBeaconSession>& sessions);

  // The current row of a query for all columns.
  static TPLBeaconSession beaconSessonFromResultSet(const storage::ResultSet& rows);

  static std::string formatDate(platform::CalendarTime date);  // "2015-11-21T11:40:00.125Z"

  // Prints the sessions on standard output, the newest rows first.
  void dumpDatabaseToConsole();
  // The same as a text, of any connection.
  static std::string dump(storage::DatabaseConnection& connection);

 private:
  TPLStatusDatabase(platform::Platform& platform, std::optional<std::string> path);
  static std::string setupDatabasePath(platform::Platform& platform);
  void note(storage::DatabaseConnection& connection, const platform::CLBeacon& beacon);
  bool insert(storage::DatabaseConnection& connection, const TPLBeacon& beacon);
  platform::CalendarTime now() const;

  platform::Platform& platform_;
  const std::optional<std::string> databasePath_;
  storage::DatabaseQueue databaseQueue_;

  // What rangedBeacons() remembers of the file; used within transactions only.
  std::unique_ptr<storage::BeaconRows> rows_;
  std::uint64_t rowsStamp_ = 0;  // of the connection, when they were read; 0: read them again
};

}  // namespace wayloom
