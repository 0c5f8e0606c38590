#pragma once

#include "wayloom/positioning/ElectionTrace.hpp"

#include "backends/sim/JsonText.hpp"

namespace wayloom::tools {

// The members that tell why a beacon was elected, into an object that has been begun; docs/replay.md describes them.
void appendElection(sim::JsonText& text, const ElectionTrace& trace);

}  // namespace wayloom::tools
