// wayloom dump: the tables of both databases, for people to read.
#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <string>

#include "wayloom/analytics/TGFAnalyticsDatabase.hpp"
#include "wayloom/status/TPLStatusDatabase.hpp"

#include "tools/common/Command.hpp"

namespace wayloom::tools {
namespace {

using storage::DatabaseConnection;

constexpr const char* kDescription = "Prints what the databases in a Documents directory hold.";

constexpr const char* kFooter =
    "GeofoldAnalytics.sqlite holds region, beacon and geofence sessions and events, Pulsekeep.sqlite the last sighting "
    "of\n"
    "each beacon; docs/stores.md describes both. Times are seconds since 1970. The files are only read, and may be in "
    "use\n"
    "meanwhile; one that is missing is passed over.\n\n"
    "Examples:\n"
    "  wayloom replay --venue examples/venue --documents state walk.jsonl\n"
    "  wayloom dump state\n\n"
    "Exit status: 0 when all was printed, 1 when there is no database or one can't be read, 2 for wrong options.";

struct Store {
  const char* file;
  std::string (*dump)(DatabaseConnection&);
};

constexpr Store kStores[] = {{"GeofoldAnalytics.sqlite", TGFAnalyticsDatabase::dump},
                             {"Pulsekeep.sqlite", TPLStatusDatabase::dump}};

bool print(const Store& store, const std::string& path) {
  DatabaseConnection connection(path, DatabaseConnection::Access::readOnly);
  connection.setPatience(std::chrono::seconds(5));
  const auto text = connection.error() ? std::string() : store.dump(connection);
  if (const auto& error = connection.error()) {
    complain(fmt::format("{}: {}", path, error->message));
    return false;
  }
  fmt::print("{}\n{}", store.file, text);
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
  if (std::fflush(stdout) != 0) {
    complain("standard output: can't be written");
    return kRunFailed;
  }
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
