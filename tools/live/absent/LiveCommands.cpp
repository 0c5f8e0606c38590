// The live commands of a build without a radio: they say so.
#include "tools/Command.hpp"

namespace wayloom::tools {
namespace {

void registerAbsent(CLI::App& app, const char* name, const char* description) {
  auto& command = *app.add_subcommand(name, description);
  command.prefix_command();
  runs(command, [] {
    complain("there is no radio in this build: it was made without sdbus-c++ (WAYLOOM_WITH_BLUEZ)");
    return kRunFailed;
  });
}

}  // namespace

void registerScan(CLI::App& app) { registerAbsent(app, "scan", "Lists the beacons around (not in this build)."); }
void registerRecord(CLI::App& app) { registerAbsent(app, "record", "Records beacons (not in this build)."); }
void registerRun(CLI::App& app) { registerAbsent(app, "run", "Runs the system live (not in this build)."); }
void registerDoctor(CLI::App& app) { registerAbsent(app, "doctor", "Says what is wrong (not in this build)."); }

}  // namespace wayloom::tools
