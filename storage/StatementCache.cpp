#include "storage/StatementCache.hpp"

#include <filesystem>
#include <system_error>

namespace wayloom::storage {
namespace {

constexpr int kPrimaryCode = 0xFF;
constexpr const char* kSystemWithoutLocks = "unix-none";

// A file name as a URI, which alone can say that the file never changes.
std::string immutableUri(const std::string& path) {
  std::string uri = "file:";
  for (const char character : path) {
    constexpr std::string_view kHex = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(character);
    if (byte > ' ' && byte < 0x7F && std::string_view("%?#").find(character) == std::string_view::npos)
      uri += character;
    else
      (uri += '%').append({kHex[byte >> 4U], kHex[byte & 0xFU]});
  }
  return uri + "?immutable=1";
}

// Empty files count: SQLite leaves them behind.
bool hasLog(const std::string& path) {
  std::error_code failure;
  return std::filesystem::exists(path + "-wal", failure) || failure;
}

struct Binder {
  sqlite3_stmt* statement;
  int place;
  sqlite3_destructor_type lifetime;

  int operator()(std::monostate) const { return sqlite3_bind_null(statement, place); }
  int operator()(std::int64_t number) const { return sqlite3_bind_int64(statement, place, number); }
  int operator()(double number) const { return sqlite3_bind_double(statement, place, number); }
  int operator()(std::string_view text) const {
    return sqlite3_bind_text64(statement, place, text.data() == nullptr ? "" : text.data(), text.size(), lifetime,
                               SQLITE_UTF8);
  }
  int operator()(Blob blob) const {
    return sqlite3_bind_blob64(statement, place, blob.bytes.data(), blob.bytes.size(), lifetime);
  }
};

}  // namespace

DatabaseConnection::State::State(const std::optional<std::string>& path, Access access) {
  const std::string name = path.value_or(":memory:");
  if (access == Access::readWrite)
    open(name, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  else
    openForReading(name);
}

// Reading beside others takes an index of the log in a file of its own. Where that can't be made, nobody writes either:
// a connection that has the files for itself keeps the index in memory, and a file without a log never changes.
void DatabaseConnection::State::openForReading(const std::string& name) {
  const auto read = [this](const char* statements) {
    return handle != nullptr && note(sqlite3_exec(handle, statements, nullptr, nullptr, nullptr));
  };
  open(name, SQLITE_OPEN_READONLY);
  if (handle == nullptr || read("select count(*) from sqlite_master;") ||
      (error->code != SQLITE_CANTOPEN && error->code != SQLITE_READONLY))
    return;
  sqlite3_close_v2(handle);
  error.reset();
  if (!hasLog(name)) return open(immutableUri(name), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
  open(name, SQLITE_OPEN_READONLY, kSystemWithoutLocks);
  if (handle != nullptr) sqlite3_db_config(handle, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  read("pragma locking_mode = exclusive; select count(*) from sqlite_master;");
}

void DatabaseConnection::State::open(const std::string& name, int flags, const char* system) {
  const int result = sqlite3_open_v2(name.c_str(), &handle, flags | SQLITE_OPEN_NOMUTEX, system);
  if (note(result)) return;
  sqlite3_close_v2(handle);
  handle = nullptr;
}

DatabaseConnection::State::~State() {
  for (auto& [text, statement] : cache) sqlite3_finalize(statement.handle);
  sqlite3_close_v2(handle);
}

sqlite3_stmt* DatabaseConnection::State::prepare(std::string_view text, unsigned flags) {
  sqlite3_stmt* prepared = nullptr;
  note(sqlite3_prepare_v3(handle, text.data(), static_cast<int>(text.size()), flags, &prepared, nullptr));
  return prepared;
}

ResultSet::Statement* DatabaseConnection::State::acquire(std::string_view text) {
  if (handle == nullptr) return nullptr;
  if (latest != cache.end() && !latest->second.inUse && latest->first == text) {
    latest->second.inUse = true;
    return &latest->second;
  }
  auto entry = cache.find(text);
  if (entry == cache.end()) {
    auto* prepared = prepare(text, SQLITE_PREPARE_PERSISTENT);
    if (prepared == nullptr) return nullptr;
    entry = cache.emplace(text, Statement{prepared, this, false, true}).first;
  }
  if (!entry->second.inUse) {
    latest = entry;
    entry->second.inUse = true;
    return &entry->second;
  }
  auto* another = prepare(text, 0);
  return another == nullptr ? nullptr : new Statement{another, this, true, false};
}

void DatabaseConnection::State::release(Statement* statement) {
  if (!statement->isCached) {
    sqlite3_finalize(statement->handle);
    delete statement;
    return;
  }
  sqlite3_reset(statement->handle);
  statement->inUse = false;
}

bool DatabaseConnection::State::bind(Statement& statement, std::initializer_list<DatabaseValue> arguments,
                                     sqlite3_destructor_type lifetime) {
  // What an earlier use has bound may be gone: every argument must be given.
  if (sqlite3_bind_parameter_count(statement.handle) != static_cast<int>(arguments.size())) return note(SQLITE_RANGE);
  int place = 0;
  for (const auto& argument : arguments)
    if (!note(std::visit(Binder{statement.handle, ++place, lifetime}, argument.content()))) return false;
  return true;
}

bool DatabaseConnection::State::note(int result) {
  if (result == SQLITE_OK || result == SQLITE_ROW || result == SQLITE_DONE) return true;
  if (!error)
    error = DatabaseError{result & kPrimaryCode, handle == nullptr ? sqlite3_errstr(result) : sqlite3_errmsg(handle)};
  return false;
}

}  // namespace wayloom::storage
