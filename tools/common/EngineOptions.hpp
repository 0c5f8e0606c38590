#pragma once

#include <string>

#include "tools/common/CommandLine.hpp"
#include "tools/replay/ReplayPrinter.hpp"

namespace wayloom::tools {

// What the commands that run the whole system and print what comes of it have in common.
struct EngineOptions {
  std::string venue;
  std::string documents;
  std::string events = "location";
  bool useOwnDistance = false;
  bool refined = false;

  void addTo(Arguments command);
  bool printsAll() const { return events == "all"; }
  ReplayPrinter::Events printed() const {
    return printsAll() ? ReplayPrinter::Events::all : ReplayPrinter::Events::location;
  }
};

}  // namespace wayloom::tools
