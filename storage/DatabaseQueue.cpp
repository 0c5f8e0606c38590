#include "wayloom/storage/DatabaseQueue.hpp"

#include <sqlite3.h>
#include <utility>

#include "wayloom/platform/Platform.hpp"

#include "storage/DatabaseFaults.hpp"
#include "storage/DatabaseFile.hpp"
#include "storage/RetryPause.hpp"

namespace wayloom::storage {
namespace {

constexpr int kSchemaVersion = 1;

// Of 4096 bytes. The first is SQLite's own figure, at which a checkpoint begins in the background.
constexpr int kCheckpointPages = 1000;
constexpr int kMostPages = 2500;

// A log that a stalled reader or disk made long is cut when it begins anew.
constexpr const char* kSettings =
    "pragma journal_mode = wal; pragma synchronous = normal; pragma journal_size_limit = 8388608;";

bool hasNoVersion(DatabaseConnection& connection) {
  auto rows = connection.executeQuery("select count(*) from schema_version where version = 1");
  return rows.next() && rows.integer(0) == 0;
}

// Takes back what is not committed at its end, whatever ended it.
class Rollback {
 public:
  explicit Rollback(DatabaseConnection& connection) : connection_(connection) {}
  ~Rollback() {
    if (connection_.isInTransaction()) connection_.executeUpdate("rollback");
  }
  Rollback(const Rollback&) = delete;
  Rollback& operator=(const Rollback&) = delete;

