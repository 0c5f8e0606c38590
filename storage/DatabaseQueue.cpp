#include "wayloom/storage/DatabaseQueue.hpp"

#include <utility>

#include "wayloom/platform/Platform.hpp"

#include "storage/DatabaseFaults.hpp"
#include "storage/DatabaseFile.hpp"

namespace wayloom::storage {
namespace {

constexpr int kCheckpointPages = 1000;  // of 4096 bytes

// A log that a stalled reader or disk made long is cut when it begins anew.
constexpr const char* kSettings =
    "pragma journal_mode = wal; pragma synchronous = normal; pragma journal_size_limit = 8388608;";

bool hasNoVersion(DatabaseConnection& connection) {
  auto rows = connection.executeQuery("select count(*) from schema_version where version = 1");
  return rows.next() && rows.integer(0) == 0;
}

}  // namespace

DatabaseQueue::DatabaseQueue(platform::Platform& platform, std::optional<std::string> path, const char* schema)
    : platform_(platform),
      path_(std::move(path)),
      schema_(schema),
      file_(DatabaseFile::at(platform, path_.value_or(""))),
      faults_(std::make_unique<DatabaseFaults>(platform, path_.value_or("in memory"))),
      checkpointAt_(kCheckpointPages) {
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
  return settle(kind, connection_->changeCount() != changesBefore);
}

void DatabaseQueue::transact(Kind kind, const TransactionCallback& callback) {
  bool rollback = false;
  if (kind == Kind::plain) return callback(*connection_, rollback);
  // A transaction that reads first and writes then would be refused if somebody else wrote in between.
  if (!connection_->executeUpdate(kind == Kind::writing ? "begin immediate" : "begin")) return;
  callback(*connection_, rollback);
  if (!rollback && connection_->isInTransaction()) connection_->executeUpdate("commit");
  if (connection_->isInTransaction()) connection_->executeUpdate("rollback");
}

// The gate, held, with a connection to the file that the path leads to; nothing when there is none.
std::shared_lock<std::shared_mutex> DatabaseQueue::enter() {
  for (int attempt = 0; attempt < 2; ++attempt) {
    std::shared_lock gate(file_->gate);
    if (connection_ && generation_ == file_->generation && !connection_->hasMoved()) return gate;
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
  auto opened = std::make_unique<DatabaseConnection>(path_);
  opened->setPatience(faults_->patience());
  if (!configure(*opened)) {
    using During = DatabaseFaults::During;
    if (const auto& error = opened->error())
      faults_->failed(*error, opened->isOpen() ? During::setUp : During::reading);
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

bool DatabaseQueue::configure(DatabaseConnection& connection) {
  if (!connection.executeStatements(kSettings) || !connection.executeStatements(schema_)) return false;
  if (hasNoVersion(connection)) connection.executeUpdate("insert into schema_version (version) values (1);");
  connection.countLogPages();
  checkpointAt_ = kCheckpointPages;
  return !connection.error();
}

bool DatabaseQueue::settle(Kind kind, bool hasWritten) {
  const auto& error = connection_->error();
  if (!error) {
    faults_->succeeded(hasWritten);
    checkpointWhenDue();
    return true;
  }
  const bool writes = kind == Kind::writing;
  faults_->failed(*error, writes ? DatabaseFaults::During::writing : DatabaseFaults::During::reading);
  if (writes) faults_->lostChange();
  if (DatabaseFaults::passes(*error)) return false;
  connection_.reset();
  faults_->couldNotOpen();
  return false;
}

// A log that can't be moved is tried again when it has grown as much once more.
void DatabaseQueue::checkpointWhenDue() {
  const int pages = connection_->logPages();
  if (pages < kCheckpointPages) checkpointAt_ = kCheckpointPages;
  if (pages < checkpointAt_ || checkpointing_.exchange(true)) return;
  checkpointAt_ = pages + kCheckpointPages;
  platform_.tasks().backgroundQueue().async(scope_.bind([this] {
    checkpoint();
    checkpointing_ = false;
  }));
}

// On a connection of its own: the callers go on meanwhile.
void DatabaseQueue::checkpoint() {
  const std::shared_lock gate(file_->gate);
  if (!path_ || !platform_.files().fileExists(*path_)) return;
  DatabaseConnection connection(path_);
  connection.checkpoint();
}

}  // namespace wayloom::storage
