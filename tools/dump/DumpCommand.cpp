// wayloom dump: the tables of both databases, for people to read.
#include <chrono>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "wayloom/analytics/TGFAnalyticsDatabase.hpp"
#include "wayloom/status/TPLStatusDatabase.hpp"

#include "tools/common/Command.hpp"
#include "tools/common/Output.hpp"

namespace wayloom::tools {
namespace {

using storage::DatabaseConnection;

constexpr const char* kDescription = "Prints what the databases in a Documents directory hold.";

constexpr const char* kFooter =
    "GeofoldAnalytics.sqlite holds region, beacon and geofence sessions and events, Pulsekeep.sqlite the last sighting "
    "of\n"
    "each beacon; docs/stores.md describes both. Times are seconds since 1970. The files are only read, and may be in "
    "use\n"
    "meanwhile; one that is missing is passed over. A copy is read with the log beside it (\"-wal\"), also where "
    "nothing\n"
    "can be written.\n\n"
    "Examples:\n"
    "  wayloom replay --venue examples/venue --documents state walk.jsonl\n"
    "  wayloom dump state\n\n"
    "Exit status: 0 when all was printed, 1 when there is no database or one can't be read, 2 for wrong options.";

struct Store {
  const char* file;
  void (*dump)(DatabaseConnection&, const storage::TextSink&);
};

constexpr Store kStores[] = {{"GeofoldAnalytics.sqlite", TGFAnalyticsDatabase::dump},
                             {"Pulsekeep.sqlite", TPLStatusDatabase::dump}};

// Line by line, as somebody wants them; the texts in them are anybody's.
bool printLines(std::string_view text) {
  auto& output = standardOutput();
  for (std::size_t begin = 0, end = 0; (end = text.find('\n', begin)) != text.npos; begin = end + 1)
    output.print("{}\n", text.substr(begin, end - begin));
  return output.failure() == 0 && !output.isClosed();
}

bool print(const Store& store, const std::string& path) {
  DatabaseConnection connection(path, DatabaseConnection::Access::readOnly);
  connection.setPatience(std::chrono::seconds(5));
  // In one transaction: all tables as they are at one moment. The name comes with the first line, so that a file that
  // can't be read prints nothing.
  if (!connection.error() && connection.executeUpdate("begin")) {
    bool isNamed = false;
    store.dump(connection, [&](std::string_view text) {
      if (connection.error()) return false;
      if (!std::exchange(isNamed, true)) standardOutput().print("{}\n", store.file);
      return printLines(text);
    });
  }
  if (const auto& error = connection.error()) {
    complain(fmt::format("{}: {}", path, error->message));
    return false;
  }
  return true;
}

int dump(const std::string& documents) {
  bool anything = false;
  bool good = true;
  for (const auto& store : kStores) {
    const auto path = (std::filesystem::path(documents) / store.file).string();
    if (!std::filesystem::exists(path)) continue;
    anything = true;
    good = print(store, path) && good;
  }
  if (!anything) complain(fmt::format("{}: there is no database in it", documents));
  return anything && good ? kSucceeded : kRunFailed;
}

}  // namespace

void registerDump(CommandLine& line) {
  auto documents = std::make_shared<std::string>();
  auto command = line.addCommand("dump", kDescription, kFooter);
  command.add("DOCUMENTS", *documents, "Directory with the databases").required().existingFolder();
  command.runs([documents] { return dump(*documents); });
}

}  // namespace wayloom::tools
