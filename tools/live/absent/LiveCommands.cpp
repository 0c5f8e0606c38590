// The live commands of a build without a radio: they say so.
#include "tools/common/Command.hpp"

namespace wayloom::tools {
namespace {

void registerAbsent(CommandLine& line, const char* name, const char* description) {
  line.addCommand(name, description)
      .runsWithAnything(
          [](const auto&) {
            complain("there is no radio in this build: it was made without sdbus-c++ (WAYLOOM_WITH_BLUEZ)");
            return kRunFailed;
          },
          true);
}

}  // namespace

void registerScan(CommandLine& line) { registerAbsent(line, "scan", "Lists the beacons around (not in this build)."); }
void registerRecord(CommandLine& line) { registerAbsent(line, "record", "Records beacons (not in this build)."); }
void registerRun(CommandLine& line) { registerAbsent(line, "run", "Runs the system live (not in this build)."); }
void registerDoctor(CommandLine& line) { registerAbsent(line, "doctor", "Says what is wrong (not in this build)."); }

}  // namespace wayloom::tools