 private:
  DatabaseConnection& connection_;
};

}  // namespace

DatabaseQueue::DatabaseQueue(platform::Platform& platform, std::optional<std::string> path, Schema schema)
    : platform_(platform),
      path_(std::move(path)),
      schema_(schema),
      file_(DatabaseFile::at(platform, path_.value_or(""))),
      faults_(std::make_unique<DatabaseFaults>(platform, path_.value_or("in memory"))),
      setUpPause_(std::make_unique<RetryPause>()),
      checkpointAt_(kCheckpointPages),
      waitAt_(kMostPages) {
  reopen();
}

// Whoever closes the last connection to a file moves its log into it.
DatabaseQueue::~DatabaseQueue() {
  scope_.close();
  const std::shared_lock gate(file_->gate);
  connection_.reset();
}

bool DatabaseQueue::inDatabase(const Callback& callback) {
  return run(Kind::plain, [&](DatabaseConnection& connection, bool&) { callback(connection); });
}

bool DatabaseQueue::inTransaction(const TransactionCallback& callback) { return run(Kind::writing, callback); }

bool DatabaseQueue::inReadTransaction(const Callback& callback) {
  return run(Kind::reading, [&](DatabaseConnection& connection, bool&) { callback(connection); });
}

bool DatabaseQueue::run(Kind kind, const TransactionCallback& callback) {
  const std::lock_guard lock(mutex_);
  const auto gate = enter();
  if (!gate) {
    if (kind == Kind::writing) faults_->lostChange();
    return false;
  }
  connection_->setPatience(faults_->patience());
  connection_->forgetError();
  const auto changesBefore = connection_->changeCount();
  {
    std::unique_lock writer(file_->writer, std::defer_lock);
    if (kind != Kind::reading) writer.lock();
    transact(kind, callback);
  }
  const bool succeeded = settle(kind, connection_->changeCount() != changesBefore);
  boundLog();
  return succeeded;
}

void DatabaseQueue::transact(Kind kind, const TransactionCallback& callback) {
  const Rollback atEnd(*connection_);
  bool rollback = false;
  if (kind == Kind::plain) return callback(*connection_, rollback);
  // A transaction that reads first and writes then would be refused if somebody else wrote in between.
  if (!connection_->executeUpdate(kind == Kind::writing ? "begin immediate" : "begin")) return;
  callback(*connection_, rollback);
  if (!rollback && connection_->isInTransaction()) connection_->executeUpdate("commit");
}

// The gate, held, with a connection to the file that the path leads to; nothing when there is none.
std::shared_lock<std::shared_mutex> DatabaseQueue::enter() {
  for (int attempt = 0; attempt < 2; ++attempt) {
    std::shared_lock gate(file_->gate);
    if (connection_ && generation_ == file_->generation && !connection_->hasMoved()) {
      if (!lacksSetUp_ || !setUpPause_->isOver(platform_.monotonicClock().now())) return gate;
      const std::lock_guard writer(file_->writer);
      if (setUp(*connection_)) return gate;
      connection_.reset();
      faults_->couldNotOpen();
      return {};
    }
    gate.unlock();
    if (!reopen()) break;
  }
  return {};
}

bool DatabaseQueue::reopen() {
  if (!faults_->mayOpen()) return false;
  const std::lock_guard gate(file_->gate);
  if (connection_ && generation_ == file_->generation) beginAnew();
  connection_.reset();
  generation_ = file_->generation;
  if (path_) platform_.files().restrictToOwner(*path_);  // when it can't be, opening says why
  auto opened = std::make_unique<DatabaseConnection>(path_);
  if (!setUp(*opened)) {
    faults_->couldNotOpen();
    return false;
  }
  connection_ = std::move(opened);
  return true;
}

// Somebody has removed or replaced the file below its connections. What is left of the old log would be taken for the
// new file's.
void DatabaseQueue::beginAnew() {
  ++file_->generation;
  auto& files = platform_.files();
  platform_.systemLog().write("Database " + *path_ + " has been removed or replaced");
  if (files.fileExists(*path_)) return;
  for (const char* suffix : {"-wal", "-shm"})
    if (files.fileExists(*path_ + suffix)) files.removeFile(*path_ + suffix);
}

// Whether the connection can be used. When only the schema can't be put in place, it is used as it is.
bool DatabaseQueue::setUp(DatabaseConnection& connection) {
  connection.setPatience(faults_->patience());
  lacksSetUp_ = false;
  if (!connection.isOpen()) {
    faults_->setUpFailed(*connection.error());
    return false;
  }
  if (isFromALaterVersion(connection)) return false;
  connection.countLogPages();
  checkpointAt_ = kCheckpointPages;
  waitAt_ = kMostPages;
  connection.forgetError();
  if (!connection.executeStatements(kSettings) || !connection.executeStatements(schema_.tables)) {
    faults_->setUpFailed(*connection.error());
    setUpLater();
    return DatabaseFaults::reachOf(*connection.error()) != DatabaseFaults::Reach::connection;
  }
  if (hasNoVersion(connection)) connection.executeUpdate("insert into schema_version (version) values (1);");
  connection.executeStatements(schema_.indexes);
  if (const auto& error = connection.error()) {
    faults_->failed(*error, true);
    setUpLater();
  }
  return true;
}

// Looked at before anything is touched.
bool DatabaseQueue::isFromALaterVersion(DatabaseConnection& connection) {
  auto rows = connection.executeQuery("select max(version) from schema_version");
  const auto version = rows.next() ? rows.integer(0) : 0;
  if (version <= kSchemaVersion) return false;
  faults_->failed({SQLITE_NOTADB, "its schema has version " + std::to_string(version) +
                                      ", this library knows version " + std::to_string(kSchemaVersion)},
                  false);
  return true;
}

bool DatabaseQueue::settle(Kind kind, bool hasWritten) {
  const auto& error = connection_->error();
  if (!error) {
    faults_->succeeded(hasWritten);
    return true;
  }
  const bool writes = kind == Kind::writing;
  faults_->failed(*error, writes);
  if (writes) faults_->lostChange();
  const auto reach = DatabaseFaults::reachOf(*error);
  if (reach == DatabaseFaults::Reach::statement) setUpLater();
  // What is in memory goes with its connection.
  if (reach == DatabaseFaults::Reach::connection && path_) {
    connection_.reset();
    faults_->couldNotOpen();
  }
  return false;
}

void DatabaseQueue::setUpLater() {
  if (std::exchange(lacksSetUp_, true)) return;
  setUpPause_->lengthen(platform_.monotonicClock().now());
}

// A log that can't be moved, because somebody reads for long, is tried again when it has grown as much once more.
void DatabaseQueue::boundLog() {
  if (!connection_) return;
  const int pages = connection_->logPages();
  if (pages < kCheckpointPages) {
    checkpointAt_ = kCheckpointPages;
    waitAt_ = kMostPages;
  }
  if (pages >= waitAt_) {
    waitAt_ = pages + kCheckpointPages;
    file_->checkpoint(*connection_);
  } else if (pages >= checkpointAt_ && !checkpointing_.exchange(true)) {
    checkpointAt_ = pages + kCheckpointPages;
    platform_.tasks().backgroundQueue().async(scope_.bind([this] {
      checkpointInBackground();
      checkpointing_ = false;
    }));
  }
}

// On a connection of its own: the callers go on meanwhile.
void DatabaseQueue::checkpointInBackground() {
  const std::shared_lock gate(file_->gate);
  if (!path_ || !platform_.files().fileExists(*path_)) return;
  DatabaseConnection connection(path_);
  file_->checkpoint(connection);
}

}  // namespace wayloom::storage
