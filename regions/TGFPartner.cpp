#include "wayloom/regions/TGFPartner.hpp"

#include <utility>

#include "wayloom/platform/Platform.hpp"

namespace wayloom {

TGFPartner& TGFPartner::shared(platform::Platform& platform) {
  return platform.shared<TGFPartner>([] { return std::make_unique<TGFPartner>(); });
}

std::string TGFPartner::getIdentifier() const {
  const std::lock_guard lock(mutex_);
  return identifier_;
}

void TGFPartner::setIdentifier(std::string identifier) {
  const std::lock_guard lock(mutex_);
  identifier_ = std::move(identifier);
}

}  // namespace wayloom
