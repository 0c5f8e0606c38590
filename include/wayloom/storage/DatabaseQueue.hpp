// One SQLite file, used through callbacks that run one at a time.
//
//   DatabaseQueue queue(platform, documents + "/GeofoldAnalytics.sqlite", {kTables, kIndexes});
//   queue.inTransaction([&](DatabaseConnection& connection, bool&) {
//     connection.executeUpdate("update events set uploaded_at = ? where id = ?;", {now, id});
//   });
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>

#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/platform/Time.hpp"
#include "wayloom/storage/DatabaseConnection.hpp"

namespace wayloom {

namespace platform {
class Platform;
}

namespace storage {

class DatabaseFaults;
class RetryPause;
struct DatabaseFile;

// A callback runs on the caller's thread, which waits for its turn: from any thread, but not from within a callback of
// the same queue. What it throws reaches the caller, and what it did is taken back.
//
// The file is in write-ahead-log mode, synchronous NORMAL: what was committed outlives the process being killed at any
// moment, and a power cut corrupts nothing, though it may take the last commits. The log is moved into the file on the
// shared background queue, so that no caller waits for the disk to sync; a log that grows faster than that, to 10 MB,
// is moved by the caller that made it so long. Nobody but its owner may read the file.
//
// Several queues on one file are the normal case; those of one Platform never refuse one another anything, they wait.
// When another process holds a lock, the first that meets it waits for a quarter of a second, those that follow not at
// all, until one succeeds. When the file can't be used (locked, disk full, read-only, no database, gone, or written by
// a later version), operations return false, the system log says so once, and says how many changes were lost when it
// is over; a file that is gone is begun anew. Nothing else tells the caller. A statement that fails for what it says,
// or for the part of the file that is damaged, fails alone: the others go on, and a table that is missing is made
// again.
class DatabaseQueue {
 public:
  using Callback = std::function<void(DatabaseConnection&)>;
  // Setting the flag takes the transaction back.
  using TransactionCallback = std::function<void(DatabaseConnection&, bool& rollback)>;

  // Batches of "create ... if not exists", which must outlive the queue.
  struct Schema {
    const char* tables = "";   // one of them is `schema_version`
    const char* indexes = "";  // without them everything works, though slowly
  };

  // Opens the file, executes the batches on it and writes version 1 into `schema_version`. Whenever the file had to be
  // opened again, that is done again. Without a path the database is in memory.
  DatabaseQueue(platform::Platform& platform, std::optional<std::string> path, Schema schema);
  ~DatabaseQueue();
  DatabaseQueue(const DatabaseQueue&) = delete;
  DatabaseQueue& operator=(const DatabaseQueue&) = delete;

  // Each returns whether the callback ran, nothing failed in it, and what it did was committed.
  bool inDatabase(const Callback& callback);
  bool inTransaction(const TransactionCallback& callback);  // for writing: waits for other writers before it begins
  bool inReadTransaction(const Callback& callback);         // keeps nobody from writing

 private:
  enum class Kind { plain, writing, reading };

  bool run(Kind kind, const TransactionCallback& callback);
  void transact(Kind kind, const TransactionCallback& callback);
  std::shared_lock<std::shared_mutex> enter();
  bool reopen();
  void beginAnew();
  bool setUp(DatabaseConnection& connection);
  bool isFromALaterVersion(DatabaseConnection& connection);
  bool settle(Kind kind, bool hasWritten);
  void setUpLater();
  void boundLog();
  void checkpointInBackground();

  platform::Platform& platform_;
  const std::optional<std::string> path_;
  const Schema schema_;
  std::shared_ptr<DatabaseFile> file_;

  std::mutex mutex_;  // held while a callback runs; for what follows
  std::unique_ptr<DatabaseFaults> faults_;
  std::unique_ptr<DatabaseConnection> connection_;  // null while it can't be opened
  std::uint64_t generation_ = 0;
  bool lacksSetUp_ = false;  // something is missing or damaged: the schema is to be executed once more
  std::unique_ptr<RetryPause> setUpPause_;
  int checkpointAt_;  // pages
  int waitAt_;

  std::atomic<bool> checkpointing_ = false;
  platform::TaskScope scope_;
};

}  // namespace storage
}  // namespace wayloom
