#include <string>

#include "tools/common/Command.hpp"

namespace wayloom::tools {
namespace {

constexpr const char* kDescription =
    "Indoor positioning on recorded, simulated and real walks.\n\n"
    "A venue folder holds what a venue's application and servers would: its beacons and its maps. A recording holds "
    "what a device received while it was carried through the venue. Only scan, record, run, doctor and view --live "
    "need a radio.";

constexpr const char* kFooter =
    "Examples:\n"
    "  wayloom replay --venue examples/venue walk.jsonl                 positions, one JSON line each\n"
    "  wayloom replay --venue examples/venue --events all walk.jsonl    and why\n"
    "  wayloom COMMAND --help                                           more of each command\n\n"
    "Exit status: 0 when all went well, 1 when the run failed (unusable input, unwritable output),\n"
    "2 for wrong options.";

void registerAll(CommandLine& line) {
  registerReplay(line);
  registerEvaluate(line);
  registerSimulate(line);
  registerView(line);
  registerServe(line);
  registerDump(line);
  registerMaps(line);
  registerScan(line);
  registerRecord(line);
  registerRun(line);
  registerDoctor(line);
}

}  // namespace
}  // namespace wayloom::tools

int main(int argc, char** argv) {
  using namespace wayloom::tools;
  CommandLine line("wayloom", kDescription, kFooter);
  line.addVersion(std::string("wayloom ") + WAYLOOM_VERSION);
  registerAll(line);
  return line.run(argc, argv);
}
