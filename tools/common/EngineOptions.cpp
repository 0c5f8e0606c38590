#include "tools/common/EngineOptions.hpp"

namespace wayloom::tools {

void EngineOptions::addTo(Arguments command) {
  command.addVenue(venue).required();
  command
      .add("--documents", documents,
           "Folder for the files that the system keeps from run to run; a fresh one by default")
      .named("DIR");
  command
      .add("--events", events,
           "What to print: only positions, or everything that happens: kit syncs and errors, regions, rangings, "
           "elections, requests, log lines")
      .oneOf({"location", "all"})
      .showsDefault();
  command.add("--use-own-distance", useOwnDistance,
              "Compare distances computed from averaged signals instead of those that rangings state");
  command.add("--refined", refined, "Print refined positions, too: metres between beacons, from the same rangings");
}

}  // namespace wayloom::tools
