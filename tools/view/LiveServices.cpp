#include "tools/view/LiveServices.hpp"

#ifdef WAYLOOM_HAS_RADIO
#include "wayloom/linux/LinuxPlatform.hpp"
#endif

namespace wayloom::tools {

#ifdef WAYLOOM_HAS_RADIO
std::optional<platform::PlatformServices> liveServices(const posix::PlatformOptions& options) {
  return linux_::makeServices({.posix = options});
}
#else
std::optional<platform::PlatformServices> liveServices(const posix::PlatformOptions&) { return std::nullopt; }
#endif

}  // namespace wayloom::tools
