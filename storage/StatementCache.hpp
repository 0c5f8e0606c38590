#pragma once

#include <sqlite3.h>
#include <string>
#include <string_view>
#include <unordered_map>

#include "wayloom/storage/DatabaseConnection.hpp"

namespace wayloom::storage {

// A prepared statement, in the cache or on its own.
struct ResultSet::Statement {
  sqlite3_stmt* handle = nullptr;
  DatabaseConnection::State* owner = nullptr;
  bool inUse = false;
  bool isCached = false;
};

struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};

struct DatabaseConnection::State {
  using Statement = ResultSet::Statement;

  State(const std::optional<std::string>& path, Access access);
  ~State();
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  // Ready to be bound; null, with the error noted, when SQLite refuses the text. A statement that is in use already is
  // prepared once more.
  Statement* acquire(std::string_view text);
  void release(Statement* statement);
  bool bind(Statement& statement, std::initializer_list<DatabaseValue> arguments, sqlite3_destructor_type lifetime);
  // Notes a failure; returns whether there is none.
  bool note(int result);

  sqlite3* handle = nullptr;
  using Cache = std::unordered_map<std::string, Statement, TextHash, std::equal_to<>>;
  Cache cache;
  Cache::iterator latest = cache.end();  // a ranging executes the same statement again and again
  std::optional<DatabaseError> error;
  int logPages = 0;

 private:
  void open(const std::string& name, int flags, const char* system = nullptr);
  void openForReading(const std::string& name);
  sqlite3_stmt* prepare(std::string_view text, unsigned flags);
};

}  // namespace wayloom::storage
