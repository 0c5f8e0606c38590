#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "wayloom/platform/Time.hpp"

namespace wayloom::storage {

// What a query returns, row by row:
//
//   auto rows = connection.executeQuery("select id, entered_at from region_sessions;");
//   while (rows.next()) use(rows.integer("id"), rows.date("entered_at"));
//
// Lives no longer than the connection, and within the callback that made it. Columns are named or counted from 0; one
// that doesn't exist reads as null. A value of another type is converted as SQLite does.
class ResultSet {
 public:
  ResultSet(ResultSet&&) noexcept = default;
  ResultSet& operator=(ResultSet&&) noexcept = default;

  // Moves to the first, then to the next row. False after the last, and when reading failed: a failed query has no
  // rows.
  bool next();

  int columnCount() const;
  std::string_view columnName(int column) const;
  int columnNamed(std::string_view name) const;  // -1 when there is none

  bool isNull(int column) const;
  std::int64_t integer(int column) const;
  double real(int column) const;
  std::string_view text(int column) const;  // the bytes of a text or blob; until the next call of next()
  std::optional<platform::CalendarTime> date(int column) const;  // from seconds since 1970; nothing for null

  bool isNull(std::string_view name) const { return isNull(columnNamed(name)); }
  std::int64_t integer(std::string_view name) const { return integer(columnNamed(name)); }
  double real(std::string_view name) const { return real(columnNamed(name)); }
  std::string_view text(std::string_view name) const { return text(columnNamed(name)); }
  std::optional<platform::CalendarTime> date(std::string_view name) const { return date(columnNamed(name)); }

 private:
  friend class DatabaseConnection;
  struct Statement;
  struct Release {
    void operator()(Statement* statement) const;
  };
  explicit ResultSet(Statement* statement) : statement_(statement) {}

  std::unique_ptr<Statement, Release> statement_;  // null: no rows
};

}  // namespace wayloom::storage
