// wayloom serve: the servers of a venue on one machine.
#include <csignal>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <pthread.h>
#include <string>
#include <vector>

#include "tools/common/Command.hpp"
#include "tools/common/VenueTroubles.hpp"
#include "tools/serve/BundleWriter.hpp"
#include "tools/serve/DevelopmentServer.hpp"

namespace wayloom::tools {
namespace {

constexpr const char* kDescription =
    "Plays the venue's servers over HTTP on this machine: kit, maps, analytics and status, with faults when wanted.";

constexpr const char* kFooter =
    R"(The first line of the output is the server's address and nothing else; the next ones say what to put into the
application's property lists. --write-bundle does that for you. Requests are logged to standard error.

Faults, so that you see what your application makes of them; docs/serve.md has all of it:
  slow=2s  rate=1000  fail=503  garbage  garbage=all  cut=100  hang      what goes wrong with an answer
  chance=0.3  times=2                                                    how often
  kit:  maps:  analytics:  status:  /maps/plans:                         in front, for which requests

Examples:
  wayloom serve --venue examples/venue --keep received
      then see received/analytics.jsonl and received/status.jsonl
  wayloom serve --venue examples/venue --port 0 --write-bundle bundle --status-here
      run your application with this bundle: all that it sends comes here
  wayloom serve --venue examples/venue --fault analytics:fail=503,chance=0.5 --fault maps:cut=2000
  curl -X PUT --data 'status:hang; slow=1s' http://127.0.0.1:3000/_faults
      other faults while it runs; an empty text ends them

Exit status: 0 when it was stopped by SIGINT or SIGTERM, 1 when it could not serve, 2 for wrong options.)";

constexpr int kStatusLoggerPort = 3000;

struct Options {
  std::string venue;
  std::string address = "127.0.0.1";
  int port = kStatusLoggerPort;
  std::string keep;
  std::string bundle;
  bool pointsStatusHere = false;
  std::vector<std::string> faults;
  std::uint64_t seed = 1;
  bool isQuiet = false;
};

DevelopmentServerOptions serverOptions(const Options& options) {
  DevelopmentServerOptions server;
  server.venue = std::filesystem::canonical(options.venue).string();
  server.address = options.address;
  server.port = options.port;
  server.keep = options.keep;
  server.pointsStatusHere = options.pointsStatusHere;
  for (const auto& rule : options.faults) server.faults += rule + "\n";
  server.seed = options.seed;
  if (!options.isQuiet) server.log = [](const std::string& line) { standardError().print("{}\n", line); };
  return server;
}

void introduce(const DevelopmentServer& server, const Options& options) {
  const auto url = server.url();
  const auto& endpoints = server.endpoints();
  auto& out = standardOutput();
  out.print("{}\n\n", url);
  if (!options.bundle.empty()) {
    out.print("{} is a bundle that points here.\n", options.bundle);
  } else {
    out.print("For Geofold.plist and Wayloom.plist of your application's bundle:\n");
    out.print("  GFKitURL        {}\n  GFAnalyticsURL  {}\n", endpoints.kitUrl(url), endpoints.analyticsUrl(url));
    out.print("and for Wayloom.plist:\n  WLMapConfigURL  {}\n", endpoints.mapConfigUrl(url));
  }
  if (options.pointsStatusHere)
    out.print("The kit is served with this server's status_url.\n");
  else
    out.print("For the kit, or give --status-here:\n  status_url      {}\n", endpoints.statusUrl(url));
  if (!endpoints.needsToken(Endpoint::analytics))
    out.print("The bundle has no GFAPIToken: every token is good for analytics.\n");
  out.flush();  // it may have been closed: what is served is what counts
}

// Threads inherit the mask, so only waitForStop() gets the signals.
sigset_t blockStopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

int serve(const Options& options) {
  if (tellTroubles(options.venue, {VenuePart::serverAddresses, VenuePart::kit})) return kRunFailed;
  const auto signals = blockStopSignals();
  std::string error;
  const auto server = DevelopmentServer::start(serverOptions(options), error);
  if (server && !options.bundle.empty()) error = writeBundle(server->endpoints(), server->url(), options.bundle);
  if (!error.empty()) {
    complain(error);
    return kRunFailed;
  }
  introduce(*server, options);
  int signal = 0;
  sigwait(&signals, &signal);
  return kSucceeded;
}

}  // namespace

void registerServe(CommandLine& line) {
  auto options = std::make_shared<Options>();
  auto command = line.addCommand("serve", kDescription, kFooter);
  command.addVenue(options->venue).required();
  command.add("--port", options->port, "Port to listen on; 0 takes any that is free").between(0, 65535).showsDefault();
  command.add("--address", options->address, "Address to listen on; 0.0.0.0 lets other machines in").showsDefault();
  command
      .add("--keep", options->keep,
           "Folder for what is posted: analytics.jsonl and status.jsonl, one JSON object a request, appended")
      .named("DIR");
  command
      .add("--write-bundle", options->bundle,
           "Copy the venue's bundle to this folder, its property lists pointed at this server")
      .named("DIR");
  command.add("--status-here", options->pointsStatusHere,
              "Serve the kit with a status_url of this server, and a token if it has none");
  command.add("--fault", options->faults, "What to do wrong; may be given several times, the first that applies counts")
      .oneEach()
      .named("RULE");
  command.add("--seed", options->seed, "What the chances of faults begin with").showsDefault();
  command.add("--quiet", options->isQuiet, "Don't log requests");
  command.runs([options] { return serve(*options); });
}

}  // namespace wayloom::tools
