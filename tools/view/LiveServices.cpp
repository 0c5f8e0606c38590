#include "tools/view/LiveServices.hpp"

#ifdef WAYLOOM_HAS_RADIO
#include "wayloom/linux/LinuxLocationServices.hpp"
#include "wayloom/linux/LinuxPlatform.hpp"
#endif

namespace wayloom::tools {

#ifdef WAYLOOM_HAS_RADIO
std::optional<LiveServices> liveServices(const posix::PlatformOptions& options) {
  auto services = linux_::makeServices({.posix = options});
  const auto radio = std::dynamic_pointer_cast<linux_::LinuxLocationServices>(services.location);
  return LiveServices{std::move(services), [radio](const std::function<void(const std::string&)>& told) {
                        if (!told) return radio->setRadioObserver({});
                        const auto tell = [told](const linux_::RadioStatus& status) {
                          told(std::string(linux_::description(status.condition)));
                        };
                        tell(radio->radioStatus());
                        radio->setRadioObserver(tell);
                      }};
}
#else
std::optional<LiveServices> liveServices(const posix::PlatformOptions&) { return std::nullopt; }
#endif

}  // namespace wayloom::tools
