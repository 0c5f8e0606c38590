#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <sdbus-c++/sdbus-c++.h>
#include <string>
#include <utility>

#include "backends/linux/BusThread.hpp"

namespace wayloom::linux_ {

// Why a call came to nothing.
struct BusFailure {
  std::string name;  // "org.bluez.Error.NotReady"
  std::string text;
};

struct BusMethod {
  std::string destination;
  std::string path;
  std::string interface;
  std::string name;
};

// Calls over a bus without ever waiting. Belongs to the bus thread.
class BusCalls {
 public:
  using Fill = std::function<void(sdbus::Message&)>;
  // Reads a reply and says what shall follow from it. What it throws makes the call a failed one.
  using Read = std::function<platform::Task(sdbus::Message&)>;
  using Fail = std::function<void(const BusFailure&)>;

  explicit BusCalls(BusThread& bus) : bus_(bus) {}

  void open(sdbus::IConnection& connection) { connection_ = &connection; }
  void close();
  bool isOpen() const { return connection_ != nullptr; }

  // Answers of earlier calls are not delivered any more. Not inside a message handler.
  void abandon();

  // What follows from the answer runs in a task of its own on the bus thread, after the time-out at the latest, unless
  // the call is abandoned.
  void call(const BusMethod& method, platform::Duration timeout, const Fill& fill, Read read, const Fail& fail);

 private:
  void follow(std::uint64_t conversation, platform::Task task);
  void follow(std::uint64_t conversation, const Fail& fail, const sdbus::Error& error);
  sdbus::IProxy& proxy(const std::string& destination, const std::string& path);

  BusThread& bus_;
  sdbus::IConnection* connection_ = nullptr;
  std::uint64_t conversation_ = 0;
  std::map<std::pair<std::string, std::string>, std::unique_ptr<sdbus::IProxy>> proxies_;
};

}  // namespace wayloom::linux_
