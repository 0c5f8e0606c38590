#include "wayloom/status/TPLDevice.hpp"

#include "wayloom/platform/Platform.hpp"

namespace wayloom {

std::string TPLDevice::getUUID(platform::Platform& platform) {
  return platform.device().identifierForVendor().string();
}

}  // namespace wayloom
