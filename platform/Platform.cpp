#include "wayloom/platform/Platform.hpp"

#include "wayloom/platform/LogUser.hpp"

namespace wayloom::platform {

Platform::Platform(PlatformServices services)
    : services_(std::move(services)),
      notificationQueue_(std::make_unique<NotificationQueue>(notificationCenter_, *services_.tasks)) {
  if (auto* user = dynamic_cast<LogUser*>(services_.location.get())) user->setLog(services_.systemLog);
}

Platform::~Platform() {
  while (const auto last = takeLastInstance()) {
  }
}

std::shared_ptr<void> Platform::takeLastInstance() {
  const std::lock_guard lock(sharedMutex_);
  if (sharedInstances_.empty()) return nullptr;
  auto last = std::move(sharedInstances_.back().second);
  sharedInstances_.pop_back();
  return last;
}

void* Platform::sharedInstance(std::type_index type, bool outlivesOthers,
                               const std::function<std::shared_ptr<void>()>& make) {
  const std::lock_guard lock(sharedMutex_);
  for (const auto& [key, instance] : sharedInstances_)
    if (key == type) return instance.get();
  auto instance = make();
  const auto place = outlivesOthers ? sharedInstances_.begin() : sharedInstances_.end();
  return sharedInstances_.emplace(place, type, std::move(instance))->second.get();
}

}  // namespace wayloom::platform
