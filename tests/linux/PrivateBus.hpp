#pragma once

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "tests/posix/TemporaryDirectory.hpp"
#include "tests/support/ChildProcess.hpp"

namespace wayloom::tests {

// A message bus of the test's own: a dbus-daemon that allows everything, at an address that stays the same when it is
// started again.
class PrivateBus {
 public:
  PrivateBus() {
    std::ofstream(configuration())
        << R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
  "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <listen>)"
        << address() << R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="false"/>
    <allow receive_sender="*"/>
    <allow own="*"/>
    <allow user="*"/>
  </policy>
</busconfig>
)";
    start();
  }

  std::string address() const { return "unix:path=" + folder_.path() + "/bus"; }

  void start() {
    std::filesystem::remove(folder_.path() + "/bus");
    daemon_.emplace(
        std::vector<std::string>{"dbus-daemon", "--nofork", "--print-address", "--config-file=" + configuration()});
    std::string printedAddress;
    daemon_->readLine(printedAddress);
  }
  // As a crash does: nobody is told of the others' ends.
  void stop() { daemon_.reset(); }
  void freeze() { daemon_->signal(SIGSTOP); }
  void thaw() { daemon_->signal(SIGCONT); }

 private:
  std::string configuration() const { return folder_.path() + "/bus.conf"; }

  posix::TemporaryDirectory folder_;
  std::optional<ChildProcess> daemon_;
};

}  // namespace wayloom::tests
