#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "tools/common/VenueEndpoints.hpp"

namespace wayloom::tools {

struct DevelopmentServerOptions {
  std::string venue = {};                            // absolute path of the venue folder
  std::string address = "127.0.0.1";                 // to listen on
  int port = 0;                                      // 0: any that is free
  std::string keep = {};                             // folder for what the endpoints receive; empty: nowhere
  bool pointsStatusHere = false;                     // serves the kit with a status_url of this server
  std::string faults = {};                           // rules, see FaultRules
  std::uint64_t seed = 1;                            // of their chances
  std::function<void(const std::string&)> log = {};  // a line for each request, from any thread
};

// The servers of a venue on one machine, over HTTP, for those who develop against them:
//
//  - GET and HEAD of the kit and of everything below server/maps/, with Last-Modified and Date, and 304 for a client
//    that has the file already. Files are read anew for each request.
//  - POST to the analytics and the status endpoint: an empty 200, a 401 without the venue's token, a 400 when the body
//    is no JSON. All of them are kept in analytics.jsonl and status.jsonl, see RequestJournal.
//  - GET and PUT of /_faults: the fault rules in force, one a line. Only from this machine.
//  - Anything else: 404.
//
//   std::string error;
//   auto server = DevelopmentServer::start({.venue = "/venues/house", .keep = "/tmp/kept"}, error);
//
// Serves from its own threads until it is destroyed, which takes no longer than a moment, whatever its clients do.
class DevelopmentServer {
 public:
  // Null, and the reason in `error`, when it can't listen or keep, the venue has no server/ folder or a rule is none.
  static std::unique_ptr<DevelopmentServer> start(DevelopmentServerOptions options, std::string& error);
  ~DevelopmentServer();

  std::string url() const;  // "http://127.0.0.1:3000"
  const VenueEndpoints& endpoints() const;
  // As a PUT of /_faults: an error text, or an empty one.
  std::string setFaults(std::string_view rules);

 private:
  class Implementation;
  explicit DevelopmentServer(std::unique_ptr<Implementation> implementation);

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace wayloom::tools
