#pragma once

#include <optional>

#include "wayloom/posix/PosixPlatform.hpp"

namespace wayloom::tools {

// The services of a host with a radio; nothing when this build has no backend for one.
std::optional<platform::PlatformServices> liveServices(const posix::PlatformOptions& options);

}  // namespace wayloom::tools
