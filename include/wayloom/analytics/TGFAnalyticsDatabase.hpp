#pragma once

#include <memory>
#include <optional>
#include <string>

#include "wayloom/storage/DatabaseDump.hpp"
#include "wayloom/storage/DatabaseQueue.hpp"

namespace wayloom {

// The file "GeofoldAnalytics.sqlite" in the Documents directory, with its schema. docs/stores.md describes it. Any
// thread; what happens when the file can't be used, DatabaseQueue says.
class TGFAnalyticsDatabase {
 public:
  explicit TGFAnalyticsDatabase(platform::Platform& platform);
  static std::unique_ptr<TGFAnalyticsDatabase> withInMemoryDatabase(platform::Platform& platform);
  static std::string setupDatabasePath(platform::Platform& platform);  // where the first one keeps its file

  // Nothing for a database in memory.
  const std::optional<std::string>& databasePath() const { return databasePath_; }

  storage::DatabaseQueue& databaseQueue() { return databaseQueue_; }
  bool inTransaction(const storage::DatabaseQueue::TransactionCallback& callback) {
    return databaseQueue_.inTransaction(callback);
  }

  // Prints every table on standard output, the newest rows first.
  void dumpDatabaseToConsole();
  // The same of any connection, line by line.
  static void dump(storage::DatabaseConnection& connection, const storage::TextSink& sink);

 private:
  TGFAnalyticsDatabase(platform::Platform& platform, std::optional<std::string> path);

  const std::optional<std::string> databasePath_;
  storage::DatabaseQueue databaseQueue_;
};

}  // namespace wayloom
