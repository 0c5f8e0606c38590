#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "wayloom/platform/Time.hpp"
#include "wayloom/storage/DatabaseValue.hpp"
#include "wayloom/storage/ResultSet.hpp"

namespace wayloom::storage {

// Why SQLite refused something.
struct DatabaseError {
  int code = 0;  // SQLite's primary result code
  std::string message;
};

// One open SQLite file. Statements are fixed texts with a "?" for each argument; they stay prepared for the next time.
//
//   connection.executeUpdate("update events set uploaded_at = ? where id = ?;", {now, id});
//
// One thread at a time. Nothing throws: what fails returns false or no rows, and can be asked for afterwards.
class DatabaseConnection {
 public:
  enum class Access { readWrite, readOnly };

  // Without a path, a database in memory. With readWrite a missing file is made. A read-only connection never changes
  // the file, and reads it in a directory that can't be written, too, together with its write-ahead log; there it takes
  // no locks, so nobody may write meanwhile.
  explicit DatabaseConnection(const std::optional<std::string>& path, Access access = Access::readWrite);
  ~DatabaseConnection();
  DatabaseConnection(const DatabaseConnection&) = delete;
  DatabaseConnection& operator=(const DatabaseConnection&) = delete;

  bool isOpen() const;

  // Several statements in one text, without arguments and results.
  bool executeStatements(const char* batch);
  // A statement that returns no rows.
  bool executeUpdate(std::string_view statement, std::initializer_list<DatabaseValue> arguments = {});
  // An argument's text may go before the rows are read.
  ResultSet executeQuery(std::string_view query, std::initializer_list<DatabaseValue> arguments = {});

  std::int64_t lastInsertRowId() const;
  // Rows inserted, changed or deleted since opening, what was taken back included.
  std::int64_t changeCount() const;
  bool isInTransaction() const;

  // What failed first since the last call of forgetError(), or since opening.
  const std::optional<DatabaseError>& error() const;
  void forgetError();

  // How long a statement waits for a lock that another connection holds; at first not at all.
  void setPatience(platform::Duration patience);
  // The number of pages in the write-ahead log after the last commit of this connection. Counting them replaces
  // SQLite's own checkpoints: whoever counts must call checkpoint().
  void countLogPages();
  int logPages() const;
  // Moves what is in the write-ahead log into the database file, as far as no reader is in the way. True when nothing
  // is left: then the next transaction that writes begins the log anew.
  bool checkpoint();
  // Whether the path leads to another file by now, or to none.
  bool hasMoved() const;

 private:
  friend class ResultSet;
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace wayloom::storage
