#pragma once

#include <string>
#include <string_view>

#include "wayloom/storage/DatabaseConnection.hpp"

namespace wayloom::storage {

// A query's text, its column names and its rows, as people read them in a terminal; null is "(null)", and control
// characters come out as blanks. A query that fails has no rows.
std::string dumpOf(DatabaseConnection& connection, std::string_view query);

}  // namespace wayloom::storage
