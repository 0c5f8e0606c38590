#pragma once

#include <functional>
#include <optional>
#include <string>

#include "wayloom/posix/PosixPlatform.hpp"

namespace wayloom::tools {

// The services of a host with a radio.
struct LiveServices {
  platform::PlatformServices services;
  // Has the radio's condition told as a sentence, on the main queue, as long as the services live.
  std::function<void(std::function<void(const std::string&)>)> observeRadio;
};

// The bus and the adapter as BluezOptions has them. Nothing when this build has no backend for a radio.
std::optional<LiveServices> liveServices(const posix::PlatformOptions& options, const std::string& bus,
                                         const std::string& adapter);

}  // namespace wayloom::tools
