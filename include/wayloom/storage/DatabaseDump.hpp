#pragma once

#include <functional>
#include <string_view>

#include "wayloom/storage/DatabaseConnection.hpp"

namespace wayloom::storage {

// Takes a text piece by piece, each one or more whole lines; false when it wants no more.
using TextSink = std::function<bool(std::string_view)>;

// A query's text, its column names and its rows, as people read them in a terminal; null is "(null)", and control
// characters come out as blanks. A query that fails has no rows. False when the sink has enough.
bool dumpQuery(DatabaseConnection& connection, std::string_view query, const TextSink& sink);

// A sink.
bool toStandardOutput(std::string_view text);

}  // namespace wayloom::storage
