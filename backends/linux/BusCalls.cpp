#include "backends/linux/BusCalls.hpp"

namespace wayloom::linux_ {

void BusCalls::close() {
  abandon();
  connection_ = nullptr;
}

void BusCalls::abandon() {
  ++conversation_;
  proxies_.clear();
}

sdbus::IProxy& BusCalls::proxy(const std::string& destination, const std::string& path) {
  auto& proxy = proxies_[{destination, path}];
  if (!proxy) proxy = sdbus::createProxy(*connection_, destination, path);
  return *proxy;
}

// The reply is read at once: it must not outlive the connection.
void BusCalls::call(const BusMethod& method, platform::Duration timeout, const Fill& fill, Read read,
                    const Fail& fail) {
  if (connection_ == nullptr) return;
  const auto conversation = conversation_;
  try {
    auto& target = proxy(method.destination, method.path);
    auto message = target.createMethodCall(method.interface, method.name);
    if (fill) fill(message);
    target.callMethod(
        message,
        [this, conversation, read = std::move(read), fail](sdbus::MethodReply& reply, const sdbus::Error* error) {
          if (error != nullptr) return follow(conversation, fail, *error);
          try {
            follow(conversation, read(reply));
          } catch (const sdbus::Error& malformed) {
            follow(conversation, fail, malformed);
          }
        },
        timeout);
  } catch (const sdbus::Error& error) {
    follow(conversation, fail, error);
  }
}

void BusCalls::follow(std::uint64_t conversation, const Fail& fail, const sdbus::Error& error) {
  follow(conversation, [fail, failure = BusFailure{error.getName(), error.getMessage()}] { fail(failure); });
}

// In a task of its own, because what follows may end the proxy that is calling.
void BusCalls::follow(std::uint64_t conversation, platform::Task task) {
  bus_.tasks().mainQueue().async([this, conversation, task = std::move(task)] {
    if (conversation == conversation_ && task) task();
  });
}

}  // namespace wayloom::linux_
