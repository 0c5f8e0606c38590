#include "wayloom/storage/DatabaseConnection.hpp"

#include "storage/StatementCache.hpp"

namespace wayloom::storage {

DatabaseConnection::DatabaseConnection(const std::optional<std::string>& path, Access access)
    : state_(std::make_unique<State>(path, access)) {}

DatabaseConnection::~DatabaseConnection() = default;

bool DatabaseConnection::isOpen() const { return state_->handle != nullptr; }

bool DatabaseConnection::executeStatements(const char* batch) {
  return isOpen() && state_->note(sqlite3_exec(state_->handle, batch, nullptr, nullptr, nullptr));
}

bool DatabaseConnection::executeUpdate(std::string_view text, std::initializer_list<DatabaseValue> arguments) {
  auto* statement = state_->acquire(text);
  if (statement == nullptr) return false;
  const bool done = state_->bind(*statement, arguments, SQLITE_STATIC) && state_->note(sqlite3_step(statement->handle));
  state_->release(statement);
  return done;
}

ResultSet DatabaseConnection::executeQuery(std::string_view query, std::initializer_list<DatabaseValue> arguments) {
  ResultSet rows(state_->acquire(query));
  if (rows.statement_ && !state_->bind(*rows.statement_, arguments, SQLITE_TRANSIENT)) rows.statement_.reset();
  return rows;
}

std::int64_t DatabaseConnection::lastInsertRowId() const {
  return isOpen() ? sqlite3_last_insert_rowid(state_->handle) : 0;
}

std::int64_t DatabaseConnection::changeCount() const { return isOpen() ? sqlite3_total_changes(state_->handle) : 0; }

bool DatabaseConnection::isInTransaction() const { return isOpen() && sqlite3_get_autocommit(state_->handle) == 0; }

const std::optional<DatabaseError>& DatabaseConnection::error() const { return state_->error; }

void DatabaseConnection::forgetError() { state_->error.reset(); }

void DatabaseConnection::setPatience(platform::Duration patience) {
  const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(patience).count();
  if (isOpen()) sqlite3_busy_timeout(state_->handle, static_cast<int>(milliseconds));
}

void DatabaseConnection::countLogPages() {
  if (!isOpen()) return;
  const auto count = [](void* pages, sqlite3*, const char*, int number) {
    *static_cast<int*>(pages) = number;
    return SQLITE_OK;
  };
  sqlite3_wal_hook(state_->handle, count, &state_->logPages);
}

int DatabaseConnection::logPages() const { return state_->logPages; }

// A connection that has read nothing yet doesn't know of the log.
bool DatabaseConnection::checkpoint() {
  int inLog = 0;
  int moved = 0;
  return executeStatements("pragma schema_version;") &&
         state_->note(sqlite3_wal_checkpoint_v2(state_->handle, nullptr, SQLITE_CHECKPOINT_PASSIVE, &inLog, &moved)) &&
         moved == inLog;
}

bool DatabaseConnection::hasMoved() const {
  int moved = 0;
  return isOpen() && sqlite3_file_control(state_->handle, "main", SQLITE_FCNTL_HAS_MOVED, &moved) == SQLITE_OK &&
         moved != 0;
}

// --- Result sets ---

void ResultSet::Release::operator()(Statement* statement) const { statement->owner->release(statement); }

bool ResultSet::next() {
  if (!statement_) return false;
  const int result = sqlite3_step(statement_->handle);
  if (result == SQLITE_ROW) return true;
  statement_->owner->note(result);
  statement_.reset();
  return false;
}

int ResultSet::columnCount() const { return statement_ ? sqlite3_column_count(statement_->handle) : 0; }

std::string_view ResultSet::columnName(int column) const {
  const char* name = statement_ ? sqlite3_column_name(statement_->handle, column) : nullptr;
  return name == nullptr ? std::string_view() : name;
}

int ResultSet::columnNamed(std::string_view name) const {
  for (int column = columnCount() - 1; column >= 0; --column)
    if (columnName(column) == name) return column;
  return -1;
}

bool ResultSet::isNull(int column) const {
  return !statement_ || column < 0 || sqlite3_column_type(statement_->handle, column) == SQLITE_NULL;
}

std::int64_t ResultSet::integer(int column) const {
  return isNull(column) ? 0 : sqlite3_column_int64(statement_->handle, column);
}

double ResultSet::real(int column) const {
  return isNull(column) ? 0.0 : sqlite3_column_double(statement_->handle, column);
}

std::string_view ResultSet::text(int column) const {
  if (isNull(column)) return {};
  const void* bytes = sqlite3_column_blob(statement_->handle, column);
  const auto length = static_cast<std::size_t>(sqlite3_column_bytes(statement_->handle, column));
  return bytes == nullptr ? std::string_view() : std::string_view(static_cast<const char*>(bytes), length);
}

std::optional<platform::CalendarTime> ResultSet::date(int column) const {
  if (isNull(column)) return std::nullopt;
  return platform::calendarTimeFromSeconds(real(column));
}

}  // namespace wayloom::storage
