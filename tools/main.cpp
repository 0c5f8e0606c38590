#include <exception>

#include "tools/Command.hpp"

namespace wayloom::tools {
namespace {

constexpr const char* kDescription =
    "Indoor positioning on recorded and simulated walks.\n\n"
    "A venue folder holds what a venue's application and servers would: its beacons and its maps. A recording holds "
    "what a device received while it was carried through the venue. Neither needs a radio or a network.";

constexpr const char* kFooter =
    "Examples:\n"
    "  wayloom replay --venue examples/venue walk.jsonl                 positions, one JSON line each\n"
    "  wayloom replay --venue examples/venue --events all walk.jsonl    and why\n"
    "  wayloom COMMAND --help                                           more of each command\n\n"
    "Exit status: 0 when all went well, 1 when the run failed (unusable input, unwritable output),\n"
    "2 for wrong options.";

int run(int argc, char** argv) {
  CLI::App app(kDescription, "wayloom");
  app.footer(kFooter);
  app.set_version_flag("--version", std::string("wayloom ") + WAYLOOM_VERSION);
  app.require_subcommand(1);
  registerReplay(app);
  registerEvaluate(app);
  registerSimulate(app);
  registerView(app);
  registerServe(app);
  registerDump(app);
  registerMaps(app);
  registerScan(app);
  registerRecord(app);
  registerRun(app);
  registerDoctor(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::RuntimeError& failure) {
    return failure.get_exit_code();
  } catch (const CLI::ParseError& request) {
    return app.exit(request) == 0 ? kSucceeded : kUsageError;
  }
  return kSucceeded;
}

}  // namespace
}  // namespace wayloom::tools

int main(int argc, char** argv) {
  try {
    return wayloom::tools::run(argc, argv);
  } catch (const std::exception& failure) {
    wayloom::tools::complain(failure.what());
    return wayloom::tools::kRunFailed;
  }
}
