#include "wayloom/regions/TGFManagerServices.hpp"

#include "wayloom/analytics/TGFAnalytics.hpp"
#include "wayloom/status/TPLStatusManager.hpp"

namespace wayloom {

TGFManagerServices::TGFManagerServices()
    : makeAnalytics([](platform::Platform& platform, TGFManager&) { return std::make_unique<TGFAnalytics>(platform); }),
      makeStatus([](platform::Platform& platform, const std::string& url, const std::string& token) {
        return std::make_unique<TPLStatusManager>(platform, platform::Json{{"url", url}, {"token", token}});
      }) {}

TGFManagerServices TGFManagerServices::none() {
  TGFManagerServices services;
  services.makeAnalytics = nullptr;
  services.makeStatus = nullptr;
  return services;
}

}  // namespace wayloom
