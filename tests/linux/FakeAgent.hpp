#pragma once

#include <sdbus-c++/sdbus-c++.h>
#include <string>

namespace wayloom::tests {

// The one who gives the location service permission, as a desktop would; or has location turned off in its settings.
class FakeAgent {
 public:
  FakeAgent(const std::string& busAddress, bool allows)
      : connection_(sdbus::createSessionBusConnectionWithAddress(busAddress)),
        agent_(sdbus::createObject(*connection_, "/org/freedesktop/GeoClue2/Agent")) {
    constexpr const char* interface = "org.freedesktop.GeoClue2.Agent";
    agent_->registerMethod(interface, "AuthorizeApp", "su", "bu", [allows](sdbus::MethodCall call) {
      auto reply = call.createReply();
      reply << allows << std::uint32_t{8};
      reply.send();
    });
    agent_->registerProperty(interface, "MaxAccuracyLevel", "u",
                             [allows](sdbus::PropertyGetReply& reply) { reply << (allows ? std::uint32_t{8} : 0U); });
    agent_->finishRegistration();
    manager_ = sdbus::createProxy(*connection_, "org.freedesktop.GeoClue2", "/org/freedesktop/GeoClue2/Manager");
    // Without waiting: the service asks this connection for its properties before it answers.
    manager_->callMethodAsync("AddAgent")
        .onInterface("org.freedesktop.GeoClue2.Manager")
        .withArguments(std::string("geoclue-demo-agent"))
        .uponReplyInvoke([](const sdbus::Error*) {});
    connection_->enterEventLoopAsync();
  }
  ~FakeAgent() { connection_->leaveEventLoop(); }
  FakeAgent(const FakeAgent&) = delete;
  FakeAgent& operator=(const FakeAgent&) = delete;

 private:
  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IObject> agent_;
  std::unique_ptr<sdbus::IProxy> manager_;
};

}  // namespace wayloom::tests
