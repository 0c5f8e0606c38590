#include "wayloom/regions/TGFDevice.hpp"

#include "wayloom/platform/Platform.hpp"

namespace wayloom {

std::string TGFDevice::getUUID(platform::Platform& platform) {
  return platform.device().identifierForVendor().string();
}

}  // namespace wayloom
