#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "wayloom/platform/Json.hpp"

#include "backends/sim/VenueFiles.hpp"

namespace wayloom::tools {

enum class Endpoint { none, kit, maps, analytics, status, faults };

// The name that faults and log lines call it by.
std::string_view nameOf(Endpoint endpoint);

// Which paths a venue's application asks its servers for, and with which tokens: those of the addresses in its property
// lists and its kit, as they are when this is made. One server stands for all of them, so what tells them apart is the
// path alone: an address that is missing, or whose path another one has already, gets a path of this class's own.
//
//   kit         GFKitURL's path, else /kit
//   maps        everything below /maps/
//   analytics   GFAnalyticsURL's path, else /analytics
//   status      the kit's status_url's path, else /status; /sdk/v1/events too, which the status logger posts to
//   faults      /_faults
class VenueEndpoints {
 public:
  // An absolute path. Nothing needs to be in it, but then nothing is served.
  explicit VenueEndpoints(const std::string& venue);

  const std::string& venue() const { return venue_; }
  const sim::VenueFiles& files() const { return files_; }

  // Of a request's target, query included.
  Endpoint find(std::string_view target) const;
  // Whether the value of an AUTHORIZATION header is good for the endpoint; every value is when the venue has no token
  // for it.
  bool allows(Endpoint endpoint, std::string_view authorization) const;
  bool needsToken(Endpoint endpoint) const { return !tokensOf(endpoint).empty(); }

  // Addresses of a server that is at `base`, such as "http://127.0.0.1:3000".
  std::string kitUrl(const std::string& base) const;
  std::string mapConfigUrl(const std::string& base) const;
  std::string analyticsUrl(const std::string& base) const;
  std::string statusUrl(const std::string& base) const;

  // The kit with its status_url at that server, and a status_token when it has none; as it is when it is no kit.
  std::string kitWithStatusAt(const std::string& base, std::string kit) const;

 private:
  void readPropertyList(const platform::Json& list);
  void readKit();
  const std::vector<std::string>& tokensOf(Endpoint endpoint) const;
  // The path of the address, unless it has none or is taken.
  std::optional<std::string> freePath(const std::optional<std::string>& url) const;

  std::string venue_;
  sim::VenueFiles files_;
  std::vector<std::string> kitPaths_;
  std::string mapConfigPath_ = "/maps/map_config.json";
  std::vector<std::string> analyticsPaths_;
  std::string statusPath_;
  std::vector<std::string> apiTokens_;
  std::vector<std::string> statusTokens_;  // the kit's, and those above, which the status logger has
};

}  // namespace wayloom::tools
