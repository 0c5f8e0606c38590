// One SQLite file, used through callbacks that run one at a time.
//
//   DatabaseQueue queue(platform, documents + "/GeofoldAnalytics.sqlite", kSchema);
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
struct DatabaseFile;

// A callback runs on the caller's thread, which waits for its turn: from any thread, but not from within a callback of
// the same queue.
//
// The file is in write-ahead-log mode, synchronous NORMAL: what was committed outlives the process being killed at any
// moment, and a power cut corrupts nothing, though it may take the last commits. The log is moved into the file on the
// shared background queue, so that no caller waits for the disk to sync.
//
// Several queues on one file are the normal case; those of one Platform never refuse one another anything, they wait.
// When another process holds a lock, the first that meets it waits for a quarter of a second, those that follow not at
// all, until one succeeds. When the file can't be used (locked, disk full, read-only, damaged, gone), operations return
// false, the system log says so once, and says how many changes were lost when it is over; a file that is gone is begun
// anew. Nothing else tells the caller.
class DatabaseQueue {
 public:
  using Callback = std::function<void(DatabaseConnection&)>;
  // Setting the flag takes the transaction back.
  using TransactionCallback = std::function<void(DatabaseConnection&, bool& rollback)>;

  // Opens the file and executes the schema, a batch of "create ... if not exists", on it; writes version 1 into its
  // table `schema_version`. Whenever the file had to be opened again, that is done again. Without a path the database
  // is in memory.
  DatabaseQueue(platform::Platform& platform, std::optional<std::string> path, const char* schema);
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
  bool configure(DatabaseConnection& connection);
  void beginAnew();
  bool settle(Kind kind, bool hasWritten);
  void checkpointWhenDue();
  void checkpoint();

  platform::Platform& platform_;
  const std::optional<std::string> path_;
  const char* schema_;
  std::shared_ptr<DatabaseFile> file_;

  std::mutex mutex_;  // held while a callback runs; for what follows
  std::unique_ptr<DatabaseFaults> faults_;
  std::unique_ptr<DatabaseConnection> connection_;  // null while it can't be opened
  std::uint64_t generation_ = 0;
  int checkpointAt_;

  std::atomic<bool> checkpointing_ = false;
  platform::TaskScope scope_;
};

}  // namespace storage
}  // namespace wayloom
