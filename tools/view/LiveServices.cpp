#include "tools/view/LiveServices.hpp"

#ifdef WAYLOOM_HAS_RADIO
#include "wayloom/linux/LinuxLocationServices.hpp"
#include "wayloom/linux/LinuxPlatform.hpp"
#endif

namespace wayloom::tools {

#ifdef WAYLOOM_HAS_RADIO
std::optional<LiveServices> liveServices(const posix::PlatformOptions& options, const std::string& bus,
                                         const std::string& adapter) {
  linux_::GeoClueOptions geoClue;
  geoClue.bus = bus;
  auto services =
      linux_::makeServices({.posix = options, .bluez = {.bus = bus, .adapter = adapter}, .geoClue = geoClue});
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
std::optional<LiveServices> liveServices(const posix::PlatformOptions&, const std::string&, const std::string&) {
  return std::nullopt;
}
#endif

}  // namespace wayloom::tools
