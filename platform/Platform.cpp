#include "wayloom/platform/Platform.hpp"

namespace wayloom::platform {

Platform::Platform(PlatformServices services)
    : services_(std::move(services)),
      notificationQueue_(std::make_unique<NotificationQueue>(notificationCenter_, *services_.tasks)) {}

Platform::~Platform() {
  while (!sharedInstances_.empty()) sharedInstances_.pop_back();
}

void* Platform::sharedInstance(std::type_index type, const std::function<std::shared_ptr<void>()>& make) {
  const std::lock_guard lock(sharedMutex_);
  for (const auto& [key, instance] : sharedInstances_)
    if (key == type) return instance.get();
  auto instance = make();
  return sharedInstances_.emplace_back(type, std::move(instance)).second.get();
}

}  // namespace wayloom::platform
